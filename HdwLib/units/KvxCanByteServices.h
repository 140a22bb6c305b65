#pragma once
// Byte streams over CAN of a command-protocol unit (units whose profile sets
// CanByteServices). The framing is that of the generic classes (one
// identifier per stream, up to 8 bytes per data frame, in order). The input
// takes the stream's frames from the CAN receive events; the output pushes
// its frames with the CAN push command. Both run beside the frame services
// of the same channel: the frame input still receives every frame, and the
// unit's transmit FIFO (64 frames) is shared, so each output service counts
// what the other has in flight before it pushes. The stream's identifier
// belongs to the stream: frames of it sent by the frame output would be
// taken for stream frames.

#include <HdwLib/bus/HdwCanByteInBufferService.h>
#include <HdwLib/bus/HdwCanByteOutBufferService.h>
#include <HdwLib/units/KvxCommandUnit.h>

#include <cstdint>
#include <vector>

class HDWLIB_EXPORT CKVX_HdwKvxCanByteInBufferService : public CKVX_HdwCanByteInBufferService {
public:
    explicit CKVX_HdwKvxCanByteInBufferService(CKVX_HdwObject* port);
    ~CKVX_HdwKvxCanByteInBufferService() override;

    // Makes sure the channel's controller is on.
    unsigned Start() override;
    unsigned Stop() override;
    // Stream frames of CAN receive events; a critical failure fails the service.
    unsigned ProcessEvent(CKVX_HdwEvent* event) override;
};

class HDWLIB_EXPORT CKVX_HdwKvxCanByteOutBufferService : public CKVX_HdwCanByteOutBufferService {
public:
    explicit CKVX_HdwKvxCanByteOutBufferService(CKVX_HdwObject* port);
    ~CKVX_HdwKvxCanByteOutBufferService() override;

    unsigned Start() override;
    unsigned Stop() override;
    // CAN transmit events of the stream settle its frames in flight.
    unsigned ProcessEvent(CKVX_HdwEvent* event) override;
    unsigned HdwTimerHandler(uint64_t ticks) override;

    // Pushes queued bytes as frames, keeping the unit's FIFO (shared with
    // the frame output) at 64 frames at most.
    unsigned SendImmediate();

    // For the frame output of the same channel (caller holds the lock): the
    // stream's frames in the unit's FIFO, and whether a sent frame is the
    // stream's (0 and false without a byte output on `port`).
    static unsigned FramesInFlightOn(CKVX_HdwPort* port);
    static bool IsStreamFrameOn(CKVX_HdwPort* port, const CKVX_HdwCanMessage& frame);

private:
    // The frames of one push, kept from tick to tick rather than built and
    // destroyed in each.
    std::vector<CKVX_HdwCanMessage> m_Batch;
    // The port it was enabled on (null when that is no unit CAN port).
    CKVX_HdwKvxCanPort* m_UnitPort;
};
