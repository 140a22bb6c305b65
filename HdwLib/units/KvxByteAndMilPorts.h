#pragma once
// The byte-stream services over CAN and the MIL-STD-1553 port of the
// command-protocol units (nested in CKVX_HdwKvxCommandDevice). Included by
// KvxCommandDevice.h, after KvxCommandPorts.h.
//
// Byte streams over CAN (units whose profile sets CanByteServices): the
// framing is that of the generic classes (one identifier per stream, up to 8
// bytes per data frame, in order). The input takes the stream's frames from
// the CAN receive events; the output pushes its frames with the CAN push
// command. Both run beside the frame services of the same channel: the
// frame input still receives every frame, and the unit's transmit FIFO (64
// frames) is shared, so each output service counts what the other has in
// flight before it pushes. The stream's identifier belongs to the stream:
// frames of it sent by the frame output would be taken for stream frames.
//
// MIL-STD-1553 port: opening sends nothing to the unit (the channel's
// configuration command describes the bus controller's or remote terminal's
// memory, which those services will send); the port forwards the unit's
// MIL-STD-1553 events of its channel to its signal service as
// HDW_SIGNAL_MIL1553_MESSAGE signals:
//   - transfer completed (kind 1): Value = transfer identifier (low 16 bits)
//     | first status word << 16; Aux = the transfer's error/status flags;
//   - remote-terminal access (kind 2): Value = the command word rebuilt from
//     the record (terminal address << 11 | transmit << 10 | subaddress << 5 |
//     word count mod 32); Aux = 3-bit field | flag << 3 | 5-bit field << 8;
//   - other kinds: Value 0, Aux 0.
//   In every case bits 24..31 of Aux hold the kind.

// The template these classes are nested in (which includes this file at its end).
#include <HdwLib/units/KvxCommandDevice.h>

#include <HdwLib/bus/HdwCanByteInBufferService.h>
#include <HdwLib/bus/HdwCanByteOutBufferService.h>
#include <HdwLib/bus/HdwMilStd1553Port.h>

#include <cstdint>
#include <vector>

template <class B>
class HDWLIB_EXPORT CKVX_HdwKvxCommandDevice<B>::CCanByteInBufferService : public CKVX_HdwCanByteInBufferService {
public:
    explicit CCanByteInBufferService(CKVX_HdwObject* port);
    ~CCanByteInBufferService() override;

    // Makes sure the channel's controller is on.
    unsigned Start() override;
    unsigned Stop() override;
    // Stream frames of CAN receive events; a critical failure fails the service.
    unsigned ProcessEvent(CKVX_HdwEvent* event) override;
};

template <class B>
class HDWLIB_EXPORT CKVX_HdwKvxCommandDevice<B>::CCanByteOutBufferService : public CKVX_HdwCanByteOutBufferService {
public:
    explicit CCanByteOutBufferService(CKVX_HdwObject* port);
    ~CCanByteOutBufferService() override;

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
};

template <class B>
class HDWLIB_EXPORT CKVX_HdwKvxCommandDevice<B>::CMilStd1553Port : public CKVX_HdwMilStd1553Port {
public:
    CMilStd1553Port(CKVX_HdwObject* device, unsigned deviceInstance, const CKVX_String& channelId);
    ~CMilStd1553Port() override;

    unsigned Open(CKVX_HdwPort::CParameters* params) override;
    unsigned OnOpening(CKVX_HdwPort::CParameters* params) override;
    unsigned Close() override;
    unsigned EnableService(unsigned serviceType, CKVX_HdwService** service,
                           CKVX_HdwService::CParameters* params) override;
    unsigned HdwTimerHandler(uint64_t ticks) override;
    // MIL-STD-1553 events become signals; every event then goes to the services.
    unsigned ProcessEvent(CKVX_HdwEvent* event) override;

    unsigned GetChannel() const { return m_Channel; }
    // MIL-STD-1553 events of this channel since it was opened.
    uint64_t GetMessageCount();

protected:
    unsigned m_Channel;
    uint64_t m_Messages = 0;  // under the device lock
};
