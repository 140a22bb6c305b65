#include "UnitEngineImpl.h"

#include <algorithm>

namespace hdwsim {
void UnitEngine::Impl::ProcessFrame(const uint8_t* p, size_t n, uint64_t nowNs)
{
    // The records must add up to the payload exactly, or the frame is refused whole.
    for (size_t pos = 0; pos < n;) {
        const size_t len = p[pos];
        if (len < 4 || pos + len > n) {
            ++Count.FramesMalformed;
            return;
        }
        pos += len;
    }
    for (size_t pos = 0; pos < n; pos += p[pos]) {
        const uint8_t* rec = p + pos;
        const size_t len = rec[0];
        ++Count.CommandsReceived;
        ++Count.CommandsByCode[rec[1] & 0x7F];
        if (CommandLog.size() == CommandLogSize)
            CommandLog.pop_front();
        CommandLog.push_back(rec[1] & 0x7F);
        LastCommandNs = nowNs;
        if (!Takes(rec[1] & 0x7F)) {
            ++Count.CommandsUnknown; // refused: not run, not echoed
            continue;
        }
        if (rec[1] & 0x80) {
            if (EchoEnabled) {
                uint8_t params[6];
                le::Put32(params, Clock(nowNs));
                params[4] = rec[2];
                params[5] = rec[3];
                Event(EventEcho, 0, params, sizeof params);
                ++Count.EchoesSent;
            } else {
                ++Count.EchoesSuppressed;
            }
        }
        if (!Execute(rec, len, nowNs))
            ++Count.CommandsUnknown;
    }
}

bool UnitEngine::Impl::Takes(unsigned code) const
{
    // A unit without ARINC 429 transmitters and CAN channels has no status
    // to report and does not know the request.
    if (code == CodeStatusRequest)
        return Model.Arinc429TxChannels > 0 || Model.CanChannels > 0;
    return true;
}

bool UnitEngine::Impl::Execute(const uint8_t* rec, size_t len, uint64_t nowNs)
{
    const unsigned code = rec[1] & 0x7F;
    const auto in = [code](unsigned base, unsigned count) { return code >= base && code < base + count; };

    if (code == CodeSession && len >= 5) {
        if (rec[4] & 1) {
            // A new session starts from a unit in its reset state.
            ++Count.SessionOpens;
            ResetChannels(nowNs);
            Masters.Reset();
            // Watchdog: bit 15 enables, bits 9..0 in units of 10 ms.
            const unsigned wd = len >= 7 ? le::Get16(rec + 5) : 0;
            WatchdogNs = (wd & 0x8000) ? uint64_t(wd & 0x3FF) * 10000000 : 0;
        } else {
            ++Count.SessionCloses;
        }
        return true;
    }
    if (bool taken = false; Model.DiscreteBanks > 0 && Discrete.Execute(code, rec, len, nowNs, taken))
        return taken;
    if (code == CodeStatusRequest && len >= 7) {
        StatusRequest(rec, nowNs);
        return true;
    }
    if (code == CodeKeepAlive && Model.KeepAlive) {
        ++Count.KeepAlives;
        return len == 5 && rec[4] == 0;
    }
    if (code == CodeSramWrite) {
        if (len < 8 || (len - 8) % 2 != 0 || Model.MilStd1553Channels == 0)
            return false;
        Mil.SramWrite(le::Get32(rec + 4), rec + 8, (len - 8) / 2);
        return true;
    }
    if (code == CodeA429LabelCtrl || code == CodeA429LabelReset)
        return A429LabelCommand(code, rec, len, nowNs);
    if (code == CodeA429Push) {
        const unsigned ch = rec[4];
        if (len != 10 || ch >= Model.Arinc429TxChannels)
            return false;
        A429Tx& t = Tx[ch];
        // Data for a label of the table; any other word goes to the FIFO.
        if (t.Labels[rec[5]].Defined)
            return A429LabelCommand(code, rec, len, nowNs);
        if (t.Fifo.size() >= A429FifoWords) {
            ++Count.A429FifoDropped[ch];
            return true;
        }
        if (t.Fifo.empty())
            t.BusFreeNs = std::max(t.BusFreeNs, nowNs); // an idle bus starts now
        t.Fifo.push_back(le::Get32(rec + 6));
        ++Count.A429Pushed[ch];
        Count.A429FifoPeak[ch] = std::max<uint64_t>(Count.A429FifoPeak[ch], t.Fifo.size());
        return true;
    }
    if (in(Model.A429TxConfigBase, Model.Arinc429TxChannels)) {
        if (len != 16)
            return false;
        A429Tx& t = Tx[code - Model.A429TxConfigBase];
        const bool wasEnabled = t.Enabled;
        t.Enabled = (rec[4] & 1) != 0;
        // Cycles missed while the transmitter was off are not made up.
        if (t.Enabled && !wasEnabled)
            for (A429Label& l : t.Labels)
                l.NextNs = std::max(l.NextNs, nowNs);
        t.HighSpeed = (rec[4] & 4) != 0;
        // Each half bit lasts divider + 1 clocks of 60 MHz; a word with its gap 36 bits.
        const uint64_t clocksPerBit = (le::Get16(rec + 8) & 0xFFF) + (le::Get16(rec + 10) & 0xFFF) + 2u;
        t.WordNs = 36 * clocksPerBit * 50 / 3;
        t.BusFreeNs = std::max(t.BusFreeNs, nowNs);
        return true;
    }
    if (in(Model.A429RxConfigBase, Model.Arinc429RxChannels)) {
        if (len != 37)
            return false;
        A429Rx& r = Rx[code - Model.A429RxConfigBase];
        r.Enabled = (rec[4] & 1) != 0;
        r.LowSpeed = (rec[4] & 0x10) != 0;
        std::copy(rec + 5, rec + 37, r.Filter.begin());
        return true;
    }
    if (code == CodeUartPush) {
        if (len < 9 || rec[4] >= Model.UartChannels)
            return false;
        UartPush(rec[4], rec, len, nowNs);
        return true;
    }
    if (in(CodeUartConfig, Model.UartChannels)) {
        if (len != 9)
            return false;
        Uart[code - CodeUartConfig].Enabled = (rec[4] & 1) != 0;
        return true;
    }
    if (in(Model.CanConfigBase, Model.CanChannels)) {
        if (len != 22)
            return false;
        CanChannel& c = Can[code - Model.CanConfigBase];
        c.Started = (rec[CanCfgFlags] & 1) != 0;
        const uint64_t quanta = rec[CanCfgSegment1] + rec[CanCfgSegment2] + 3u;
        c.ClocksPerBit = (2u * rec[CanCfgPrescaler] + 2u) * quanta;
        c.BusFreeNs = std::max(c.BusFreeNs, nowNs);
        return true;
    }
    if (in(Model.CanPushBase, Model.CanChannels)) {
        if (len != 17)
            return false;
        const unsigned ch = code - Model.CanPushBase;
        CanChannel& c = Can[ch];
        if (c.Fifo.size() >= CanFifoFrames) {
            ++Count.CanFifoDropped[ch];
            return true;
        }
        if (c.Fifo.empty())
            c.BusFreeNs = std::max(c.BusFreeNs, nowNs);
        std::array<uint8_t, CanFrameSize> frame;
        std::copy(rec + 4, rec + 17, frame.begin());
        c.Fifo.push_back(frame);
        ++Count.CanPushed[ch];
        return true;
    }
    if (in(CodeMilConfig, Model.MilStd1553Channels)) {
        if (len != 13)
            return false;
        Mil.Configure(code - CodeMilConfig, rec + 4, nowNs);
        return true;
    }
    if (Masters.Handles(code))
        return Masters.Execute(rec, len, nowNs);
    return false;
}

void UnitEngine::Impl::SendStatus(unsigned channel, unsigned kind, uint32_t word, uint64_t nowNs)
{
    uint8_t params[9];
    le::Put32(params, Clock(nowNs));
    params[4] = static_cast<uint8_t>(kind);
    le::Put32(params + 5, word);
    Event(EventStatus, channel, params, sizeof params);
    ++Count.StatusEventsSent;
}

void UnitEngine::Impl::StatusRequest(const uint8_t* rec, uint64_t nowNs)
{
    // Byte 5: one bit per ARINC 429 transmitter 0-7 (kind 1). Byte 6: bits
    // 0-1 the CAN channels' status (kind 2), bits 2-3 their transmit state
    // (kind 3), both answered with a kind-2 status word; a unit with more
    // than two CAN channels reads bit n as channel n. Bits of channels the
    // unit does not have are ignored.
    for (unsigned ch = 0; ch < Model.Arinc429TxChannels && ch < 8; ++ch)
        if (rec[5] & (1u << ch))
            SendStatus(ch, 1, static_cast<uint32_t>(Tx[ch].Fifo.size()), nowNs);
    for (unsigned bit = 0; bit < 8; ++bit) {
        const unsigned ch = Model.CanChannels > 2 ? bit : (bit < 4 ? bit & 1 : MaxChannels);
        if (!(rec[6] & (1u << bit)) || ch >= Model.CanChannels)
            continue;
        const CanChannel& c = Can[ch];
        const uint32_t fault = c.Started ? CanFault[ch] : 3;
        const uint32_t waiting = static_cast<uint32_t>(std::min<size_t>(c.Fifo.size(), 255));
        SendStatus(ch, 2, fault | (waiting << 8), nowNs);
    }
}

void UnitEngine::Impl::Advance(uint64_t nowNs)
{
    if (WatchdogNs && nowNs - LastCommandNs > WatchdogNs) {
        // The host went silent: the transmitters stop until a new session.
        for (A429Tx& t : Tx)
            t.Enabled = false;
        WatchdogNs = 0;
        ++Count.WatchdogExpiries;
    }
    for (unsigned ch = 0; ch < Model.Arinc429TxChannels; ++ch) {
        A429Tx& t = Tx[ch];
        while (t.Enabled && !t.Fifo.empty()) {
            uint64_t end = nowNs;
            if (Opts.Pacing) {
                end = t.BusFreeNs + t.WordNs;
                if (end > nowNs)
                    break;
            }
            t.BusFreeNs = end;
            const uint32_t word = t.Fifo.front();
            t.Fifo.pop_front();
            A429Deliver(ch, word, end);
        }
        A429SendLabels(ch, nowNs);
    }
    for (unsigned ch = 0; ch < Model.CanChannels; ++ch) {
        CanChannel& c = Can[ch];
        while (c.Started && !c.Fifo.empty()) {
            uint64_t end = nowNs;
            if (Opts.Pacing) {
                end = c.BusFreeNs + CanFrameBits(c.Fifo.front().data()) * c.ClocksPerBit * 50 / 3;
                if (end > nowNs)
                    break;
            }
            c.BusFreeNs = end;
            const std::array<uint8_t, CanFrameSize> frame = c.Fifo.front();
            c.Fifo.pop_front();
            CanDeliver(ch, frame, end);
        }
    }
    Mil.Advance(nowNs);
    Discrete.Advance(nowNs);
    Masters.Advance(nowNs, [&](unsigned type, unsigned sub, const std::vector<uint8_t>& body, uint64_t atNs) {
        std::vector<uint8_t> params(4 + body.size());
        le::Put32(params.data(), Clock(atNs));
        std::copy(body.begin(), body.end(), params.begin() + 4);
        Event(type, sub, params.data(), params.size());
    });
    Framer.Flush(nowNs, Count);
}

UnitEngine::UnitEngine(const UnitModel& model, const Options& options) : m(std::make_unique<Impl>(model, options)) {}

UnitEngine::~UnitEngine() = default;

const UnitModel& UnitEngine::Model() const
{
    return m->Model;
}

void UnitEngine::OnHostBytes(Link link, const uint8_t* data, size_t size, uint64_t nowNs)
{
    // Messages that started before these bytes arrived are not touched by them.
    m->Mil.Advance(nowNs);
    HostFrameParser::Stats stats;
    m->Parsers[link].Feed(
        data, size,
        [&](const uint8_t* payload, size_t n) {
            m->Count.LargestFramePayload = std::max<uint64_t>(m->Count.LargestFramePayload, n);
            m->ProcessFrame(payload, n, nowNs);
        },
        stats);
    m->Count.FramesReceived += stats.GoodFrames;
    m->Count.FramesBadCrc += stats.BadCrc;
    m->Count.BytesDiscarded += stats.Discarded;
    m->Advance(nowNs);
}

void UnitEngine::ResetLink(Link link)
{
    m->Parsers[link].Reset();
}

void UnitEngine::Advance(uint64_t nowNs)
{
    m->Advance(nowNs);
}

uint64_t UnitEngine::NextBusEventNs() const
{
    uint64_t next = m->WatchdogNs ? m->LastCommandNs + m->WatchdogNs + 1 : Never;
    next = std::min(next, m->Mil.NextEventNs());
    next = std::min(next, m->Masters.NextEventNs());
    for (unsigned ch = 0; ch < m->Model.Arinc429TxChannels; ++ch) {
        const A429Tx& t = m->Tx[ch];
        if (t.Enabled && !t.Fifo.empty())
            next = std::min(next, m->Opts.Pacing ? t.BusFreeNs + t.WordNs : 0);
        next = std::min(next, m->A429NextLabelNs(ch));
    }
    for (unsigned ch = 0; ch < m->Model.CanChannels; ++ch) {
        const CanChannel& c = m->Can[ch];
        if (c.Started && !c.Fifo.empty())
            next = std::min(
                next, m->Opts.Pacing ? c.BusFreeNs + CanFrameBits(c.Fifo.front().data()) * c.ClocksPerBit * 50 / 3 : 0);
    }
    return std::min(next, m->Discrete.NextEventNs());
}

size_t UnitEngine::TakeOutput(uint64_t nowNs, size_t maxBytes, std::vector<uint8_t>& out)
{
    return m->Framer.Take(nowNs, maxBytes, out, m->Count);
}

uint64_t UnitEngine::NextOutputNs() const
{
    return m->Framer.NextReadyNs();
}

void UnitEngine::DiscardOutput()
{
    m->Framer.Discard(m->Count);
}

uint32_t UnitEngine::ClockUs(uint64_t nowNs) const
{
    return m->Clock(nowNs);
}

void UnitEngine::SetEchoEnabled(bool enabled)
{
    m->EchoEnabled = enabled;
}

bool UnitEngine::InjectCriticalFailure(unsigned code, uint64_t nowNs)
{
    if (!m->Model.CriticalFailure)
        return false;
    uint8_t params[4];
    le::Put32(params, m->Clock(nowNs));
    m->Event(EventCriticalFailure, code & 7, params, sizeof params);
    ++m->Count.CriticalFailuresSent;
    m->Framer.Flush(nowNs, m->Count);
    return true;
}

bool UnitEngine::SetCanFault(unsigned channel, unsigned faultState, uint8_t errReg0, uint8_t errReg1)
{
    if (channel >= m->Model.CanChannels || faultState > 2)
        return false;
    m->CanFault[channel] = faultState | (uint32_t(errReg0) << 16) | (uint32_t(errReg1) << 24);
    return true;
}

bool UnitEngine::InjectMilStd1553Event(unsigned channel, const std::vector<uint8_t>& body, uint64_t nowNs)
{
    // A record is at most 255 bytes: type byte, time stamp, body.
    if (channel >= m->Model.MilStd1553Channels || body.empty() || body.size() > 255 - 5)
        return false;
    std::vector<uint8_t> params(4 + body.size());
    le::Put32(params.data(), m->Clock(nowNs));
    std::copy(body.begin(), body.end(), params.begin() + 4);
    m->Event(EventMil1553, channel, params.data(), params.size());
    m->Framer.Flush(nowNs, m->Count);
    return true;
}

bool UnitEngine::SetMilStd1553Fault(unsigned address, unsigned bus, MilStd1553Fault fault, unsigned transfers)
{
    return m->Model.MilStd1553Channels > 0 && m->Mil.SetFault(address, bus, fault, transfers);
}

uint16_t UnitEngine::MilStd1553SramWord(unsigned channel, unsigned address) const
{
    return m->Mil.SramWord(channel, address);
}

void UnitEngine::CorruptNextFrameCrc(unsigned frames)
{
    m->Framer.CorruptNextCrc(frames);
}
void UnitEngine::FlipNextA429Parity(unsigned words)
{
    m->A429ParityFaults = words;
}

bool UnitEngine::LoseNextA429Words(unsigned channel, unsigned words)
{
    if (channel >= m->Model.Arinc429RxChannels)
        return false;
    m->A429WireLosses[channel] = words;
    return true;
}

void UnitEngine::InsertStrayBytes(const std::vector<uint8_t>& bytes)
{
    m->Framer.InsertStray(bytes);
}

void UnitEngine::SetAnswerDelayMs(unsigned ms)
{
    m->Framer.SetDelayNs(uint64_t(ms) * 1000000);
}

bool UnitEngine::DriveInput(unsigned bank, uint32_t mask, uint32_t value, uint64_t nowNs)
{
    const bool ok = m->Discrete.DriveInput(bank, mask, value, nowNs);
    m->Framer.Flush(nowNs, m->Count);
    return ok;
}

bool UnitEngine::ReleaseInput(unsigned bank, uint32_t mask, uint64_t nowNs)
{
    const bool ok = m->Discrete.ReleaseInput(bank, mask, nowNs);
    m->Framer.Flush(nowNs, m->Count);
    return ok;
}

bool UnitEngine::BounceInput(unsigned bank, unsigned line, unsigned edges, unsigned spacingUs, uint64_t nowNs)
{
    return m->Discrete.BounceInput(bank, line, edges, spacingUs, nowNs);
}

void UnitEngine::DropNextDiscreteEvents(unsigned events)
{
    m->Discrete.DropNextEvents(events);
}

uint32_t UnitEngine::DiscreteOutputState(unsigned bank) const
{
    return m->Discrete.OutputState(bank);
}

const Counters& UnitEngine::GetCounters() const
{
    return m->Count;
}

Counters& UnitEngine::MutableCounters()
{
    return m->Count;
}

size_t UnitEngine::A429FifoLevel(unsigned channel) const
{
    return channel < m->Model.Arinc429TxChannels ? m->Tx[channel].Fifo.size() : 0;
}

UnitEngine::A429RxState UnitEngine::A429Receiver(unsigned channel) const
{
    A429RxState state;
    if (channel < m->Model.Arinc429RxChannels) {
        state.Enabled = m->Rx[channel].Enabled;
        state.Filter = m->Rx[channel].Filter;
    }
    return state;
}

std::vector<uint8_t> UnitEngine::RecentCommandCodes() const
{
    return {m->CommandLog.begin(), m->CommandLog.end()};
}

bool UnitEngine::HoldI2cBus(unsigned channel, unsigned ms, uint64_t nowNs)
{
    return m->Masters.HoldI2cBus(channel, ms, nowNs);
}

bool UnitEngine::NackNextI2c(unsigned channel, unsigned byteIndex)
{
    return m->Masters.NackNextI2c(channel, byteIndex);
}

bool UnitEngine::LoseI2cArbitration(unsigned channel)
{
    return m->Masters.LoseI2cArbitration(channel);
}

size_t UnitEngine::CanFifoLevel(unsigned channel) const
{
    return channel < m->Model.CanChannels ? m->Can[channel].Fifo.size() : 0;
}

} // namespace hdwsim
