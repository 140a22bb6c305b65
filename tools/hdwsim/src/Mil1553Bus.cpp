#include "Mil1553Bus.h"

#include "Mil1553Records.h"

#include <algorithm>

namespace hdwsim::mil {

Bus::Bus(unsigned channels, Counters& counters, Sink sink)
    : m_ChannelCount(std::min(channels, Channels)),
      m_Count(counters),
      m_Sink(std::move(sink)),
      m_Sram(size_t(Channels) * SramWordsPerChannel, 0)
{}

void Bus::Reset(uint64_t nowNs)
{
    std::fill(m_Sram.begin(), m_Sram.end(), 0);
    for (Channel& c : m_Channels)
        c = Channel{};
    m_Sims.Reset();
    m_Current.reset();
    m_BusFreeNs = nowNs;
}

void Bus::SramWrite(uint32_t address, const uint8_t* words, size_t count)
{
    for (size_t i = 0; i < count; ++i) {
        const uint64_t at = uint64_t(address) + i;
        if (at >= uint64_t(m_ChannelCount) * SramWordsPerChannel)
            break;
        m_Sram[at] = static_cast<uint16_t>(words[2 * i] | (words[2 * i + 1] << 8));
        ++m_Count.Mil1553SramWords;
    }
}

uint16_t Bus::SramWord(unsigned channel, unsigned address) const
{
    return channel < m_ChannelCount ? Sram(channel)[address % SramWordsPerChannel] : 0;
}

void Bus::Configure(unsigned channel, const uint8_t* bytes, uint64_t nowNs)
{
    if (channel >= m_ChannelCount)
        return;
    Channel& c = m_Channels[channel];
    const Config cfg{bytes[0], bytes[1], bytes[2], bytes[3], bytes[4], bytes[5], bytes[6], bytes[7]};
    const bool run = (cfg.Flags & CfgRun) != 0;
    if (run && c.Run && cfg.Mode == c.Cfg.Mode) {
        // Running: only the status bits, the triggers and the cycle count.
        c.Cfg.RtStatus = cfg.RtStatus;
        c.Cfg.StopAfter = cfg.StopAfter;
        c.Bc.SetStopAfter(cfg.StopAfter);
    } else if (run && c.Run) {
        ++m_Count.Mil1553ConfigsRefused[channel]; // another mode needs a stop first
        return;
    } else {
        if (!run)
            c.Bc.RequestStop(nowNs);
        const bool start = run && !c.Run;
        c.Cfg = cfg;
        c.Run = run;
        if (start && cfg.Mode == ModeBc)
            c.Bc.Start(cfg.TablePage, cfg.StopAfter, nowNs);
        if (start && cfg.Mode == ModeRt)
            c.Rt.Reset();
    }
    if ((cfg.Flags & CfgOneShots) && c.Cfg.Mode == ModeBc && cfg.Count > 0)
        c.Bc.StartOneShots(cfg.Count, nowNs);
    if ((cfg.Flags & CfgSwitch) && c.Bc.Running())
        c.Bc.RequestSwitch(cfg.TablePage);
}

Reply Bus::Answer(Command c, unsigned bus, const std::vector<uint16_t>& received)
{
    // A channel in RT mode owns its address, on the buses it is on.
    const auto answerAt = [&](unsigned ch) {
        Channel& chan = m_Channels[ch];
        const RtResponder::Setup setup{
            chan.Cfg.Count, chan.Cfg.RtStatus, chan.Cfg.ResponseTime == 0 ? DefaultResponseUs : chan.Cfg.ResponseTime};
        Reply r = chan.Rt.Answer(Sram(ch), setup, c, received);
        if (r.Report)
            m_Accesses.push_back({ch, c.Word, c.Transmit() ? r.Data : received});
        return r;
    };
    Reply reply;
    bool owned = false;
    for (unsigned ch = 0; ch < m_ChannelCount; ++ch) {
        const Channel& chan = m_Channels[ch];
        if (!chan.Run || chan.Cfg.Mode != ModeRt || (!c.IsBroadcast() && chan.Cfg.Count != c.Address()))
            continue;
        owned = true;
        if (chan.OnBus(bus))
            reply = answerAt(ch);
    }
    // Simulated terminals hear every broadcast and answer the addresses
    // no channel owns.
    if (c.IsBroadcast()) {
        m_Sims.Answer(c, received);
        return {};
    }
    return owned ? reply : m_Sims.Answer(c, received);
}

void Bus::Emit(unsigned channel, uint64_t atNs, const std::vector<uint8_t>& body)
{
    m_Sink(channel, atNs, body);
}

void Bus::Report(const Attempt& a, std::vector<Record>& records)
{
    ++m_Count.Mil1553Attempts;
    for (Access& x : m_Accesses) {
        records.push_back({x.Channel, a.StartNs, AccessRecord(a, Command{x.Command}, false, x.Data)});
        ++m_Count.Mil1553RtAccesses[x.Channel];
    }
    m_Accesses.clear();
    for (unsigned ch = 0; ch < m_ChannelCount; ++ch) {
        const Channel& c = m_Channels[ch];
        if ((c.Cfg.Flags & CfgMonitor) && c.OnBus(a.Bus)) {
            records.push_back({ch, a.StartNs, AccessRecord(a, Command{a.Command1}, true, a.Data)});
            ++m_Count.Mil1553MonitorRecords[ch];
        }
    }
}

void Bus::RunMessage(unsigned channel, const BcSchedule::Next& step, uint64_t startNs)
{
    Channel& c = m_Channels[channel];
    const uint16_t* d = Sram(channel) + step.Descriptor * DescriptorWords;
    const uint16_t control = d[0];
    AttemptSpec spec;
    spec.RtToRt = (control & CtrlRtToRt) != 0;
    spec.Command1 = d[1];
    spec.Command2 = d[2];
    spec.Bus = control & CtrlBusB ? 1 : 0;
    spec.TimeoutUs = c.TimeoutUs();
    const Command cmd{d[1]};
    if (!spec.RtToRt && !cmd.Transmit())
        for (unsigned i = 0; i < cmd.DataWords(); ++i)
            spec.BcData.push_back(Sram(channel)[(d[3] + i) % SramWordsPerChannel]);
    const unsigned gapUs = control >> 8;
    const uint64_t gapNs = uint64_t(gapUs == 0 ? 4 : gapUs) * NsPerUs;

    InProgress p;
    Attempt a = RunAttempt(*this, m_Faults, spec, startNs);
    Report(a, p.Records);
    uint16_t flags = a.Flags;
    if (a.Failed() && (control & CtrlRetry)) {
        // Once more after the gap, on the other bus when asked.
        if (control & CtrlRetryOtherBus)
            spec.Bus ^= 1;
        a = RunAttempt(*this, m_Faults, spec, a.EndNs + gapNs);
        Report(a, p.Records);
        flags = static_cast<uint16_t>(a.Flags | FlagRetried);
    }
    p.Records.push_back({channel, startNs, TransferRecord(d[4], a, flags)});
    ++m_Count.Mil1553Transfers[channel];
    p.EndNs = a.EndNs;
    m_Current = std::move(p);
    m_BusFreeNs = a.EndNs;
    c.Bc.MessageDone(step, a.EndNs, gapUs);
}

std::optional<std::pair<unsigned, BcSchedule::Next>> Bus::NextStep(uint64_t& atNs) const
{
    std::optional<std::pair<unsigned, BcSchedule::Next>> best;
    for (unsigned ch = 0; ch < m_ChannelCount; ++ch) {
        const Channel& c = m_Channels[ch];
        const BcSchedule::Next n = c.Bc.Peek(Sram(ch), c.Cfg.Mode == ModeBc, c.TimeoutUs());
        if (n.Kind == BcSchedule::Step::None)
            continue;
        // Two controllers share the bus: a message waits until it is free.
        const uint64_t at = n.Kind == BcSchedule::Step::Message ? std::max(n.AtNs, m_BusFreeNs) : n.AtNs;
        if (!best || at < atNs) {
            best.emplace(ch, n);
            atNs = at;
        }
    }
    return best;
}

void Bus::Advance(uint64_t nowNs)
{
    for (;;) {
        if (m_Current) {
            if (m_Current->EndNs > nowNs)
                return;
            for (const Record& r : m_Current->Records)
                Emit(r.Channel, r.AtNs, r.Body);
            m_Current.reset();
            continue;
        }
        uint64_t at = 0;
        const auto step = NextStep(at);
        if (!step || at > nowNs)
            return;
        const auto& [ch, next] = *step;
        Channel& c = m_Channels[ch];
        switch (next.Kind) {
        case BcSchedule::Step::Message: RunMessage(ch, next, at); break;
        case BcSchedule::Step::Boundary:
            switch (c.Bc.Boundary(Sram(ch), at)) {
            case BcSchedule::Outcome::Switched: Emit(ch, at, ControlRecord(KindSwitched)); break;
            case BcSchedule::Outcome::Stopped:
                c.Run = false; // after its StopAfter cycles
                Emit(ch, at, ControlRecord(KindStopped));
                break;
            case BcSchedule::Outcome::None: break;
            }
            break;
        case BcSchedule::Step::Stop:
            if (c.Cfg.Mode == ModeBc && c.Bc.Running() && (c.Cfg.Flags & CfgRun))
                c.Run = false; // a table that cannot be run
            c.Bc.Stopped();
            Emit(ch, at, ControlRecord(KindStopped));
            break;
        case BcSchedule::Step::None: return;
        }
    }
}

uint64_t Bus::NextEventNs() const
{
    if (m_Current)
        return m_Current->EndNs;
    uint64_t at = 0;
    return NextStep(at) ? at : UINT64_MAX;
}

} // namespace hdwsim::mil
