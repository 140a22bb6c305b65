#pragma once
// Byte stream received in CAN frames (service type 2 on a CAN port). The
// application reads it with the calls of every byte input (Read,
// GetReadBufferBytes, ResetReadBuffer), as it would a UART.
//
// Framing (shared with CKVX_HdwCanByteOutBufferService):
// - the stream is carried by the data frames of one identifier,
//   CParameters::Identifier, 11-bit when CParameters::Extended is 0, 29-bit
//   when it is 1;
// - each of these frames carries min(Dlc, 8) bytes of the stream, first byte
//   first; the frames follow each other in stream order, so the stream is the
//   concatenation of their payloads; a frame with Dlc 0 carries nothing;
// - remote frames and frames of any other identifier are not part of the
//   stream and are left to the channel's frame services.
// The CAN input buffer service of the same channel still receives every
// frame, the stream's included: it is the channel's record of the bus.
//
// Each byte keeps the time stamp of the frame that carried it (ReadTimed).
// The unit driver hands every received frame to AppendFrame under the device
// lock; when BufferSize bytes wait (0 = no bound), the oldest are dropped and
// counted (GetDroppedCount).
//
// Lock rule: the buffer and the parameters only under the device lock.

#include <HdwLib/bus/HdwByteInBufferService.h>
#include <HdwLib/bus/HdwCanMessage.h>

#include <cstdint>
#include <deque>

class HDWLIB_EXPORT CKVX_HdwCanByteInBufferService : public CKVX_HdwByteInBufferService {
public:
    class HDWLIB_EXPORT CParameters : public CKVX_HdwByteInBufferService::CParameters {
    public:
        CParameters() = default;
        CParameters(const CParameters&) = default;
        CParameters(CParameters&&) = default;
        CParameters& operator=(const CParameters&) = default;
        CParameters& operator=(CParameters&&) = default;
        ~CParameters() override;

        uint32_t Identifier = 0x100; // identifier of the stream's frames, right-aligned
        uint8_t Extended = 0; // 1: 29-bit identifier; 0: 11-bit
    };

    explicit CKVX_HdwCanByteInBufferService(CKVX_HdwObject* port);
    ~CKVX_HdwCanByteInBufferService() override;

    // Empty the buffer and set the run state (1 / 0).
    unsigned Start() override;
    unsigned Stop() override;

    // The base's parameter class sets BufferSize only.
    unsigned GetParameters(CKVX_HdwByteInBufferService::CParameters* params) override;
    unsigned SetParameters(CKVX_HdwByteInBufferService::CParameters* params) override;
    using CKVX_HdwByteInBufferService::GetParameters;
    using CKVX_HdwByteInBufferService::SetParameters;
    // 2 for an identifier wider than its format or Extended other than 0 / 1.
    virtual unsigned GetParameters(CParameters* params);
    virtual unsigned SetParameters(CParameters* params);

    // readCount 0, then 29 stopped, 15 failed, 2 no array for a non-zero
    // count; otherwise up to maxCount bytes from the head of the stream.
    unsigned Read(unsigned char* bytes, unsigned int maxCount, unsigned int& readCount) override;
    unsigned GetReadBufferBytes(unsigned int& count) override;
    unsigned ResetReadBuffer() override;
    // As Read; timeStamps (may be null) receives each byte's frame time.
    virtual unsigned ReadTimed(
        unsigned char* bytes, uint64_t* timeStamps, unsigned int maxCount, unsigned int& readCount);

    // True when `frame` belongs to the stream. Caller holds the device lock.
    bool IsStreamFrame(const CKVX_HdwCanMessage& frame) const;

protected:
    // Driver's receive path, caller holds the device lock: appends the bytes
    // of a stream frame while the service runs. True when the frame was the
    // stream's.
    bool AppendFrame(const CKVX_HdwCanMessage& frame, uint64_t eventTime);

    // One received frame's bytes, First..Count-1 still unread.
    struct SChunk {
        uint64_t Time = 0;
        uint8_t First = 0;
        uint8_t Count = 0;
        uint8_t Data[8] = {};
    };

    std::deque<SChunk> m_Chunks;
    uint64_t m_Bytes = 0; // unread bytes in m_Chunks
    uint32_t Identifier = 0x100;
    uint8_t Extended = 0;
};
