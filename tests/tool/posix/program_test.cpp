// The built hdwtool run as a user runs it: against hdwsim (a separate
// process) on a pseudo-terminal and on loopback UDP, and against an emulator
// in this process whose counters tell what reached the buses.
#include <hdwsim/Emulator.h>

#include <HdwLib/links/HdwUdpSocket.h>

#include "links/posix/PtyPair.h"
#include "Spawn.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <filesystem>
#include <set>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

using tooltest::Output;
using tooltest::SimProcess;
using tooltest::Spawn;
using tooltest::Tool;
using tooltest::Words;

} // namespace

// The TIME column over the unit clock's 32-bit wrap (the emulator's clock
// starts 3 s before it): relative times rise from the start without a step
// back; a bad mode is a usage error. (The modes' arithmetic: core_test TimeColumnText.)
TEST(ToolMonitor, TimeColumnNeverWraps)
{
    SimProcess sim(true, "halden", "3", {"--clock-start", "4294964296"});
    const Output o = Tool({"monitor", "--link", sim.Link, "a429rx:0", "--count", "6", "--duration", "40", "--time",
        "relative", "--send", "a429tx:0=label=203,data=0x1234", "--repeat", "6", "--interval", "700"});
    ASSERT_EQ(o.Status, 0) << o.Err;
    std::vector<double> t;
    for (const auto& l : o.Lines())
        t.push_back(std::stod(Words(l).at(0)));
    ASSERT_EQ(t.size(), 6u) << o.Out;
    EXPECT_LT(t[0], 30.0);
    for (size_t i = 1; i < 6; ++i) {
        EXPECT_GT(t[i], t[i - 1]);
        EXPECT_LT(t[i] - t[i - 1], 10.0);
    }
    const Output bad = Tool({"monitor", "--link", sim.Link, "a429rx:0", "--time", "wall"});
    EXPECT_EQ(bad.Status, 2);
    EXPECT_NE(bad.Err.find("relative, absolute or delta"), std::string::npos) << bad.Err;
}

TEST(ToolList, RowsPerPortAndKeysThatMonitorAccepts)
{
    const struct {
        const char *Unit, *Code, *Model;
        size_t Rows;
        std::string Rx, Label;
    } units[] = {
        {"halden", "3", "Halden", 14, "2", "012"}, // 2 UART, 4+4 ARINC 429, 2 CAN, 2 MIL-STD-1553
    };
    for (const auto& u : units) {
        SCOPED_TRACE(u.Unit);
        SimProcess sim(false, u.Unit, u.Code);
        // No header when piped; each row's name columns and model; the key
        // runs from the seventh column to the end of the line.
        const Output o = Tool({"list", "--link", sim.Link});
        ASSERT_EQ(o.Status, 0) << o.Err;
        EXPECT_EQ(o.Lines().size(), u.Rows) << o.Out;
        std::map<std::string, std::string> keys;
        unsigned a429rx = 0;
        for (const auto& l : o.Lines()) {
            const auto w = Words(l);
            ASSERT_GE(w.size(), 7u) << l;
            EXPECT_EQ(w[2], w[1] + ":" + w[0]) << l;
            EXPECT_EQ(w[3], u.Model);
            if (w[1] == "a429rx") { // numbered per type, channel = number on these units
                EXPECT_EQ(w[0], std::to_string(a429rx));
                EXPECT_EQ(w[5], std::to_string(a429rx++));
            }
            keys[w[2]] = l.substr(l.find(w[6]));
        }
        const Output csv = Tool({"list", "--link", sim.Link, "--format", "csv"});
        EXPECT_EQ(csv.Lines().front(), "NUM,TYPE,PORT,MODEL,SERIAL,CHANNEL,KEY");
        EXPECT_EQ(csv.Lines().size(), u.Rows + 1);
        // The key printed by list names the same receiver for monitor.
        const std::string rx = "a429rx:" + u.Rx;
        ASSERT_EQ(keys[rx].substr(0, 4), "3@" + u.Rx + "@");
        const Output m = Tool({"monitor", "--link", sim.Link, keys[rx], "--count", "1", "--duration", "20", "--send",
            "a429tx:" + u.Rx + "=label=" + u.Label + ",data=0x55"});
        ASSERT_EQ(m.Status, 0) << m.Err;
        ASSERT_EQ(m.Lines().size(), 1u) << m.Out;
        const auto w = Words(m.Lines()[0]); // time stamp, port, label, SDI, data, SSM, parity, raw word
        ASSERT_EQ(w.size(), 8u);
        EXPECT_EQ(w[1], rx);
        EXPECT_EQ(w[2], u.Label);
        EXPECT_EQ(w[4], "00055");
    }
}

