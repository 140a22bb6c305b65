// hdwtool monitor PORT...: prints the traffic of receive ports as it arrives,
// optionally sending values from the same process (one process owns a unit's
// link, so a sender and a monitor of one unit share it this way).
#include "Capture.h"
#include "Channel.h"
#include "Commands.h"
#include "MasterSend.h"
#include "SendPlan.h"
#include "StatusLine.h"
#include "Terminal.h"
#include "TimeColumn.h"
#include "UartCounters.h"
#include "UnitWatch.h"
#include "Wait.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <map>
#include <memory>
#include <set>
#include <thread>

namespace hdwtool {

namespace {

struct SendArg {
    PortSpec Port;
    std::string Value;
};

bool ParseSendArg(const std::string& text, SendArg& out, std::string& error)
{
    const size_t eq = text.find('=');
    if (eq == std::string::npos) {
        error = "--send \"" + text + "\" is not PORT=VALUE (a429tx:0=0x60000083, can:0=123#DEADBEEF)";
        return false;
    }
    out.Value = text.substr(eq + 1);
    return ParsePortSpec(text.substr(0, eq), out.Port, error);
}

// The watched ports' drops and their units' link losses, into the status.
void UpdateLosses(StatusLine& status, const std::vector<Channel*>& watched)
{
    std::set<CKVX_HdwKvxUnitInstance*> units;
    LinkLosses link;
    for (size_t i = 0; i < watched.size(); ++i) {
        status.SetDropped(i, watched[i]->Dropped());
        CKVX_HdwKvxUnitInstance* unit = watched[i]->Unit();
        if (unit && units.insert(unit).second) {
            const auto c = unit->GetLossCounters();
            link.BadFrames += c.BadFrames();
            link.LostEchoes += c.LostEchoes();
        }
    }
    status.SetLinkLosses(link);
}

// The unit-side counters of the Sorrel UARTs watched or sent on, one line
// each on stderr; true when the unit lost received bytes.
template <typename ChannelMap>
bool PrintUartCounters(const ChannelMap& channels)
{
    bool lost = false;
    for (const auto& [port, channel] : channels) {
        UartCounters c;
        std::string error;
        if (ReadUartCounters(port, c, error))
            std::fprintf(stderr, "%s\n", FormatUartCounters(channel->Name(), c).c_str());
        else if (!error.empty())
            std::fprintf(stderr, "%s: %s\n", channel->Name().c_str(), error.c_str());
        lost = lost || c.Lost != 0;
    }
    return lost;
}

} // namespace

int RunMonitor(const std::vector<std::string>& args)
{
    auto specs = LinkOptions();
    for (const char* o : {"count", "duration", "rate", "parity", "bitrate", "sample-point", "repeat", "interval",
             "format", "time", "log", "pcap", "label-order", "speed", "mode", "clock", "word-bits"})
        specs.push_back({o, 0, true, false});
    specs.push_back({"accept", 'a', true, true});
    specs.push_back({"send", 's', true, true});
    specs.push_back({"poll", 0, true, true});
    specs.push_back({"no-status", 0, false, false});
    specs.push_back({"reconnect", 0, false, false});
    for (auto& s : specs) {
        if (s.Long == "count")
            s.Short = 'n';
        if (s.Long == "duration")
            s.Short = 't';
    }
    ParsedArgs parsed;
    if (const int rc = ParseCommand("monitor", specs, args, parsed); rc >= 0)
        return rc;
    std::string error;
    auto usage = [](const std::string& e) { return Fail("monitor: " + e, ExitUsage); };
    if (parsed.Positionals().empty())
        return usage("give at least one port to monitor (see hdwtool monitor --help)");
    std::vector<PortSpec> watch;
    for (const auto& p : parsed.Positionals()) {
        PortSpec s;
        if (!ParsePortSpec(p, s, error))
            return usage(error);
        watch.push_back(s);
    }
    std::vector<SendArg> sends;
    for (const auto& s : parsed.All("send")) {
        SendArg a;
        if (!ParseSendArg(s, a, error))
            return usage(error);
        Item it;
        if (!a.Port.ByKey && !ParseValueFor(a.Port.PortType, a.Value, it, error))
            return usage(error);
        sends.push_back(a);
    }
    PortOptions options;
    if (!ParsePortOptions(parsed, options, error))
        return usage(error);
    uint64_t count = 0, repeat = 1, intervalMs = 0;
    double duration = 0;
    if (parsed.Has("count") && (!ParseCount(parsed.Get("count"), count, error) || count == 0))
        return usage("--count: " + (error.empty() ? "must be at least 1" : error));
    if (parsed.Has("duration") && !ParseSeconds(parsed.Get("duration"), duration, error))
        return usage("--duration: " + error);
    if (parsed.Has("repeat") && !ParseCount(parsed.Get("repeat"), repeat, error))
        return usage("--repeat: " + error);
    if (parsed.Has("interval") && !ParseCount(parsed.Get("interval"), intervalMs, error))
        return usage("--interval: " + error);
    bool formatOk = true;
    const OutputFormat format = ParseFormat(parsed, formatOk, error);
    if (!formatOk)
        return usage(error);
    TimeMode timeMode = TimeMode::Relative;
    if (parsed.Has("time") && !ParseTimeMode(parsed.Get("time"), timeMode, error))
        return usage("--time: " + error);
    LabelOrder labelOrder = LabelOrder::Reversed;
    if (parsed.Has("label-order") && !ParseLabelOrder(parsed.Get("label-order"), labelOrder, error))
        return usage("--label-order: " + error);
    if (parsed.Has("poll") ||
        std::any_of(watch.begin(), watch.end(), [](const PortSpec& w) { return !w.ByKey && IsMasterPort(w.PortType); }))
        return RunMasterMonitor(parsed, watch, options, count, duration, format, timeMode);
    // Labels given are numbers; the filter compares raw low bytes.
    for (auto& a : options.Accepts)
        a.Label = LabelNumber(a.Label, labelOrder);

    Session session;
    const bool reconnect = parsed.Has("reconnect");
    if (reconnect && !UnitWatch::EnableReconnect(session.Manager(), error))
        return Fail(error);
    if (!OpenSession(parsed, session, error))
        return Fail(error);
    UnitWatch units(session.Manager());

    // One Channel per distinct port, whether watched, sent on, or both.
    std::map<CKVX_HdwPort*, std::unique_ptr<Channel>> channels;
    auto channelFor = [&](const PortSpec& target) -> Channel* {
        std::string name;
        CKVX_HdwPort* port = session.Resolve(target, name, error);
        if (!port)
            return nullptr;
        auto& c = channels[port];
        if (!c)
            c = std::make_unique<Channel>(port, name);
        return c.get();
    };
    // Arrivals on the watched channels wake the loop through one descriptor;
    // a channel that cannot (a PC serial port) makes the loop poll every 1 ms.
    CKVX_HdwSignalGroup wake;
    bool wakeOnArrival = wake.GetFileDescriptor() >= 0;
    std::vector<Channel*> watched;
    for (const auto& w : watch) {
        Channel* c = channelFor(w);
        if (!c)
            return Fail(error);
        if (std::find(watched.begin(), watched.end(), c) != watched.end())
            continue;
        if (!c->EnableReceive(options, error))
            return Fail(error);
        wakeOnArrival = c->WakeThrough(wake) && wakeOnArrival;
        watched.push_back(c);
    }
    std::vector<SendPlan::Value> values;
    std::set<Channel*> senders;
    for (const auto& s : sends) {
        Channel* c = channelFor(s.Port);
        if (!c)
            return Fail(error);
        SendPlan::Value v{c, {}};
        if (!ParseValueFor(c->PortType(), s.Value, v.Data, error))
            return usage(error);
        if (senders.insert(c).second && !c->EnableTransmit(error))
            return Fail(error);
        values.push_back(std::move(v));
    }
    // Relative times count from here, before the first port opens.
    const uint64_t startUs = Channel::HostMicroseconds();
    const int64_t wallMinusHost = int64_t(std::chrono::duration_cast<std::chrono::microseconds>(
                                      std::chrono::system_clock::now().time_since_epoch())
                                              .count()) -
        int64_t(Channel::HostMicroseconds());
    TimeColumn timeColumn(timeMode, startUs, wallMinusHost);
    if ((parsed.Has("log") || parsed.Has("pcap")) &&
        std::any_of(watched.begin(), watched.end(), [](Channel* c) { return c->PortType() == HDW_PORT_MILSTD1553; }))
        return usage("--log and --pcap record ARINC 429 and CAN; MIL-STD-1553 transfers are not captured "
                     "(redirect the printed lines instead)");
    Capture capture;
    if (!capture.Open(parsed.Get("log"), parsed.Get("pcap"), watched, labelOrder, options.Parity == "even", error))
        return Fail("monitor: " + error);
    // Receivers first, so that nothing sent is missed.
    for (Channel* c : watched)
        if (!c->Open(options, error))
            return Fail(error);
    for (Channel* c : senders)
        if (std::find(watched.begin(), watched.end(), c) == watched.end() && !c->Open(options, error))
            return Fail(error);

    InstallStopHandler();
    const bool terminal = IsTerminal(1);
    std::vector<std::string> names;
    for (Channel* c : watched)
        names.push_back(c->Name());
    StatusLine status(terminal && !parsed.Has("no-status"), stdout, names);
    if (terminal || format == OutputFormat::Csv) {
        std::set<const Columns*> shown;
        for (Channel* c : watched) {
            const Columns& cols = ColumnsFor(c->PortType());
            if (shown.insert(&cols).second)
                std::printf(
                    "%s%s\n", format == OutputFormat::Csv ? "" : "# ", RenderRow(cols.Header, cols, format).c_str());
        }
    }
    const auto start = std::chrono::steady_clock::now();
    auto now = [&] { return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(); };
    SendPlan plan(std::move(values), repeat, double(intervalMs));
    uint64_t printed = 0;
    std::vector<Item> items;
    int result = ExitOk;
    while (!StopRequested()) {
        const double t = now();
        if (duration > 0 && t >= duration)
            break;
        if (!plan.Done() && !plan.Step(t, error, [](const SendPlan::Value&) {})) {
            result = Fail(error);
            break;
        }
        bool any = false;
        if (reconnect)
            for (const std::string& line : units.Poll()) {
                status.Clear();
                std::printf("%s%s\n", format == OutputFormat::Csv ? "# " : "", line.c_str());
                any = true;
            }
        for (size_t i = 0; i < watched.size() && (count == 0 || printed < count); ++i) {
            items.clear();
            if (!watched[i]->Poll(items, error)) {
                status.Clear();
                result = Fail(error);
                break;
            }
            if (items.empty())
                continue;
            any = true;
            status.Clear();
            for (const auto& it : items) {
                if (count != 0 && printed >= count)
                    break;
                capture.Record(i, it, uint64_t(int64_t(it.TimeUs) + wallMinusHost));
                Item shown = it;
                shown.TimeUs = timeColumn.Shown(it.TimeUs);
                std::printf("%s\n",
                    RenderRow(ItemFields(shown, watched[i]->Name(), labelOrder), ColumnsFor(it.PortType), format)
                        .c_str());
                ++printed;
                status.Add(i, 1);
            }
        }
        if (any && result == ExitOk && !capture.Flush(error))
            result = Fail(error);
        if (result != ExitOk || (count != 0 && printed >= count))
            break;
        if (any && !terminal)
            std::fflush(stdout);
        if (status.Enabled())
            UpdateLosses(status, watched);
        status.Draw(now());
        if (any)
            continue;
        if (wakeOnArrival && plan.Done()) {
            // Until something arrives; the status line and --duration are
            // looked at ten times a second.
            double waitMs = 100;
            if (duration > 0)
                waitMs = std::min(waitMs, (duration - now()) * 1000.0 + 1);
            WaitReadable(wake.GetFileDescriptor(), unsigned(std::max(waitMs, 1.0)));
        } else {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }
    status.Clear();
    std::fflush(stdout);
    // Losses are never silent: the summary names them even when piped.
    UpdateLosses(status, watched);
    bool lost = PrintUartCounters(channels);
    lost = lost || status.Link().BadFrames || status.Link().LostEchoes ||
        std::any_of(status.Ports().begin(), status.Ports().end(), [](const PortStatus& p) { return p.Dropped != 0; });
    if (terminal)
        std::fprintf(stderr, "%llu items in %.1f s\n", static_cast<unsigned long long>(printed), now());
    if (terminal || lost)
        std::fprintf(stderr, "%s\n", FormatLosses(status.Ports(), status.Link()).c_str());
    if (reconnect) {
        units.Poll();
        std::fprintf(stderr, "unit outages %llu, back %llu\n", static_cast<unsigned long long>(units.Outages()),
            static_cast<unsigned long long>(units.Returns()));
    }
    if (result == ExitOk && count != 0 && printed < count && !StopRequested())
        result = Fail("monitor: " + std::to_string(printed) + " of " + std::to_string(count) +
            " items arrived within --duration");
    return result;
}

} // namespace hdwtool
