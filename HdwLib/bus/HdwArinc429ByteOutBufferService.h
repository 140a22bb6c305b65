#pragma once
// Byte stream sent in ARINC 429 words (service type 3 on an ARINC 429
// transmitter). The application writes it with the calls of every byte
// output (Write, GetBytesToBeWritten, ResetWriteBuffer), as it would on a
// UART.
//
// Each word carries two bytes of the stream (the last one of a write that
// leaves an odd byte waiting carries one) in the label and SDI of the
// stream (CParameters::Label, CParameters::Sdi):
//
//   bits 0-7    label            bits 13-20  first byte
//   bits 8-9    SDI              bits 21-28  second byte (0 with one byte)
//   bits 10-12  sequence count   bits 29-30  SSM: bytes carried, 1 or 2
//   bit 31      parity: even when the transmitter's parity mode is 1, else odd
//
// The sequence count is 0 for the first word after Start and one more
// (mod 8) for each word after it, so the receiver
// (CKVX_HdwArinc429ByteInBufferService) tells a lost or repeated word.
//
// Flow: the unit driver builds words with BuildWords, as many as the unit's
// transmit FIFO still takes, and commits what it pushed with CommitWords; a
// committed word counts as in flight until the driver learns that it left
// the unit (KeepWordsInFlight). Bytes wait here meanwhile, so a large Write loses nothing.
//
// Lock rule: the buffers and the parameters only under the device lock.

#include <HdwLib/bus/HdwArinc429Message.h>
#include <HdwLib/bus/HdwByteOutBufferService.h>

#include <cstdint>
#include <deque>

class HDWLIB_EXPORT CKVX_HdwArinc429ByteOutBufferService : public CKVX_HdwByteOutBufferService {
public:
    class HDWLIB_EXPORT CParameters : public CKVX_HdwByteOutBufferService::CParameters {
    public:
        CParameters() = default;
        CParameters(const CParameters&) = default;
        CParameters(CParameters&&) = default;
        CParameters& operator=(const CParameters&) = default;
        CParameters& operator=(CParameters&&) = default;
        ~CParameters() override;

        uint8_t Label = 0xA0; // label of the stream's words, as stored in the word
        uint8_t Sdi = 0; // SDI of the stream's words, 0-3
    };

    explicit CKVX_HdwArinc429ByteOutBufferService(CKVX_HdwObject* port);
    ~CKVX_HdwArinc429ByteOutBufferService() override;

    // Empty both buffers, restart the sequence count at 0 and set the run
    // state (1 / 0). Start takes the transmitter's parity mode.
    unsigned Start() override;
    unsigned Stop() override;

    unsigned GetParameters(CKVX_HdwByteOutBufferService::CParameters* params) override;
    unsigned SetParameters(CKVX_HdwByteOutBufferService::CParameters* params) override;
    using CKVX_HdwByteOutBufferService::GetParameters;
    using CKVX_HdwByteOutBufferService::SetParameters;
    // 2 for an SDI above 3.
    virtual unsigned GetParameters(CParameters* params);
    virtual unsigned SetParameters(CParameters* params);

    // Queues the bytes (option 0; other options answer 2): 29 stopped, 15
    // failed, 2 when they do not fit the free buffer (BufferSize, 0 = no
    // bound); nothing is queued then.
    unsigned Write(unsigned char* bytes, unsigned int count, unsigned int option) override;
    // Bytes queued plus bytes in words not yet confirmed.
    unsigned GetBytesToBeWritten(unsigned int& count) override;
    // Drops the queued bytes; words already pushed stay in flight.
    unsigned ResetWriteBuffer() override;

    // ---- driver side (caller holds the device lock) ----
    // Fills up to maxWords words from the head of the queue without taking
    // the bytes; returns how many.
    unsigned BuildWords(CKVX_HdwArinc429Message* words, unsigned maxWords) const;
    // Takes the bytes of the first `count` words BuildWords made; they are
    // in flight from now on and the sequence count moves on.
    void CommitWords(unsigned count);
    // Words in flight, oldest first, beyond `count` are taken as sent (the
    // unit reported fewer waiting: their confirmations were lost).
    void KeepWordsInFlight(uint64_t count);
    unsigned GetWordsInFlight() const { return unsigned(m_InFlight.size()); }

protected:
    std::deque<uint8_t> m_Queue;
    std::deque<uint8_t> m_InFlight; // bytes carried by each word in flight, oldest first
    uint8_t m_Sequence = 0; // count of the next word
    uint8_t m_Label = 0xA0;
    uint8_t m_Sdi = 0;
    uint8_t m_ParityMode = 0;
};