TEST(ToolMonitor, Arinc429WordsThroughALabelFilterAndCanFramesRoundTripOverUdp)
{
    SimProcess sim(true);
    const std::vector<std::string> frames = {
        "123#DEADBEEF", "1F334455#R", "123#", "7FF#0102030405060708", "00000001#R2"};
    std::vector<std::string> args = {"monitor", "--link", sim.Link, "a429rx:1", "can:1", "--rate", "high", "--bitrate",
        "500k", "--sample-point", "87.5%", "--accept", "203:1", "--count", "14", "--duration", "20", "--send",
        "a429tx:1=label=203,sdi=1,data=0x1234,ssm=3", "--send", "a429tx:1=0xE0048D83", "--repeat", "2", "--interval",
        "5"};
    // The label filter passes label 203 with SDI 1 only: not another SDI, not another label.
    for (const char* other : {"label=203,sdi=2", "label=204,sdi=1"})
        args.insert(args.end(), {"--send", std::string("a429tx:1=") + other});
    for (const auto& f : frames)
        args.insert(args.end(), {"--send", "can:0=" + f});
    const Output o = Tool(args);
    ASSERT_EQ(o.Status, 0) << o.Err;
    // Each port's lines in the order sent, without the time stamp.
    std::vector<std::vector<std::string>> words, cans;
    for (const auto& l : o.Lines()) {
        auto w = Words(l);
        w.erase(w.begin());
        (w.front() == "can:1" ? cans : words).push_back(w);
    }
    const std::vector<std::vector<std::string>> expected = {
        {"a429rx:1", "203", "1", "01234", "3", "0", "6048D183"},
        {"a429rx:1", "203", "1", "00123", "3", "1", "E0048D83"},
    };
    ASSERT_EQ(words.size(), 4u) << o.Out;
    for (size_t i = 0; i < words.size(); ++i)
        EXPECT_EQ(words[i], expected[i % 2]);
    // The columns between come from CanFields, checked in core_test.
    ASSERT_EQ(cans.size(), 2 * frames.size()) << o.Out;
    for (size_t i = 0; i < cans.size(); ++i) {
        ASSERT_EQ(cans[i].size(), 6u);
        EXPECT_EQ(cans[i][5], frames[i % frames.size()]);
    }
}

// UART bytes reaching a monitor: the uart:1 example of "monitor --help" (ToolHelp)
// must count its one line; their columns are UartFields in core_test (Columns).

TEST(ToolSend, WordsAndFramesReachTheUnitsTransmitters)
{
    hdwsim::Emulator::Options opt;
    opt.Pty = true;
    hdwsim::Emulator sim(hdwsim::HaldenModel(), opt);
    std::string error;
    ASSERT_TRUE(sim.Start(&error)) << error;
    const std::string link = "3:" + sim.PtyPath();
    Output o = Tool({"send", "--link", link, "a429tx:1", "label=203,data=1", "0x60000083", "label=0o10", "--repeat",
        "3", "--interval", "10"});
    ASSERT_EQ(o.Status, 0) << o.Err;
    EXPECT_TRUE(o.Out.empty());
    auto c = sim.GetCounters();
    EXPECT_EQ(c.A429Transmitted[1], 9u);
    EXPECT_EQ(c.A429Transmitted[0], 0u);

    o = Tool({"send", "--link", link, "can:0", "--bitrate", "250k", "123#11", "1F334455#R", "-v"});
    ASSERT_EQ(o.Status, 0) << o.Err;
    c = sim.GetCounters();
    EXPECT_EQ(c.CanTransmitted[0], 2u);
    // --verbose prints what was sent in the monitor's columns.
    ASSERT_EQ(o.Lines().size(), 2u);
    EXPECT_EQ(Words(o.Lines()[1]).back(), "1F334455#R");
}

