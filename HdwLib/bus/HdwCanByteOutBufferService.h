#pragma once
// Byte stream sent in CAN frames (service type 3 on a CAN port). The
// application writes it with the calls of every byte output (Write,
// GetBytesToBeWritten, ResetWriteBuffer), as it would on a UART.
//
// Framing is that of CKVX_HdwCanByteInBufferService: the queued bytes leave
// in data frames of CParameters::Identifier (11-bit or 29-bit by
// CParameters::Extended), in order, each carrying up to 8 of them (Dlc =
// bytes carried); a frame is full whenever 8 bytes wait, and the last one
// carries what is left.
//
// Flow: the unit driver builds frames with BuildFrames, as many as the
// unit's transmit FIFO still takes, and commits what it pushed with
// CommitFrames; a committed frame counts as in flight until the driver sees
// its transmit confirmation (ConfirmFrame). Bytes wait here meanwhile, so a
// large Write loses nothing.
//
// Lock rule: the buffers and the parameters only under the device lock.

#include <HdwLib/bus/HdwByteOutBufferService.h>
#include <HdwLib/bus/HdwCanMessage.h>

#include <cstdint>
#include <deque>

class HDWLIB_EXPORT CKVX_HdwCanByteOutBufferService : public CKVX_HdwByteOutBufferService {
public:
    class HDWLIB_EXPORT CParameters : public CKVX_HdwByteOutBufferService::CParameters {
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

    explicit CKVX_HdwCanByteOutBufferService(CKVX_HdwObject* port);
    ~CKVX_HdwCanByteOutBufferService() override;

    // Empty both buffers and set the run state (1 / 0).
    unsigned Start() override;
    unsigned Stop() override;

    unsigned GetParameters(CKVX_HdwByteOutBufferService::CParameters* params) override;
    unsigned SetParameters(CKVX_HdwByteOutBufferService::CParameters* params) override;
    using CKVX_HdwByteOutBufferService::GetParameters;
    using CKVX_HdwByteOutBufferService::SetParameters;
    // 2 for an identifier wider than its format or Extended other than 0 / 1.
    virtual unsigned GetParameters(CParameters* params);
    virtual unsigned SetParameters(CParameters* params);

    // Queues the bytes (option 0; other options answer 2): 29 stopped, 15
    // failed, 2 when they do not fit BufferSize (0 = no bound).
    unsigned Write(unsigned char* bytes, unsigned int count, unsigned int option) override;
    // Bytes queued plus bytes in frames not yet confirmed.
    unsigned GetBytesToBeWritten(unsigned int& count) override;
    // Drops the queued bytes; frames already pushed stay in flight.
    unsigned ResetWriteBuffer() override;

    // ---- driver side (caller holds the device lock) ----
    // Fills up to maxFrames frames from the head of the queue without taking
    // the bytes; returns how many.
    unsigned BuildFrames(CKVX_HdwCanMessage* frames, unsigned maxFrames) const;
    // Takes the bytes of the first `count` frames BuildFrames made; they are
    // in flight from now on.
    void CommitFrames(unsigned count);
    // A transmit confirmation: true when `frame` is the stream's, which
    // settles the oldest frame in flight.
    bool ConfirmFrame(const CKVX_HdwCanMessage& frame);
    bool IsStreamFrame(const CKVX_HdwCanMessage& frame) const;
    unsigned GetFramesInFlight() const { return unsigned(m_InFlight.size()); }
    // The frames in flight will never be confirmed (the unit was lost):
    // forgets them and returns the bytes they carried.
    uint64_t ForgetFramesInFlight();

protected:
    std::deque<uint8_t> m_Queue;
    std::deque<uint8_t> m_InFlight; // bytes carried by each frame in flight, oldest first
    uint32_t Identifier = 0x100;
    uint8_t Extended = 0;
};
