// hdwtool send 1553:N bc|rt ...: a channel as bus controller (one-shot
// transfers, or a repeating schedule of minor frames) or as a remote
// terminal; every transfer printed as one line in the monitor's format.
#include "Channel.h"
#include "Commands.h"
#include "Mil1553Text.h"
#include "SendPlan.h"
#include "Terminal.h"
#include "TimeColumn.h"

#include <chrono>
#include <cstdio>
#include <thread>

namespace hdwtool {

namespace {

using Msg = CKVX_HdwMilStd1553Message;
constexpr double kResultWaitS = 10;

class Run {
public:
    Run() : m_Start(std::chrono::steady_clock::now()), m_Time(TimeMode::Relative, Channel::HostMicroseconds(), 0) {}
    double Now() const { return std::chrono::duration<double>(std::chrono::steady_clock::now() - m_Start).count(); }
    // Reads what `c` reports, prints each line (unless quiet) and counts it.
    bool Poll(Channel& c, std::string& error, bool quiet = false)
    {
        m_Items.clear();
        if (!c.Poll(m_Items, error))
            return false;
        for (const auto& it : m_Items) {
            ++Seen;
            Failed += Mil1553Failed(it.Transfer) ? 1 : 0;
            if (quiet)
                continue;
            Item shown = it;
            shown.TimeUs = m_Time.Shown(it.TimeUs);
            std::printf("%s\n", RenderRow(ItemFields(shown, c.Name()), Mil1553Columns(), OutputFormat::Text).c_str());
        }
        if (!m_Items.empty())
            std::fflush(stdout);
        return true;
    }
    bool Idle() const { return m_Items.empty(); }
    uint64_t Seen = 0, Failed = 0;

private:
    std::chrono::steady_clock::time_point m_Start;
    TimeColumn m_Time;
    std::vector<Item> m_Items;
};

void Pause(const Run& run)
{
    if (run.Idle())
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

// The schedule of --frame: the transfers as the major frame's messages.
int RunSchedule(Channel& bc, const std::vector<Msg>& transfers, const std::vector<std::string>& frames, uint64_t cycles,
    double duration, bool summary)
{
    std::string error;
    CKVX_HdwMilStd1553BusController c;
    c.MajorFrame.Messages = transfers;
    for (const auto& f : frames) {
        CKVX_HdwMilStd1553MinorFrame minor;
        if (!ParseMinorFrame(f, unsigned(transfers.size()), minor, error))
            return Fail("send: " + error, ExitUsage);
        c.MajorFrame.MinorFrames.push_back(minor);
    }
    c.StopAfter = uint8_t(cycles);
    CKVX_HdwMilStd1553BcService* service = bc.Mil1553Controller();
    if (const unsigned rc = service->BuildConfiguration(c); rc != 0) {
        std::string why = ResultText(rc);
        for (size_t i = 0; i < c.MajorFrame.MinorFrames.size(); ++i) {
            // Against the port's default response time-out.
            const unsigned need = c.MajorFrame.GetMinorFrameTimeUs(unsigned(i), 14);
            if (need > c.MajorFrame.MinorFrames[i].PeriodUs)
                why = "minor frame " + std::to_string(i) + " needs " + std::to_string(need) +
                    " us of bus time, more than its period";
        }
        return Fail("send: the schedule is refused: " + why, ExitUsage);
    }
    unsigned rc = service->LoadConfiguration();
    if (rc == 0)
        rc = service->RunBc();
    if (rc != 0)
        return Fail("send: cannot run the schedule on " + bc.Name() + ": " + ResultText(rc));
    Run run;
    bool stopping = false;
    double stopAt = 0;
    while (true) {
        if (!run.Poll(bc, error, summary))
            return Fail("send: " + error);
        const double t = run.Now();
        if (!stopping && ((duration > 0 && t >= duration) || StopRequested() || !service->IsRunning())) {
            stopping = true;
            stopAt = t;
            service->StopBc();
        }
        if (stopping && (!service->IsRunning() || t > stopAt + kResultWaitS)) {
            if (!run.Poll(bc, error, summary))
                return Fail("send: " + error);
            break;
        }
        Pause(run);
    }
    const uint64_t lost = bc.Dropped();
    if (summary || lost)
        std::printf("%llu transfers in %.1f s, %llu failed, %llu lost\n", static_cast<unsigned long long>(run.Seen),
            stopAt, static_cast<unsigned long long>(run.Failed), static_cast<unsigned long long>(lost));
    return lost ? ExitFailed : ExitOk;
}

// One-shot transfers in order; the exit status says whether all completed.
int RunOneShots(Channel& bc, const std::vector<Msg>& transfers)
{
    std::string error;
    for (const auto& m : transfers) {
        Item it;
        it.PortType = HDW_PORT_MILSTD1553;
        it.Transfer = m;
        if (!bc.Send(it, error))
            return Fail("send: " + error);
    }
    Run run;
    while (run.Seen < transfers.size() && run.Now() < kResultWaitS && !StopRequested()) {
        if (!run.Poll(bc, error))
            return Fail("send: " + error);
        Pause(run);
    }
    if (run.Seen < transfers.size())
        return Fail("send: " + std::to_string(transfers.size() - run.Seen) + " of " + std::to_string(transfers.size()) +
            " transfers got no result (the unit did not run them)");
    if (run.Failed)
        return Fail(
            "send: " + std::to_string(run.Failed) + " of " + std::to_string(transfers.size()) + " transfers failed");
    return ExitOk;
}

} // namespace

int RunMil1553Send(const ParsedArgs& parsed, const PortSpec& target, const PortOptions& options)
{
    std::string error;
    const auto& pos = parsed.Positionals();
    auto usage = [](const std::string& e) { return Fail("send: " + e, ExitUsage); };
    const std::string role = pos[1];
    const std::vector<std::string> words(pos.begin() + 2, pos.end());
    uint64_t count = 0;
    double duration = 0;
    if (parsed.Has("count") && !ParseCount(parsed.Get("count"), count, error))
        return usage("--count: " + error);
    if (parsed.Has("duration") && !ParseSeconds(parsed.Get("duration"), duration, error))
        return usage("--duration: " + error);
    for (const char* o : {"repeat", "interval", "verbose", "speed", "mode", "clock", "word-bits", "rate", "parity",
             "bitrate", "sample-point"})
        if (parsed.Has(o))
            return usage(std::string("--") + o + " does not apply to a MIL-STD-1553 channel");
    std::vector<Msg> transfers;
    CKVX_HdwMilStd1553RemoteTerminal terminal;
    if (role == "bc") {
        if (!ParseMil1553Transfers(words, transfers, error))
            return usage(error);
        if (parsed.All("frame").empty() && (parsed.Has("count") || parsed.Has("duration") || parsed.Has("summary")))
            return usage("--count, --duration and --summary go with a schedule (--frame)");
        if (count > 255)
            return usage("--count: at most 255 major frame cycles (none: until --duration or Ctrl-C)");
    } else if (role == "rt") {
        if (!ParseMil1553Terminal(words, terminal, error))
            return usage(error);
        for (auto& sa : terminal.Transmit)
            sa.Report = 1;
    } else {
        return usage(
            "a MIL-STD-1553 channel sends as \"bc\" or \"rt\", not \"" + role + "\" (see hdwtool send --help)");
    }
    std::vector<std::pair<PortSpec, Item>> sends;
    for (const auto& s : parsed.All("send")) {
        const size_t eq = s.find('=');
        PortSpec p;
        Item it;
        if (role != "rt" || eq == std::string::npos || !ParsePortSpec(s.substr(0, eq), p, error) || p.ByKey ||
            p.PortType != HDW_PORT_MILSTD1553 || !ParseValueFor(p.PortType, s.substr(eq + 1), it, error))
            return usage("--send \"" + s + "\": " + (error.empty() ? "only with rt, as 1553:N=TRANSFER" : error));
        sends.push_back({p, it});
    }

    InstallStopHandler();
    Session session;
    const auto channel = OpenChannel(parsed, session, target, error);
    if (!channel)
        return Fail(error);
    if (role == "bc") {
        if (!channel->EnableTransmit(error) || !channel->Open(options, error))
            return Fail(error);
        return parsed.All("frame").empty()
            ? RunOneShots(*channel, transfers)
            : RunSchedule(*channel, transfers, parsed.All("frame"), count, duration, parsed.Has("summary"));
    }
    channel->SetMil1553Terminal(terminal);
    if (!channel->EnableReceive(options, error) || !channel->Open(options, error))
        return Fail(error);
    // A controller in this process (one process owns the unit's link).
    std::vector<std::unique_ptr<Channel>> controllers;
    for (auto& [p, it] : sends) {
        std::string name;
        CKVX_HdwPort* port = session.Resolve(p, name, error);
        if (!port)
            return Fail(error);
        if (controllers.empty() || controllers.back()->Name() != name) {
            controllers.push_back(std::make_unique<Channel>(port, name));
            if (!controllers.back()->EnableTransmit(error) || !controllers.back()->Open(options, error))
                return Fail(error);
        }
        if (!controllers.back()->Send(it, error))
            return Fail("send: " + error);
    }
    Run run;
    while (!StopRequested() && (count == 0 || run.Seen < count) && (duration <= 0 || run.Now() < duration)) {
        if (!run.Poll(*channel, error))
            return Fail("send: " + error);
        for (auto& c : controllers) {
            std::vector<Item> discard;
            c->Poll(discard, error);
        }
        Pause(run);
    }
    if (count != 0 && run.Seen < count && !StopRequested())
        return Fail(
            "send: " + std::to_string(run.Seen) + " of " + std::to_string(count) + " accesses came within --duration");
    return channel->Dropped() ? ExitFailed : ExitOk;
}

} // namespace hdwtool