// The generator's labels reach the unit at their rates for the run's length
// (within a few words: the run's start and end are the host's), and bad
// labels are refused before a unit is touched.
TEST(ToolGen, LabelsReachTheTransmitterAndBadLabelsAreRefused)
{
    hdwsim::Emulator::Options opt;
    opt.Pty = true;
    opt.Pacing = true;
    hdwsim::Emulator sim(hdwsim::HaldenModel(), opt);
    std::string error;
    ASSERT_TRUE(sim.Start(&error)) << error;
    const std::string link = "3:" + sim.PtyPath();
    const Output o = Tool({"gen", "--link", link, "a429tx:2", "--rate", "high", "--duration", "1",
        "label=203,rate=50,bnr=sine,range=512,res=0.25,low=-10,high=10,period=1", "label=350,rate=20,counter=0:99"});
    ASSERT_EQ(o.Status, 0) << o.Err;
    ASSERT_EQ(o.Lines().size(), 1u) << o.Out;
    const auto w = Words(o.Lines()[0]);
    ASSERT_GE(w.size(), 11u) << o.Out;
    EXPECT_EQ(w[0], "a429tx:2:");
    const unsigned long generated = std::stoul(w[6]);
    EXPECT_EQ(w[9], "0"); // skipped
    const auto c = sim.GetCounters();
    EXPECT_EQ(c.A429Pushed[2], generated);
    EXPECT_EQ(c.A429FifoDropped[2], 0u);
    // 70 words a second over the run's second: its start and end are the
    // host's own, so allow a tick's worth of scheduling either way.
    EXPECT_GE(generated, 60u);
    EXPECT_LE(generated, 100u);

    const Output r = Tool({"gen", "--link", link, "a429tx:2", "label=203,rate=0"});
    EXPECT_EQ(r.Status, 2);
    EXPECT_NE(r.Err.find("gen:"), std::string::npos) << r.Err;
    EXPECT_EQ(sim.GetCounters().A429Pushed[2], generated);
    const Output rx = Tool({"gen", "--link", link, "a429rx:0", "label=1,rate=1", "--duration", "0.1"});
    EXPECT_EQ(rx.Status, 1);
    EXPECT_NE(rx.Err.find("ARINC 429 transmitters"), std::string::npos) << rx.Err;
}

TEST(ToolSend, BytesReachAPcSerialPort)
{
    PtyPair pty;
    ASSERT_TRUE(pty.Ok());
    const Output o = Tool({"send", "--link", "pcuart:" + pty.SlaveName(), "uart:0", "--rate", "57600", "hello\\n"});
    EXPECT_EQ(o.Status, 0) << o.Err;
    const auto got = pty.ReadMaster(6);
    EXPECT_EQ(std::string(got.begin(), got.end()), "hello\n");
}

TEST(ToolErrors, BadArgumentsUnknownPortsRefusedParametersDeadLinksAndTooFewMessages)
{
    // Each parser's own messages are checked in core_test; here one case per
    // parser shows its refusal reaching stderr as one line with status 2.
    SimProcess sim(false);
    // Dead links: a pseudo-terminal and a UDP port nobody answers on, and no device at all.
    PtyPair pty;
    ASSERT_TRUE(pty.Ok());
    CKVX_HdwUdpSocket mute;
    ASSERT_EQ(mute.Open(0, CKVX_IpAddress(127, 0, 0, 1)), 0u);
    const std::string deadPty = "3:" + pty.SlaveName(),
                      deadUdp = "3:udp:127.0.0.1:" + std::to_string(mute.GetLocalPort());
    const struct {
        std::vector<std::string> Args;
        int Status;
        std::string Says;
        const char* AlsoSays = "";
    } cases[] = {
        {{"frobnicate"}, 2, "unknown subcommand"},
        {{"monitor", "--link", "3:/dev/null", "lin:0"}, 2, "is not a port"},
        {{"monitor", "--link", "3:/dev/null", "can:0", "--bogus"}, 2, "unknown option"},
        {{"send", "--link", "3:/dev/null", "a429rx:0", "label=1"}, 2, "a429tx"},
        {{"list", "--link", "3:"}, 2, "CODE:LINK"},
        {{"list", "--link", "x:/dev/ttyUSB0"}, 2, "neither a number nor a driver name"},
        {{"send", "can:0"}, 2, "at least one value"},
        {{"monitor", "--link", sim.Link, "can:5"}, 1, "unknown port can:5: the units have can:0 to can:1"},
        {{"monitor", "--link", sim.Link, "can:0", "--bitrate", "7"}, 1, "cannot open can:0: argument out of range"},
        {{"monitor", "--link", sim.Link, "a429rx:0", "--rate", "50k"}, 1, "(result 2): rate 50000"},
        {{"monitor", "--link", sim.Link, "can:1", "--count", "1", "--duration", "0.3"}, 1, "0 of 1"},
        {{"list"}, 1, "--link"},
        {{"list", "--link", "77:/dev/null"}, 1, "no driver has device code 77"},
        {{"list", "--link", deadPty}, 1, "no unit answered on link " + deadPty + ": ", "(result 14)"},
        {{"list", "--link", deadUdp}, 1, "no unit answered on link " + deadUdp + ": ", "(result 14)"},
    };
    for (const auto& c : cases) {
        const Output o = Tool(c.Args);
        EXPECT_EQ(o.Status, c.Status) << c.Args[0] << " " << o.Err;
        // One line, "hdwtool: " first.
        EXPECT_TRUE(o.Err.rfind("hdwtool: ", 0) == 0 && o.Err.find('\n') == o.Err.size() - 1) << o.Err;
        EXPECT_NE(o.Err.find(c.Says), std::string::npos) << o.Err;
        EXPECT_NE(o.Err.find(c.AlsoSays), std::string::npos) << o.Err;
    }
}

