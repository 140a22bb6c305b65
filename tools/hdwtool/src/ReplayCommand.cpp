// hdwtool replay FILE PORT: sends the frames of a candump log on a CAN port
// with the gaps between their time stamps, or as fast as the unit takes them.
#include "CandumpLog.h"
#include "Channel.h"
#include "Commands.h"
#include "Terminal.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <thread>

namespace hdwtool {

namespace {

struct ReplayFrame {
    uint64_t TimeUs = 0;
    CKVX_HdwCanMessage Frame;
};

struct ReplayPlan {
    std::vector<ReplayFrame> Frames;
    std::string Interface; // the one replayed; empty: all of them
    uint64_t OtherInterfaces = 0; // lines skipped
    uint64_t ErrorFrames = 0;
    std::vector<std::string> Seen; // every interface in the file, in order of appearance
};

// Reads the file; the frames of `interfaceName` (the first line's interface
// when empty, every interface with `all`). False with "FILE:LINE: reason".
bool ReadPlan(const std::string& path, std::string interfaceName, bool all, ReplayPlan& plan, std::string& error)
{
    std::ifstream in(path);
    if (!in) {
        error = "cannot read " + path;
        return false;
    }
    plan.Interface = all ? "" : interfaceName;
    std::string line;
    for (uint64_t number = 1; std::getline(in, line); ++number) {
        if (line.find_first_not_of(" \t\r") == std::string::npos)
            continue;
        CandumpRecord r;
        if (!ParseCandumpLine(line, r, error)) {
            error = path + ":" + std::to_string(number) + ": " + error;
            return false;
        }
        if (std::find(plan.Seen.begin(), plan.Seen.end(), r.Interface) == plan.Seen.end())
            plan.Seen.push_back(r.Interface);
        if (!all && plan.Interface.empty())
            plan.Interface = r.Interface;
        if (!all && r.Interface != plan.Interface)
            ++plan.OtherInterfaces;
        else if (r.ErrorFrame)
            ++plan.ErrorFrames;
        else
            plan.Frames.push_back({r.TimeUs, r.Frame});
    }
    if (in.bad()) {
        error = "reading " + path + " failed";
        return false;
    }
    // A mistyped interface would otherwise replay nothing and look like success.
    if (!all && !plan.Seen.empty() &&
        std::find(plan.Seen.begin(), plan.Seen.end(), plan.Interface) == plan.Seen.end()) {
        std::string seen;
        for (const auto& i : plan.Seen)
            seen += (seen.empty() ? "" : ", ") + i;
        error = path + " has no line of interface " + plan.Interface + " (it has " + seen + ")";
        return false;
    }
    return true;
}

// Frames written but not yet confirmed are kept below this, well inside the
// CAN output buffer, so that a write is never refused for want of room.
constexpr unsigned kMaxPending = 256;

} // namespace

int RunReplay(const std::vector<std::string>& args)
{
    auto specs = LinkOptions();
    for (const char* o : {"bitrate", "sample-point", "interface"})
        specs.push_back({o, 0, true, false});
    specs.push_back({"fast", 0, false, false});
    specs.push_back({"all-interfaces", 0, false, false});
    specs.push_back({"verbose", 'v', false, false});
    ParsedArgs parsed;
    if (const int rc = ParseCommand("replay", specs, args, parsed); rc >= 0)
        return rc;
    std::string error;
    auto usage = [](const std::string& e) { return Fail("replay: " + e, ExitUsage); };
    const auto& pos = parsed.Positionals();
    if (pos.size() != 2)
        return usage("give a candump log file and a CAN port (see hdwtool replay --help)");
    PortSpec target;
    PortOptions options;
    if (!ParsePortSpec(pos[1], target, error) || !ParsePortOptions(parsed, options, error))
        return usage(error);
    if (!target.ByKey && target.PortType != HDW_PORT_CAN)
        return usage(pos[1] + " is not a CAN port (can:N)");
    const bool all = parsed.Has("all-interfaces");
    if (all && parsed.Has("interface"))
        return usage("--interface and --all-interfaces exclude each other");
    ReplayPlan plan;
    if (!ReadPlan(pos[0], parsed.Get("interface"), all, plan, error))
        return Fail("replay: " + error);

    Session session;
    const auto owned = OpenChannel(parsed, session, target, error);
    if (!owned)
        return Fail(error);
    Channel& channel = *owned;
    const std::string& name = channel.Name();
    if (channel.PortType() != HDW_PORT_CAN)
        return Fail("replay: " + name + " is not a CAN port");
    if (!channel.EnableTransmit(error) || !channel.Open(options, error))
        return Fail(error);

    InstallStopHandler();
    const bool fast = parsed.Has("fast"), verbose = parsed.Has("verbose");
    const auto start = std::chrono::steady_clock::now();
    uint64_t sent = 0;
    for (const auto& f : plan.Frames) {
        if (StopRequested())
            break;
        // Gaps as in the file, from the first frame; a time stamp older than
        // the one before is sent at once.
        const auto due = start + std::chrono::microseconds(f.TimeUs - std::min(f.TimeUs, plan.Frames[0].TimeUs));
        while (!fast && !StopRequested() && std::chrono::steady_clock::now() < due)
            std::this_thread::sleep_until(
                std::min(due, std::chrono::steady_clock::now() + std::chrono::milliseconds(100)));
        while (!StopRequested() && channel.Pending() >= kMaxPending)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        Item item;
        item.PortType = HDW_PORT_CAN;
        item.Frame = f.Frame;
        if (!channel.Send(item, error))
            return Fail(error);
        ++sent;
        if (verbose) {
            item.TimeUs =
                uint64_t(std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - start)
                             .count());
            std::printf("%s\n", RenderRow(ItemFields(item, name), CanColumns(), OutputFormat::Text).c_str());
        }
    }
    std::fflush(stdout);
    if (!WaitConfirmed(channel, sent, error))
        return Fail("replay: " + error);
    std::fprintf(stderr, "replayed %llu frames of %s on %s", static_cast<unsigned long long>(sent),
        plan.Interface.empty() ? "every interface" : plan.Interface.c_str(), name.c_str());
    if (plan.OtherInterfaces)
        std::fprintf(
            stderr, ", skipped %llu lines of other interfaces", static_cast<unsigned long long>(plan.OtherInterfaces));
    if (plan.ErrorFrames)
        std::fprintf(stderr, ", skipped %llu error frames", static_cast<unsigned long long>(plan.ErrorFrames));
    std::fprintf(stderr, "\n");
    return ExitOk;
}

} // namespace hdwtool
