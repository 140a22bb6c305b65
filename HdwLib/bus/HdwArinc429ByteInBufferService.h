#pragma once
// Byte stream received in ARINC 429 words (service type 2 on an ARINC 429
// receiver). The application reads it with the calls of every byte input
// (Read, GetReadBufferBytes, ResetReadBuffer), as it would a UART.
//
// The stream is carried by the words of one label and SDI
// (CParameters::Label, CParameters::Sdi), each with one or two bytes and a
// 3-bit sequence count (word layout: CKVX_HdwArinc429ByteOutBufferService and
// docs/arinc429-services.md). Words of other labels or SDIs are not the
// stream's and are ignored. The receiver checks every stream word:
// - a parity the receiver's parity mode does not expect, or an SSM that is
//   no byte count: the word is rejected (GetRejectedWords);
// - the sequence count of the word before: a repeat, dropped
//   (GetRepeatedWords);
// - a gap in the count: the missing words are counted (GetLostWords) and
//   the word's bytes are kept; the stream goes on.
// So a rejected word shows as a rejected and a lost word. The first word
// after Start or ResetReadBuffer is taken whatever its count.
//
// Each byte keeps the time stamp of the word that carried it (ReadTimed).
// The unit driver hands every received word to AppendWord under the device
// lock; when BufferSize bytes wait (0 = no bound), the oldest are dropped
// and counted (GetDroppedBytes).
//
// Lock rule: the buffer, the counters and the parameters only under the
// device lock.

#include <HdwLib/bus/HdwArinc429Message.h>
#include <HdwLib/bus/HdwByteInBufferService.h>

#include <cstdint>
#include <deque>

class HDWLIB_EXPORT CKVX_HdwArinc429ByteInBufferService : public CKVX_HdwByteInBufferService {
public:
    class HDWLIB_EXPORT CParameters : public CKVX_HdwByteInBufferService::CParameters {
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

    // The received bytes waiting for Read, oldest first, each with the time
    // stamp of the word that carried it.
    class HDWLIB_EXPORT CByteBuffer {
    public:
        // Appends the `count` (1 or 2) bytes of one word received at `time`;
        // beyond `bound` bytes (0: none) the oldest go.
        void Append(const uint8_t* bytes, unsigned count, uint64_t time, uint32_t bound);
        // Moves up to `maxCount` bytes from the head into `out` and their
        // words' times into `times` (may be null); how many.
        unsigned Take(uint8_t* out, uint64_t* times, unsigned maxCount);
        uint64_t Size() const { return m_Size; }
        void Clear()
        {
            m_Words.clear();
            m_Size = 0;
        }
        // Bytes dropped by Append since the last ResetDropped.
        uint64_t Dropped() const { return m_Dropped; }
        void ResetDropped() { m_Dropped = 0; }

    private:
        // One word's bytes, First..Count-1 still unread.
        struct SWord {
            uint64_t Time = 0;
            uint8_t First = 0;
            uint8_t Count = 0;
            uint8_t Data[2] = {};
        };
        std::deque<SWord> m_Words;
        uint64_t m_Size = 0;
        uint64_t m_Dropped = 0;
    };

    explicit CKVX_HdwArinc429ByteInBufferService(CKVX_HdwObject* port);
    ~CKVX_HdwArinc429ByteInBufferService() override;

    // Empty the buffer, reset the counters and the sequence check and set
    // the run state (1 / 0). Start takes the receiver's parity mode.
    unsigned Start() override;
    unsigned Stop() override;

    // The base's parameter class sets BufferSize only.
    unsigned GetParameters(CKVX_HdwByteInBufferService::CParameters* params) override;
    unsigned SetParameters(CKVX_HdwByteInBufferService::CParameters* params) override;
    using CKVX_HdwByteInBufferService::GetParameters;
    using CKVX_HdwByteInBufferService::SetParameters;
    // 2 for an SDI above 3.
    virtual unsigned GetParameters(CParameters* params);
    virtual unsigned SetParameters(CParameters* params);

    // readCount 0, then 29 stopped, 15 failed, 2 no array for a non-zero
    // count; otherwise up to maxCount bytes from the head of the stream.
    unsigned Read(unsigned char* bytes, unsigned int maxCount, unsigned int& readCount) override;
    // As Read; timeStamps (may be null) receives each byte's word time.
    unsigned ReadTimed(unsigned char* bytes, uint64_t* timeStamps, unsigned int maxCount, unsigned int& readCount);
    unsigned GetReadBufferBytes(unsigned int& count) override;
    // Empties the buffer; the next word is taken whatever its count.
    unsigned ResetReadBuffer() override;

    // Since Start: words missing in the sequence, repeated words dropped,
    // words rejected (parity, SSM), bytes dropped because the buffer was full.
    uint64_t GetLostWords();
    uint64_t GetRepeatedWords();
    uint64_t GetRejectedWords();
    uint64_t GetDroppedBytes();

    // True when `word` has the stream's label and SDI. Caller holds the
    // device lock.
    bool IsStreamWord(const CKVX_HdwArinc429Message& word) const;
    // The stream's label. Caller holds the device lock.
    uint8_t GetStreamLabel() const { return m_Label; }

protected:
    // Driver's receive path, caller holds the device lock: checks a word
    // received at `eventTime` and appends its bytes while the service runs.
    // True when the word was the stream's.
    bool AppendWord(const CKVX_HdwArinc429Message& word, uint64_t eventTime);

    CByteBuffer Bytes;
    uint64_t m_Lost = 0;
    uint64_t m_Repeated = 0;
    uint64_t m_Rejected = 0;
    bool m_Synced = false;
    uint8_t m_LastSequence = 0;
    uint8_t m_Label = 0xA0;
    uint8_t m_Sdi = 0;
    uint8_t m_ParityMode = 0;
};
