#pragma once
// One Sorrel UART as the host side keeps it between the HOE receive thread
// and the tick: the bytes taken from the unit and not yet moved into the
// byte input service, the latest acknowledgement of host data, and the
// replies to requests. Everything here is guarded by Mutex (the instance's
// receive lock); the receive thread never takes the device lock.

#include <HdwLib/bus/HdwUartPort.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <vector>

namespace hdw::units {

namespace sorrel {

constexpr unsigned PortTypeUart = 1;
constexpr unsigned Channels = 6;
constexpr unsigned MaxData = 1024; // bytes of one Data buffer
constexpr unsigned Window = 8; // Data buffers unacknowledged per direction
constexpr unsigned BufferBytes = 16384; // the unit's transmit and receive buffers
constexpr unsigned ResendMs = 50;
constexpr unsigned KeepAliveMs = 250;
constexpr unsigned RequestTries = 3;
// Data context reply: 8 words; the sixth counts received bytes the unit dropped.
constexpr unsigned DctxSize = 32;
constexpr unsigned DctxDroppedAt = 20;
constexpr unsigned RequestGapMs = 150;
constexpr unsigned RequestWaitMs = 500;
constexpr unsigned LineSettingsSize = 12;
constexpr uint16_t GatherUs = 2000;
constexpr uint32_t ClockRate = 921600; // 14.7456 MHz / 16
constexpr uint32_t NumberJump = 65536; // where numbering resumes after a reset

using Clock = std::chrono::steady_clock;

// The time stamp of the port's signals: microseconds of the steady clock.
inline uint64_t NowUs()
{
    return uint64_t(std::chrono::duration_cast<std::chrono::microseconds>(Clock::now().time_since_epoch()).count());
}

// True when the unit can run the line with these settings.
inline bool LineUsable(const CKVX_HdwUartPort::CParameters& p)
{
    using P = CKVX_HdwUartPort::CParameters;
    const bool rate = p.BaudRate >= 300 && p.BaudRate <= ClockRate && ClockRate % p.BaudRate == 0;
    const bool stop = p.StopBits == P::StopBitsOne || p.StopBits == P::StopBitsTwo;
    const bool flow = p.FlowControl == 0 || p.FlowControl == P::FlowRtsCts;
    return rate && p.DataBits >= 5 && p.DataBits <= 8 && p.Parity <= P::ParitySpace && stop && flow;
}

// The 12-byte line settings of Open port and Configure port.
inline void EncodeLine(const CKVX_HdwUartPort::CParameters& p, uint8_t out[LineSettingsSize])
{
    for (unsigned i = 0; i < 4; ++i)
        out[i] = static_cast<uint8_t>(p.BaudRate >> (8 * i));
    out[4] = p.DataBits;
    out[5] = p.Parity;
    out[6] = p.StopBits;
    out[7] = p.FlowControl;
    out[8] = static_cast<uint8_t>(GatherUs);
    out[9] = static_cast<uint8_t>(GatherUs >> 8);
    out[10] = 0;
    out[11] = 0;
}

inline uint32_t GetU32(const uint8_t* at)
{
    return uint32_t(at[0]) | uint32_t(at[1]) << 8 | uint32_t(at[2]) << 16 | uint32_t(at[3]) << 24;
}

// The status of a request's reply, or the request's own failure.
inline unsigned ReplyStatus(unsigned rc, const std::vector<uint8_t>& reply)
{
    if (rc != 0)
        return rc;
    return reply.size() >= 4 ? GetU32(reply.data()) : static_cast<unsigned>(HDW_ERR_LINK);
}

// a is after b in 32-bit wrapping numbering (or equal).
inline bool NotBefore(uint32_t a, uint32_t b)
{
    return static_cast<int32_t>(a - b) >= 0;
}

} // namespace sorrel

struct CSorrelReply {
    bool Got = false;
    std::vector<uint8_t> Payload;
};

struct CSorrelChannel {
    std::mutex Mutex;
    std::condition_variable Changed;

    // Receive side (unit -> host).
    bool Open = false; // Data buffers are taken
    uint32_t RxExpected = 0;
    bool RxResetPending = false; // a Reset receive side waits for its reply
    std::vector<uint8_t> RxBytes;
    uint64_t RxDuplicates = 0; // resent Data buffers acknowledged again

    // Acknowledgements of host data: the latest number and its free count.
    bool AckSeen = false;
    uint32_t AckNumber = 0;
    uint32_t AckFree = 0;

    // Replies by code: index code - 0xA0000000 (0..0x11).
    CSorrelReply Replies[0x12];

    uint32_t TxNext = 0; // the host's next data number, carried by its other packets
    sorrel::Clock::time_point LastHeard = sorrel::Clock::now();
    sorrel::Clock::time_point LastSent = sorrel::Clock::now();
    sorrel::Clock::time_point RxResetSent;
};

} // namespace hdw::units
