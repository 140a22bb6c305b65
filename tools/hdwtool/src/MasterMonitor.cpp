// hdwtool monitor on an I2C or SPI master: a master sees only the transfers
// its own process makes, so monitor runs them itself. Each --poll VALUE is a
// transfer as send takes it plus every=INTERVAL (default 100ms); the polls
// run on their intervals, one at a time, each printing its line (MasterPort.h).
#include "Channel.h"
#include "Commands.h"
#include "MasterPort.h"
#include "MasterSend.h"
#include "Terminal.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <thread>

namespace hdwtool {

namespace {

struct Poll {
    MasterTransfer Transfer;
    uint64_t EveryUs = 100000;
    uint64_t DueUs = 0; // since the start
};

// VALUE[,every=INTERVAL]: the transfer without `every`, and the interval.
bool ParsePoll(unsigned portType, const std::string& text, Poll& poll, std::string& error)
{
    std::string rest;
    size_t from = 0;
    while (from <= text.size()) {
        const size_t comma = std::min(text.find(',', from), text.size());
        const std::string field = text.substr(from, comma - from);
        from = comma + 1;
        if (field.rfind("every=", 0) != 0) {
            rest += (rest.empty() ? "" : ",") + field;
            continue;
        }
        double seconds = 0;
        if (!ParseSeconds(field.substr(6), seconds, error) || seconds < 0.001 || seconds > 86400) {
            error = "--poll " + field + ": an interval from 1ms to 86400 seconds (100ms, 0.5)";
            return false;
        }
        poll.EveryUs = uint64_t(seconds * 1e6 + 0.5);
    }
    if (!ParseMasterValue(portType, rest, poll.Transfer, error)) {
        error = "--poll: " + error;
        return false;
    }
    return true;
}

} // namespace

int RunMasterMonitor(const ParsedArgs& parsed, const std::vector<PortSpec>& watch, const PortOptions& options,
    uint64_t count, double duration, OutputFormat format, TimeMode timeMode)
{
    auto usage = [](const std::string& e) { return Fail("monitor: " + e, ExitUsage); };
    if (watch.size() != 1 || watch[0].ByKey || !IsMasterPort(watch[0].PortType))
        return usage("--poll runs transfers on one master port, named i2c:N or spi:N");
    if (parsed.Has("send"))
        return usage("--send does not go with --poll (give each transfer as a --poll)");
    const auto values = parsed.All("poll");
    if (values.empty())
        return usage("an I2C or SPI master shows only the transfers it runs: give them with --poll");
    std::vector<Poll> polls(values.size());
    std::string error;
    for (size_t i = 0; i < values.size(); ++i)
        if (!ParsePoll(watch[0].PortType, values[i], polls[i], error))
            return usage(error);
    Session session; // outlives the port
    MasterPort master;
    if (!master.ParseSettings(parsed, options, error))
        return usage(error);
    if (!OpenSession(parsed, session, error) || !master.Open(session, watch[0], error))
        return Fail(error);

    InstallStopHandler();
    const uint64_t startUs = Channel::HostMicroseconds();
    const int64_t wallMinusHost = int64_t(std::chrono::duration_cast<std::chrono::microseconds>(
                                      std::chrono::system_clock::now().time_since_epoch())
                                              .count()) -
        int64_t(startUs);
    TimeColumn timeColumn(timeMode, startUs, wallMinusHost);
    if (IsTerminal(1) || format == OutputFormat::Csv)
        std::printf("%s%s\n", format == OutputFormat::Csv ? "" : "# ",
            RenderRow(MasterColumns().Header, MasterColumns(), format).c_str());
    const uint64_t endUs = duration > 0 ? uint64_t(duration * 1e6) : UINT64_MAX;
    uint64_t printed = 0;
    int result = ExitOk;
    while (!StopRequested() && (count == 0 || printed < count)) {
        const uint64_t nowUs = Channel::HostMicroseconds() - startUs;
        if (nowUs >= endUs)
            break;
        Poll& next = *std::min_element(
            polls.begin(), polls.end(), [](const Poll& a, const Poll& b) { return a.DueUs < b.DueUs; });
        if (next.DueUs > nowUs) {
            const uint64_t waitUs = std::min({next.DueUs - nowUs, endUs - nowUs, uint64_t(100000)});
            std::this_thread::sleep_for(std::chrono::microseconds(waitUs));
            continue;
        }
        // Intervals count from when a poll was due, so that a slow transfer
        // does not shift the ones after it; a poll that fell behind skips.
        next.DueUs = std::max(next.DueUs + next.EveryUs, nowUs);
        const unsigned rc = master.Run(next.Transfer);
        const uint64_t doneUs = Channel::HostMicroseconds();
        std::printf("%s\n",
            RenderRow(MasterFields(timeColumn.Shown(doneUs), master.Name(), next.Transfer, rc), MasterColumns(), format)
                .c_str());
        std::fflush(stdout);
        ++printed;
        if (rc == HDW_ERR_SERVICE) {
            result = Fail("monitor: " + master.Name() + ": the master service failed (" + ResultText(rc) + ")");
            break;
        }
    }
    if (result == ExitOk && count != 0 && printed < count && !StopRequested())
        result = Fail("monitor: " + std::to_string(printed) + " of " + std::to_string(count) +
            " transfers ran within --duration");
    return result;
}

} // namespace hdwtool