// The demo's summary: a row per path (4 ARINC 429 wires, CAN both ways, the
// 1553 controller to its terminal), each sent something and received all of
// it unaltered (the 1553 path but `lost1553` transfers), and `parityErrors`
// words with a parity error in all.
void ExpectNoLossSummary(const Output& o, unsigned parityErrors = 0, unsigned lost1553 = 0)
{
    if (parityErrors == 0 && lost1553 == 0)
        EXPECT_NE(o.Out.find("result: no loss"), std::string::npos) << o.Out;
    else
        EXPECT_NE(o.Out.find("result: LOSS, " + std::to_string(lost1553) + " lost, 0 altered and " +
                      std::to_string(parityErrors) + " with a parity error of "),
            std::string::npos)
            << o.Out;
    unsigned rows = 0, parity = 0;
    for (const auto& l : o.Lines()) {
        const auto w = Words(l);
        if (w.size() == 7 && w[0].find('>') != std::string::npos) {
            ++rows;
            const unsigned lost = w[0] == "1553:0>1553:1" ? lost1553 : 0;
            EXPECT_NE(w[1], "0") << l;
            EXPECT_EQ(std::stoul(w[1]), std::stoul(w[2]) + lost) << l;
            EXPECT_EQ(w[3], std::to_string(lost)) << l;
            EXPECT_EQ(w[4], "0") << l;
            parity += unsigned(std::stoul(w[5]));
        }
    }
    EXPECT_EQ(rows, 7u) << o.Out;
    EXPECT_EQ(parity, parityErrors) << o.Out;
}

// Words whose parity the emulated unit flipped and 1553 transfers the
// terminal did not answer: counted in the summary, each word's line marked
// (--verbose prints every word), and the exit status is 1.
TEST(ToolDemo, ParityErrorsAndUnansweredTransfersAreCountedAndMarked)
{
    const Output o = Tool({"demo", "--duration", "1", "--parity-faults", "3", "--no-response", "2", "--verbose"}, 90);
    EXPECT_EQ(o.Status, 1) << o.Err;
    ExpectNoLossSummary(o, 3, 2);
    unsigned marked = 0, noResponse = 0;
    for (const auto& l : o.Lines()) {
        const auto w = Words(l);
        if (w.size() == 8 && w[1].rfind("a429rx:", 0) == 0 && w[6].back() == '!')
            ++marked;
        if (w.size() == 10 && w[1] == "1553:0" && w[8] == "noresp")
            ++noResponse;
    }
    EXPECT_EQ(marked, 3u) << o.Out;
    EXPECT_EQ(noResponse, 2u) << o.Out;
}

