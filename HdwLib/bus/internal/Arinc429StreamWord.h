#pragma once
// One word of a byte stream carried over ARINC 429, as both ARINC 429 byte
// services build and read it (docs/arinc429-services.md, "Byte streams"):
//
//   bits 0-7    label of the stream
//   bits 8-9    SDI of the stream
//   bits 10-12  sequence count, 0-7, one more (mod 8) for every word
//   bits 13-20  first byte
//   bits 21-28  second byte (0 when the word carries one byte)
//   bits 29-30  SSM: the number of bytes carried, 1 or 2
//   bit 31      parity
//
// and the receiver's check of the sequence count.

#include <HdwLib/bus/HdwArinc429Message.h>
#include <HdwLib/bus/internal/ServiceParameters.h>

#include <cstdint>

namespace hdw::bus {

inline constexpr unsigned StreamSequenceModulo = 8;

// The content of a stream word.
struct SStreamWord {
    uint8_t Sequence = 0;
    uint8_t Count = 0; // bytes carried, 1 or 2
    uint8_t Bytes[2] = {};
};

// Parity mode of a port (0 odd, 1 even, 2 ignored): a sent word gets odd
// parity unless the mode asks for even.
inline void SetStreamParity(CKVX_HdwArinc429Message& word, uint8_t parityMode)
{
    word.SetParity(parityMode == 1 ? 1 : 0);
}

// True when the word's parity bit is the one `parityMode` expects (always
// for mode 2).
inline bool HasStreamParity(const CKVX_HdwArinc429Message& word, uint8_t parityMode)
{
    if (parityMode == 2)
        return true;
    CKVX_HdwArinc429Message expected(word);
    SetStreamParity(expected, parityMode);
    return expected.Parity == word.Parity;
}

// The word that carries `count` (1 or 2) bytes from `bytes`.
inline CKVX_HdwArinc429Message PackStreamWord(
    uint8_t label, uint8_t sdi, uint8_t sequence, const uint8_t* bytes, unsigned count, uint8_t parityMode)
{
    CKVX_HdwArinc429Message word;
    word.Label = label;
    word.Sdi = uint8_t(sdi & 3);
    const uint32_t second = count > 1 ? bytes[1] : 0;
    word.Data = (sequence % StreamSequenceModulo) | (uint32_t(bytes[0]) << 3) | (second << 11);
    word.Ssm = count > 1 ? 2 : 1;
    SetStreamParity(word, parityMode);
    return word;
}

// The content of a received stream word; false when its SSM is not a byte
// count (0 or 3): no stream word.
inline bool UnpackStreamWord(const CKVX_HdwArinc429Message& word, SStreamWord& out)
{
    if (word.Ssm != 1 && word.Ssm != 2)
        return false;
    out.Sequence = uint8_t(word.Data & 7);
    out.Count = word.Ssm;
    out.Bytes[0] = uint8_t(word.Data >> 3);
    out.Bytes[1] = word.Ssm == 2 ? uint8_t(word.Data >> 11) : 0;
    return true;
}

// What a received sequence count says about the stream.
struct SSequenceCheck {
    bool Repeat = false; // the same count as the word before: a repeated word
    unsigned Lost = 0; // words missing before this one
};

// Checks `sequence` against the last count taken (`synced` false: none yet,
// the word is taken as it is). A repeat leaves the state alone; any other
// count becomes the last one.
inline SSequenceCheck CheckStreamSequence(bool& synced, uint8_t& last, uint8_t sequence)
{
    SSequenceCheck check;
    sequence = uint8_t(sequence % StreamSequenceModulo);
    if (synced && sequence == last) {
        check.Repeat = true;
        return check;
    }
    if (synced)
        check.Lost = (sequence + StreamSequenceModulo - last - 1) % StreamSequenceModulo;
    synced = true;
    last = sequence;
    return check;
}

// Get/SetParameters of an ARINC 429 byte service: the base service's check,
// then the whole parameter set copied under the device lock. Set refuses an
// SDI above 3.
template <typename P>
unsigned GetLabelStreamParameters(CKVX_HdwService& service, P* params, uint32_t bufferSize, uint8_t label, uint8_t sdi)
{
    return CopyParametersOut(service, params, [&](P& p) {
        p.BufferSize = bufferSize;
        p.Label = label;
        p.Sdi = sdi;
    });
}

template <typename P>
unsigned SetLabelStreamParameters(
    CKVX_HdwService& service, P* params, uint32_t& bufferSize, uint8_t& label, uint8_t& sdi)
{
    if (const unsigned rc = service.CKVX_HdwService::SetParameters(params))
        return rc;
    if (!params || params->Sdi > 3)
        return HDW_ERR_ARGUMENT;
    CKVX_HdwServiceLock lock(service);
    bufferSize = params->BufferSize;
    label = params->Label;
    sdi = params->Sdi;
    return 0;
}

} // namespace hdw::bus
