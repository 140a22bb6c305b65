#pragma once
// The six UARTs of an emulated Sorrel, reached with the HOE port packets
// (port type 1, channel 0-5). UART 0 is wired to 1, 2 to 3, 4 to 5, both
// ways; a character takes (1 + data bits + parity bit + stop bits) bit times
// at the sender's rate (divided by the pace factor), and ends whose settings
// differ receive it as a framing error. Each UART has a 16-KiB transmit and
// a 16-KiB receive buffer; received bytes go to the host in Data buffers of
// at most 1024 bytes once 1024 wait or the gathering time after the first,
// at most 8 unacknowledged, resent (go-back-N) after 50 ms. An
// acknowledgement that reported less than half the transmit buffer free is
// repeated, with the new count, once half is free again: the host, which
// sends only against reported room, would otherwise wait for it forever.

#include <hdwsim/Counters.h>

#include "HoePacket.h"
#include "UdpEndpoint.h"

#include <array>
#include <cstdint>
#include <deque>
#include <functional>
#include <vector>

namespace hdwsim {

class SorrelUarts {
public:
    static constexpr unsigned Channels = 6;
    static constexpr size_t BufferBytes = 16384;
    static constexpr size_t MaxData = 1024;
    static constexpr unsigned Window = 8;
    static constexpr uint64_t ResendNs = 50'000'000;
    static constexpr uint64_t KeepAliveNs = 250'000'000;
    static constexpr uint32_t NumberJump = 65536;

    // Sends one port packet of the session: channel, code, number, payload.
    using Sender = std::function<void(uint16_t, uint32_t, uint32_t, const uint8_t*, size_t)>;

    SorrelUarts(Counters& counters, unsigned paceFactor) : m_Counters(counters), m_Pace(paceFactor ? paceFactor : 1) {}

    // A port packet from the session's host.
    void OnPortPacket(const hoe::Header& h, const uint8_t* payload, size_t size, uint64_t nowNs, const Sender& send);
    // The lines, the gathering, resends and keep-alives up to now.
    void Advance(uint64_t nowNs, const Sender& send);
    uint64_t NextWakeNs() const;
    // The session ended: every port closes.
    void CloseAll();

    // Fault injection: the next n host port packets are ignored.
    void DropHostPackets(unsigned packets) { m_DropHost += packets; }
    // The channel's receiver sees a break (Cctx flag bit 2).
    bool InjectBreak(unsigned channel);

private:
    struct Line {
        uint32_t BaudRate = 9600;
        uint8_t DataBits = 8, Parity = 0, StopBits = 0, Flow = 0;
        uint16_t GatherUs = 2000;
        bool operator==(const Line&) const = default;
    };
    struct Sent {
        uint32_t Number = 0;
        std::vector<uint8_t> Data;
        uint64_t SentNs = 0;
    };
    struct Uart {
        bool Open = false;
        Line Settings;
        uint32_t HostExpected = 0;
        std::deque<uint8_t> Tx;
        uint64_t LineNs = 0; // the end of the character on the line
        std::deque<uint8_t> Rx;
        uint64_t RxFirstNs = 0;
        std::deque<Sent> Unacked;
        size_t UnackedBytes = 0;
        uint32_t Next = 0;
        uint64_t LastSentNs = 0;
        bool LowFree = false; // the latest acknowledgement reported less than half free
        bool BreakSeen = false;
        uint16_t FramingErrors = 0, ParityErrors = 0;
        uint32_t Accepted = 0, OnLine = 0, Received = 0, Dropped = 0;
    };

    static bool Parse(const uint8_t* payload, size_t size, Line& line);
    uint64_t CharNs(const Uart& u) const;
    void Reply(uint16_t channel, uint32_t code, const std::vector<uint8_t>& payload, const Sender& send);
    void TakeData(uint16_t channel, const hoe::Header& h, const uint8_t* payload, size_t size, uint64_t nowNs,
        const Sender& send);
    void RunLine(unsigned channel, uint64_t nowNs, const Sender& send);
    void Acknowledge(unsigned channel, uint32_t number, uint64_t nowNs, const Sender& send);
    void SendReceived(unsigned channel, uint64_t nowNs, const Sender& send);
    void Emit(unsigned channel, uint32_t code, uint32_t number, const uint8_t* payload, size_t size, uint64_t nowNs,
        const Sender& send);

    Counters& m_Counters;
    unsigned m_Pace;
    std::array<Uart, Channels> m_Uarts;
    unsigned m_DropHost = 0;
};

// The UARTs behind the session of a UDP endpoint.
class SorrelPortHandler : public PortPacketHandler {
public:
    SorrelPortHandler(UdpEndpoint& udp, Counters& counters, unsigned paceFactor)
        : Uarts(counters, paceFactor),
          m_Udp(udp),
          m_Counters(counters)
    {}
    void OnPortPacket(const hoe::Header& h, const uint8_t* payload, size_t size, uint64_t nowNs) override
    {
        Uarts.OnPortPacket(h, payload, size, nowNs, Sender());
    }
    void OnSessionEnd() override { Uarts.CloseAll(); }
    void Advance(uint64_t nowNs) { Uarts.Advance(nowNs, Sender()); }

    SorrelUarts Uarts;

private:
    SorrelUarts::Sender Sender()
    {
        return [this](uint16_t channel, uint32_t code, uint32_t number, const uint8_t* payload, size_t size) {
            m_Udp.SendPortPacket(1, channel, code, number, payload, size, m_Counters);
        };
    }

    UdpEndpoint& m_Udp;
    Counters& m_Counters;
};

} // namespace hdwsim