TEST(ToolHelp, EveryExampleRunsAsPrintedAndTheDemoLosesNothingOnAPtyAndOverUdp)
{
    const Output main = Tool({"--help"});
    ASSERT_EQ(main.Status, 0);
    for (const char* sub : {"list", "monitor", "send", "gen", "demo", "replay"})
        EXPECT_NE(main.Out.find("  " + std::string(sub) + " "), std::string::npos) << sub;
    // The examples name the emulator's UDP port 55003; run them against one
    // on a free port instead, with that port put in. The discrete and I2C
    // examples name a Travin's and a Wendal's pseudo-terminal.
    SimProcess sim(true);
    SimProcess travin(false, "travin", "5");
    SimProcess wendal(false, "wendal", "7");
    std::set<std::string> demoLinks;
    // replay's examples read the log that monitor's example writes, in a
    // directory of their own that goes with the test.
    char dirTemplate[] = "/tmp/hdwtool-help-XXXXXX";
    ASSERT_NE(mkdtemp(dirTemplate), nullptr);
    const std::string dir = dirTemplate;
    for (const char* sub : {"list", "monitor", "replay", "send", "gen", "demo"}) {
        const Output help = Tool({sub, "--help"});
        ASSERT_EQ(help.Status, 0) << sub;
        EXPECT_NE(help.Out.find("examples"), std::string::npos) << sub;
        unsigned examples = 0;
        for (const auto& line : help.Lines()) {
            if (line.rfind("  hdwtool ", 0) != 0)
                continue;
            ++examples;
            // Split like a shell: the examples quote single words only.
            auto args = Words(line.substr(10));
            for (auto& a : args) {
                a.erase(std::remove(a.begin(), a.end(), '\''), a.end());
                if (auto at = a.find("55003"); at != std::string::npos)
                    a.replace(at, 5, sim.Port);
                if (a == "5:/dev/pts/N" || a == "7:/dev/pts/N")
                    a = a[0] == '5' ? travin.Link : wendal.Link;
            }
            if (args.size() == 1 && args[0] == "demo")
                args.insert(args.end(), {"--duration", "1"}); // the same run, shorter
            const Output o = Tool(args, 90, dir);
            EXPECT_EQ(o.Status, 0) << line << "\n" << o.Err;
            if (args[0] == "demo") {
                ExpectNoLossSummary(o);
                const bool udp = o.Out.find("udp:127.0.0.1:") != std::string::npos;
                demoLinks.insert(udp ? "udp" : o.Out.find("/dev/pts/") != std::string::npos ? "pty" : "?");
            }
        }
        EXPECT_GE(examples, 1u) << sub;
    }
    EXPECT_EQ(demoLinks, (std::set<std::string>{"pty", "udp"}));
    std::filesystem::remove_all(dir);
}

// Discrete banks of a Travin: send drives an output bank and monitor shows
// what its input bank (wired to it) and the outputs did.
TEST(ToolDiscrete, SendAndMonitorTheBanks)
{
    SimProcess sim(false, "travin", "5");
    Output o = Tool({"send", "--link", sim.Link, "dout:2", "set=0x81", "toggle=0x01", "-v"});
    ASSERT_EQ(o.Status, 0) << o.Err;
    ASSERT_EQ(o.Lines().size(), 2u);
    EXPECT_EQ(Words(o.Lines()[1]).back(), "toggle=0x01");

    // The inputs' default debounce (1 ms) filters lines 0 and 1, which the
    // outputs set and cleared 1 µs apart.
    o = Tool({"monitor", "--link", sim.Link, "din:1", "dout:1", "--count", "3", "--duration", "20", "--send",
        "dout:1=write=0x0F", "--send", "dout:1=clear=0x03"});
    ASSERT_EQ(o.Status, 0) << o.Err;
    std::vector<std::string> din1, dout1;
    for (const auto& line : o.Lines()) {
        const auto w = Words(line);
        ASSERT_EQ(w.size(), 5u) << line;
        (w[1] == "din:1" ? din1 : dout1).push_back(w[2] + "/" + w[3] + "/" + w[4]);
    }
    EXPECT_EQ(dout1, (std::vector<std::string>{"0x0F/0x0F/00001111", "0x0C/0x03/00001100"}));
    EXPECT_EQ(din1, (std::vector<std::string>{"0x0C/0x0C/00001100"}));

    // Values that are no discrete operation, or lines beyond the bank.
    o = Tool({"send", "--link", sim.Link, "dout:0", "blink=1"});
    EXPECT_NE(o.Status, 0);
    EXPECT_NE(o.Err.find("set=MASK"), std::string::npos) << o.Err;
    o = Tool({"send", "--link", sim.Link, "dout:0", "set=0x100"});
    EXPECT_NE(o.Status, 0);
    EXPECT_NE(o.Err.find("result 2"), std::string::npos) << o.Err;
}

// Bytes sent on one Sorrel UART come out of the UART it is wired to, and
// monitor ends with the unit's counters of both.
TEST(ToolSorrel, MonitorSeesBytesOfTheWiredPort)
{
    SimProcess sim(true, "sorrel", "sorrel");
    const Output m = Tool({"monitor", "--link", sim.Link, "uart:3", "--rate", "921600", "--count", "1", "--duration",
        "20", "--send", "uart:2=hello"});
    ASSERT_EQ(m.Status, 0) << m.Err;
    EXPECT_NE(m.Out.find("uart:3"), std::string::npos) << m.Out;
    EXPECT_NE(m.Out.find("\"hello\""), std::string::npos) << m.Out;
    EXPECT_NE(m.Err.find("uart:2 counters: received 0, lost 0, sent 5, accepted 5,"), std::string::npos) << m.Err;
    EXPECT_NE(m.Err.find("uart:3 counters: received 5, lost 0, sent 0,"), std::string::npos) << m.Err;
}
