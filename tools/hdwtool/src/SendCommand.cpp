// hdwtool send PORT VALUE...: puts words, frames or bytes on a bus and waits
// until the unit has confirmed them.
#include "Commands.h"
#include "MasterSend.h"
#include "SendPlan.h"
#include "Terminal.h"

#include <chrono>
#include <cstdio>
#include <thread>

namespace hdwtool {

int RunSend(const std::vector<std::string>& args)
{
    auto specs = LinkOptions();
    for (const char* o :
        {"rate", "parity", "bitrate", "sample-point", "repeat", "interval", "speed", "mode", "clock", "word-bits"})
        specs.push_back({o, 0, true, false});
    specs.push_back({"verbose", 'v', false, false});
    // MIL-STD-1553 only.
    specs.push_back({"frame", 0, true, true});
    specs.push_back({"send", 's', true, true});
    specs.push_back({"duration", 't', true, false});
    specs.push_back({"count", 'n', true, false});
    specs.push_back({"summary", 0, false, false});
    ParsedArgs parsed;
    PortSpec target;
    PortOptions options;
    if (const int rc = ParsePortCommand("send", specs, args, "value", parsed, target, options); rc >= 0)
        return rc;
    std::string error;
    const auto& pos = parsed.Positionals();
    uint64_t repeat = 1;
    double interval = 0;
    if (parsed.Has("repeat") && !ParseCount(parsed.Get("repeat"), repeat, error))
        return Fail("send: --repeat: " + error, ExitUsage);
    if (parsed.Has("interval")) {
        uint64_t ms = 0;
        if (!ParseCount(parsed.Get("interval"), ms, error))
            return Fail("send: --interval: " + error, ExitUsage);
        interval = double(ms);
    }
    if (repeat == 0)
        return Fail("send: --repeat must be at least 1", ExitUsage);
    if (!target.ByKey && IsMasterPort(target.PortType))
        return RunMasterSend(parsed, target, options);
    if (!target.ByKey && target.PortType == HDW_PORT_MILSTD1553)
        return RunMil1553Send(parsed, target, options);
    for (const char* o : {"frame", "send", "duration", "count", "summary"})
        if (parsed.Has(o))
            return Fail(std::string("send: --") + o + " is for MIL-STD-1553 channels (1553:N)", ExitUsage);
    // A port named by type: check the values before any unit is touched.
    if (!target.ByKey)
        for (size_t i = 1; i < pos.size(); ++i) {
            Item it;
            if (!ParseValueFor(target.PortType, pos[i], it, error))
                return Fail("send: " + error, ExitUsage);
        }

    Session session;
    const auto owned = OpenChannel(parsed, session, target, error);
    if (!owned)
        return Fail(error);
    Channel& channel = *owned;
    const std::string& name = channel.Name();
    std::vector<SendPlan::Value> values;
    for (size_t i = 1; i < pos.size(); ++i) {
        SendPlan::Value v{&channel, {}};
        if (!ParseValueFor(channel.PortType(), pos[i], v.Data, error))
            return Fail("send: " + error, ExitUsage);
        values.push_back(std::move(v));
    }
    if (!channel.EnableTransmit(error) || !channel.Open(options, error))
        return Fail(error);

    InstallStopHandler();
    const bool verbose = parsed.Has("verbose");
    const auto start = std::chrono::steady_clock::now();
    auto now = [&] { return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(); };
    SendPlan plan(std::move(values), repeat, interval);
    uint64_t sent = 0;
    while (!plan.Done() && !StopRequested()) {
        const bool ok = plan.Step(now(), error, [&](const SendPlan::Value& v) {
            ++sent;
            if (verbose) {
                Item shown = v.Data;
                shown.TimeUs = uint64_t(now() * 1e6);
                std::printf(
                    "%s\n", RenderRow(ItemFields(shown, name), ColumnsFor(shown.PortType), OutputFormat::Text).c_str());
            }
        });
        if (!ok)
            return Fail(error);
        if (!plan.Done())
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    std::fflush(stdout);
    if (!WaitConfirmed(channel, sent, error))
        return Fail("send: " + error);
    return StopRequested() ? ExitFailed : ExitOk;
}

} // namespace hdwtool
