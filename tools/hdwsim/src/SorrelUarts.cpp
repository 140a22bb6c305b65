#include "SorrelUarts.h"

#include "LittleEndian.h"

#include <algorithm>

namespace hdwsim {

namespace {

constexpr uint16_t PortTypeUart = 1;
constexpr uint32_t StatusDone = 0, StatusBadSettings = 2, StatusNoPort = 10;
constexpr uint32_t ClockRate = 921600;

bool NotBefore(uint32_t a, uint32_t b)
{
    return static_cast<int32_t>(a - b) >= 0;
}

std::vector<uint8_t> Words(std::initializer_list<uint32_t> words)
{
    std::vector<uint8_t> out(words.size() * 4);
    size_t at = 0;
    for (uint32_t w : words) {
        le::Put32(&out[at], w);
        at += 4;
    }
    return out;
}

} // namespace

bool SorrelUarts::Parse(const uint8_t* p, size_t size, Line& line)
{
    if (size < 12)
        return false;
    line.BaudRate = le::Get32(p);
    line.DataBits = p[4];
    line.Parity = p[5];
    line.StopBits = p[6];
    line.Flow = p[7];
    line.GatherUs = static_cast<uint16_t>(le::Get16(p + 8));
    return line.BaudRate >= 300 && line.BaudRate <= ClockRate && ClockRate % line.BaudRate == 0 && line.DataBits >= 5 &&
        line.DataBits <= 8 && line.Parity <= 4 && (line.StopBits == 0 || line.StopBits == 2) &&
        (line.Flow == 0 || line.Flow == 0x02) && line.GatherUs >= 100 && line.GatherUs <= 10000;
}

uint64_t SorrelUarts::CharNs(const Uart& u) const
{
    const Line& l = u.Settings;
    const uint64_t bits = 1u + l.DataBits + (l.Parity ? 1u : 0u) + (l.StopBits == 2 ? 2u : 1u);
    return std::max<uint64_t>(1, bits * 1'000'000'000ull / (uint64_t(l.BaudRate) * m_Pace));
}

void SorrelUarts::Emit(unsigned channel, uint32_t code, uint32_t number, const uint8_t* payload, size_t size,
    uint64_t nowNs, const Sender& send)
{
    send(static_cast<uint16_t>(channel), code, number, payload, size);
    ++m_Counters.PortPacketsOut;
    if (channel < Channels)
        m_Uarts[channel].LastSentNs = nowNs;
}

void SorrelUarts::Reply(uint16_t channel, uint32_t code, const std::vector<uint8_t>& payload, const Sender& send)
{
    const uint32_t number = channel < Channels ? m_Uarts[channel].Next : 0;
    send(channel, code, number, payload.data(), payload.size());
    ++m_Counters.PortPacketsOut;
}

void SorrelUarts::OnPortPacket(
    const hoe::Header& h, const uint8_t* payload, size_t size, uint64_t nowNs, const Sender& send)
{
    if (m_DropHost > 0) {
        --m_DropHost;
        ++m_Counters.HostPacketsIgnored;
        return;
    }
    ++m_Counters.PortPacketsIn;
    const bool request = h.Code != hoe::DataBuf && h.Code != hoe::DataBufReply && h.Code != hoe::KeepAlive;
    if (h.PortType != PortTypeUart || h.Channel >= Channels) {
        if (request)
            Reply(h.Channel, h.Code + 1, Words({StatusNoPort}), send);
        return;
    }
    Uart& u = m_Uarts[h.Channel];
    switch (h.Code) {
    case hoe::OpenPort: {
        Line line;
        if (!Parse(payload, size, line)) {
            Reply(h.Channel, hoe::OpenPortReply, Words({StatusBadSettings}), send);
            return;
        }
        // Opens, or re-opens: settings applied, buffers empty, numbering from 0.
        u = Uart{};
        u.Open = true;
        u.Settings = line;
        u.LastSentNs = nowNs;
        Reply(h.Channel, hoe::OpenPortReply, Words({StatusDone}), send);
        return;
    }
    case hoe::ClosePort:
        u.Open = false;
        u.Tx.clear();
        u.Rx.clear();
        u.Unacked.clear();
        u.UnackedBytes = 0;
        Reply(h.Channel, hoe::ClosePortReply, Words({StatusDone}), send);
        return;
    case hoe::KeepAlive: return;
    default: break;
    }
    if (!u.Open) {
        if (request)
            Reply(h.Channel, h.Code + 1, Words({StatusNoPort}), send);
        return; // Data buffers of a closed port: dropped, not acknowledged
    }
    switch (h.Code) {
    case hoe::CfgPort: {
        Line line;
        const bool ok = Parse(payload, size, line);
        if (ok)
            u.Settings = line;
        Reply(h.Channel, hoe::CfgPortReply, Words({ok ? StatusDone : StatusBadSettings}), send);
        return;
    }
    case hoe::DataBuf: TakeData(h.Channel, h, payload, size, nowNs, send); return;
    case hoe::DataBufReply:
        while (!u.Unacked.empty() && NotBefore(h.PacketNumber, u.Unacked.front().Number)) {
            u.UnackedBytes -= u.Unacked.front().Data.size();
            u.Unacked.pop_front();
        }
        return;
    case hoe::Cctx: {
        const Line& l = u.Settings;
        std::vector<uint8_t> r = Words({StatusDone, 1u | (u.BreakSeen ? 4u : 0u), l.BaudRate, 0, 0, 0});
        r[12] = l.DataBits;
        r[13] = l.Parity;
        r[14] = l.StopBits;
        r[15] = l.Flow;
        le::Put16(&r[16], l.GatherUs);
        le::Put16(&r[20], u.FramingErrors);
        le::Put16(&r[22], u.ParityErrors);
        Reply(h.Channel, hoe::CctxReply, r, send);
        return;
    }
    case hoe::Dctx:
        Reply(h.Channel, hoe::DctxReply,
            Words({StatusDone, u.Accepted, u.OnLine, uint32_t(BufferBytes - u.Tx.size()), u.Received, u.Dropped,
                u.HostExpected, u.Next}),
            send);
        return;
    case hoe::RstTx: {
        const uint32_t dropped = uint32_t(u.Tx.size());
        u.Tx.clear();
        u.HostExpected += NumberJump;
        Reply(h.Channel, hoe::RstTxReply, Words({StatusDone, dropped, u.HostExpected}), send);
        return;
    }
    case hoe::RstRx: {
        const uint32_t dropped = uint32_t(u.Rx.size() + u.UnackedBytes);
        u.Rx.clear();
        u.Unacked.clear();
        u.UnackedBytes = 0;
        u.Next += NumberJump;
        Reply(h.Channel, hoe::RstRxReply, Words({StatusDone, dropped, u.Next}), send);
        return;
    }
    default:
        if (request)
            Reply(h.Channel, h.Code + 1, Words({StatusNoPort}), send);
    }
}

void SorrelUarts::TakeData(
    uint16_t channel, const hoe::Header& h, const uint8_t* payload, size_t size, uint64_t nowNs, const Sender& send)
{
    Uart& u = m_Uarts[channel];
    if (size == 0 || size > MaxData)
        return;
    if (h.PacketNumber == u.HostExpected) {
        if (u.Tx.size() + size > BufferBytes)
            return; // no room: not acknowledged, the host sends it again
        if (u.Tx.empty())
            u.LineNs = std::max(u.LineNs, nowNs);
        u.Tx.insert(u.Tx.end(), payload, payload + size);
        u.Accepted += uint32_t(size);
        ++u.HostExpected;
    } else if (NotBefore(h.PacketNumber, u.HostExpected)) {
        return; // ahead of the expected one: dropped
    }
    Acknowledge(channel, h.PacketNumber, nowNs, send);
}

void SorrelUarts::Acknowledge(unsigned channel, uint32_t number, uint64_t nowNs, const Sender& send)
{
    Uart& u = m_Uarts[channel];
    const uint32_t free = uint32_t(BufferBytes - u.Tx.size());
    u.LowFree = free < BufferBytes / 2;
    const std::vector<uint8_t> payload = Words({free});
    Emit(channel, hoe::DataBufReply, number, payload.data(), payload.size(), nowNs, send);
}

void SorrelUarts::RunLine(unsigned channel, uint64_t nowNs, const Sender& send)
{
    Uart& u = m_Uarts[channel];
    if (u.Tx.empty() || nowNs < u.LineNs)
        return;
    const uint64_t charNs = CharNs(u);
    const size_t n = std::min<size_t>(u.Tx.size(), (nowNs - u.LineNs) / charNs);
    if (n == 0)
        return;
    Uart& peer = m_Uarts[channel ^ 1u];
    const bool heard = peer.Open && peer.Settings.BaudRate == u.Settings.BaudRate &&
        peer.Settings.DataBits == u.Settings.DataBits && peer.Settings.Parity == u.Settings.Parity &&
        peer.Settings.StopBits == u.Settings.StopBits;
    if (peer.Open && !heard) {
        peer.FramingErrors = static_cast<uint16_t>(peer.FramingErrors + n);
        m_Counters.UartFramingErrors[channel ^ 1u] += n;
    } else if (heard) {
        const size_t room = BufferBytes - std::min(BufferBytes, peer.Rx.size() + peer.UnackedBytes);
        const size_t taken = std::min(n, room);
        if (taken && peer.Rx.empty())
            peer.RxFirstNs = u.LineNs + charNs * taken;
        peer.Rx.insert(peer.Rx.end(), u.Tx.begin(), u.Tx.begin() + std::ptrdiff_t(taken));
        peer.Received += uint32_t(taken);
        peer.Dropped += uint32_t(n - taken);
        m_Counters.UartReceived[channel ^ 1u] += taken;
        m_Counters.UartRxDropped[channel ^ 1u] += n - taken;
    }
    u.Tx.erase(u.Tx.begin(), u.Tx.begin() + std::ptrdiff_t(n));
    u.OnLine += uint32_t(n);
    m_Counters.UartTransmitted[channel] += n;
    u.LineNs += n * charNs;
    if (u.LowFree && BufferBytes - u.Tx.size() >= BufferBytes / 2)
        Acknowledge(channel, u.HostExpected - 1, nowNs, send);
}

void SorrelUarts::SendReceived(unsigned channel, uint64_t nowNs, const Sender& send)
{
    Uart& u = m_Uarts[channel];
    // Go-back-N: the oldest unacknowledged and every one after it.
    if (!u.Unacked.empty() && nowNs - u.Unacked.front().SentNs >= ResendNs) {
        for (Sent& s : u.Unacked) {
            Emit(channel, hoe::DataBuf, s.Number, s.Data.data(), s.Data.size(), nowNs, send);
            s.SentNs = nowNs;
            ++m_Counters.PortDataResends;
        }
    }
    const uint64_t gatherNs = uint64_t(u.Settings.GatherUs) * 1000;
    while (!u.Rx.empty() && u.Unacked.size() < Window && (u.Rx.size() >= MaxData || nowNs >= u.RxFirstNs + gatherNs)) {
        Sent s;
        s.Number = u.Next++;
        const size_t n = std::min(MaxData, u.Rx.size());
        s.Data.assign(u.Rx.begin(), u.Rx.begin() + std::ptrdiff_t(n));
        u.Rx.erase(u.Rx.begin(), u.Rx.begin() + std::ptrdiff_t(n));
        s.SentNs = nowNs;
        Emit(channel, hoe::DataBuf, s.Number, s.Data.data(), s.Data.size(), nowNs, send);
        u.UnackedBytes += n;
        u.Unacked.push_back(std::move(s));
        u.RxFirstNs = nowNs;
    }
}

void SorrelUarts::Advance(uint64_t nowNs, const Sender& send)
{
    for (unsigned c = 0; c < Channels; ++c)
        if (m_Uarts[c].Open)
            RunLine(c, nowNs, send);
    for (unsigned c = 0; c < Channels; ++c) {
        Uart& u = m_Uarts[c];
        if (!u.Open)
            continue;
        SendReceived(c, nowNs, send);
        if (nowNs - u.LastSentNs >= KeepAliveNs)
            Emit(c, hoe::KeepAlive, u.Next, nullptr, 0, nowNs, send);
    }
}

uint64_t SorrelUarts::NextWakeNs() const
{
    uint64_t wake = ~uint64_t(0);
    for (const Uart& u : m_Uarts) {
        if (!u.Open)
            continue;
        wake = std::min(wake, u.LastSentNs + KeepAliveNs);
        if (!u.Tx.empty())
            wake = std::min(wake, u.LineNs + CharNs(u));
        if (!u.Unacked.empty())
            wake = std::min(wake, u.Unacked.front().SentNs + ResendNs);
        if (!u.Rx.empty() && u.Unacked.size() < Window)
            wake = std::min(wake, u.RxFirstNs + uint64_t(u.Settings.GatherUs) * 1000);
    }
    return wake;
}

void SorrelUarts::CloseAll()
{
    for (Uart& u : m_Uarts)
        u = Uart{};
}

bool SorrelUarts::InjectBreak(unsigned channel)
{
    if (channel >= Channels)
        return false;
    m_Uarts[channel].BreakSeen = true;
    return true;
}

} // namespace hdwsim
