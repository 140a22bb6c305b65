// MIL-STD-1553 from the command line against hdwsim (simulated terminals 5 and 7 on the bus of channels 0 and 1):
// the monitor's transfer lines, the controller's one-shot transfers and schedule, and the remote terminal.
#include "Spawn.h"

#include <gtest/gtest.h>

using namespace tooltest;

namespace {

// The fields after TIME and PORT: BUS DIR RT SA WC STATUS ERRORS DATA.
Row Fields(const Row& w)
{
    return w.size() == 10 ? Row(w.begin() + 2, w.end()) : w;
}

// rx, tx (what the terminal last received), an absent terminal, RT->RT, a mode code on bus B.
const std::vector<std::string> kTransfers = {"rx:rt=5:sa=1:1234,5678", "tx:rt=5:sa=1:wc=2", "tx:rt=9:sa=1:wc=1",
    "rtrt:rt=7:sa=3:txrt=5:txsa=1:wc=2", "mode:rt=5:mc=17:00AB:bus=b"};
const std::vector<Row> kRows = {{"A", "BC->RT", "5", "1", "2", "2800", "-", "1234.5678"},
    {"A", "RT->BC", "5", "1", "2", "2800", "-", "1234.5678"}, {"A", "RT->BC", "9", "1", "0", "-", "noresp", "-"},
    {"A", "RT->RT", "5>7", "1>3", "2", "2800.3800", "-", "1234.5678"},
    {"B", "MODE", "5", "17", "1", "2800", "-", "00AB"}};

} // namespace

TEST(Tool1553, MonitorControllerAndRemoteTerminalPrintEveryTransferWithItsFields)
{
    SimProcess sim(true, "halden", "3", {"--mil1553-rt", "5,7"});
    std::vector<std::string> args = {"monitor", "--link", sim.Link, "1553:1", "--count", "5", "--duration", "20"};
    for (const auto& t : kTransfers)
        args.insert(args.end(), {"--send", "1553:0=" + t});
    const auto mon = Rows(args, kRows.size());
    for (size_t i = 0; i < kRows.size(); ++i) {
        EXPECT_EQ(Fields(mon[i]), kRows[i]);
        EXPECT_EQ(mon[i][1], "1553:1");
    }

    // As one-shot transfers of a controller: the same lines, exit status 1 for the unanswered one.
    args = {"send", "--link", sim.Link, "1553:0", "bc"};
    for (const auto& t : kTransfers)
        args.push_back(t);
    const Output bc = Tool(args);
    EXPECT_EQ(bc.Status, 1);
    EXPECT_NE(bc.Err.find("1 of 5 transfers failed"), std::string::npos) << bc.Err;
    ASSERT_EQ(bc.Lines().size(), kRows.size()) << bc.Out;
    for (size_t i = 0; i < kRows.size(); ++i)
        EXPECT_EQ(Fields(Words(bc.Lines()[i])), kRows[i]) << bc.Lines()[i];

    // Channel 1 as terminal 6 answers channel 0's controller and prints each access (bad lines: ToolOnPty).
    const auto rt =
        Rows({"send", "--link", sim.Link, "1553:1", "rt", "6", "2=BEEF,1", "srq", "--count", "2", "--duration", "20",
                 "--send", "1553:0=tx:rt=6:sa=2:wc=2", "--send", "1553:0=rx:rt=6:sa=4:77"},
            2);
    EXPECT_EQ(Fields(rt[0]), (Row{"A", "RT->BC", "6", "2", "2", "3100", "srq", "BEEF.0001"}));
    EXPECT_EQ(Fields(rt[1]), (Row{"A", "BC->RT", "6", "4", "1", "3100", "srq", "0077"}));
}

// Three cycles of two minor frames (2 ms, 3 ms): every transfer in order, each frame on its period's grid.
TEST(Tool1553, ScheduleRunsItsMinorFramesForTheCyclesAsked)
{
    SimProcess sim(false, "halden", "3", {"--mil1553-rt", "5"});
    const auto lines = Rows({"send", "--link", sim.Link, "1553:0", "bc", "rx", "rt=5", "sa=2", "1,2,3", "tx", "rt=5",
                                "sa=2", "wc=3", "--frame", "2ms=0,1", "--frame", "3000us=1", "--count", "3"},
        9);
    const double frameStart[3] = {0, 0.002, 0.005}; // within a cycle of 5 ms
    for (size_t i = 0; i < lines.size(); ++i) {
        const size_t cycle = i / 3, slot = i % 3;
        const Row want = slot == 0 ? Row{"A", "BC->RT", "5", "2", "3", "2800", "-", "0001.0002.0003"}
                                   : Row{"A", "RT->BC", "5", "2", "3", "2800", "-", "0001.0002.0003"};
        EXPECT_EQ(Fields(lines[i]), want) << i;
        if (slot != 1) {
            const double t = std::stod(lines[i][0]) - std::stod(lines[0][0]);
            // The host-clock fit of the unit's stamps may move a tick while it settles (seen under ASan).
            EXPECT_NEAR(t, 0.005 * double(cycle) + frameStart[slot == 0 ? 0 : 1], 0.0015) << i;
        }
    }
    const Output summary = Tool({"send", "--link", sim.Link, "1553:0", "bc", "tx", "rt=5", "sa=1", "wc=1", "--frame",
        "1ms=0", "--count", "10", "--summary"});
    EXPECT_EQ(summary.Status, 0) << summary.Err;
    ASSERT_EQ(summary.Lines().size(), 1u) << summary.Out;
    EXPECT_EQ(summary.Lines()[0].rfind("10 transfers in ", 0), 0u) << summary.Out;
    EXPECT_NE(summary.Out.find(" s, 0 failed, 0 lost"), std::string::npos) << summary.Out;
}
