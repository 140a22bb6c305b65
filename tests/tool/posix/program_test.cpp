// The built hdwtool run as a user runs it: against hdwsim on a pseudo-terminal or UDP, or an in-process emulator.
#include <HdwLib/links/HdwUdpSocket.h>

#include "links/posix/PtyPair.h"
#include "Spawn.h"
#include "support/Wait.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

using namespace tooltest;

// The TIME column over the unit clock's 32-bit wrap (3 s after its start) rises without a step back;
// then ARINC 429 words through a label filter (CAN frames over UDP: capture/test_candump_log.py).
TEST(ToolMonitor, TimeColumnNeverWrapsAndALabelFilterPassesItsLabelAndSdiOverUdp)
{
    SimProcess sim(true, "halden", "3", {"--clock-start", "4294964296"});
    const auto rows =
        Rows({"monitor", "--link", sim.Link, "a429rx:0", "--count", "6", "--duration", "40", "--time", "relative",
                 "--send", "a429tx:0=label=203,data=0x1234", "--repeat", "6", "--interval", "700"},
            6);
    EXPECT_LT(std::stod(rows[0][0]), 30.0);
    for (size_t i = 1; i < 6; ++i) {
        EXPECT_GT(std::stod(rows[i][0]), std::stod(rows[i - 1][0]));
        EXPECT_LT(std::stod(rows[i][0]) - std::stod(rows[i - 1][0]), 10.0);
    }

    // The label filter passes label 203 with SDI 1 only: not another SDI, not another label.
    const auto filtered = Rows(
        {"monitor", "--link", sim.Link, "a429rx:1", "--rate", "high", "--accept", "203:1", "--count", "4", "--duration",
            "20", "--send", "a429tx:1=label=203,sdi=1,data=0x1234,ssm=3", "--send", "a429tx:1=0xE0048D83", "--send",
            "a429tx:1=label=203,sdi=2", "--send", "a429tx:1=label=204,sdi=1", "--repeat", "2", "--interval", "5"},
        4);
    const Row expected[] = {{"a429rx:1", "203", "1", "01234", "3", "0", "6048D183"},
        {"a429rx:1", "203", "1", "00123", "3", "1", "E0048D83"}};
    for (size_t i = 0; i < 4; ++i)
        EXPECT_EQ(Row(filtered[i].begin() + 1, filtered[i].end()), expected[i % 2]);
}

// The generator's labels reach the unit at their rates; bad labels are refused before a unit is touched.
TEST(ToolGen, LabelsReachTheTransmitterAndBadLabelsAreRefused)
{
    LocalSim sim("halden", "3", true);
    const Row w = Rows(
        {"gen", "--link", sim.Link, "a429tx:2", "--rate", "high", "--duration", "1",
            "label=203,rate=50,bnr=sine,range=512,res=0.25,low=-10,high=10,period=1", "label=350,rate=20,counter=0:99"},
        1)[0];
    ASSERT_GE(w.size(), 11u);
    EXPECT_EQ(w[0], "a429tx:2:");
    const unsigned long generated = std::stoul(w[6]);
    EXPECT_EQ(w[9], "0"); // skipped
    EXPECT_EQ(sim.Counters().A429Pushed[2], generated);
    EXPECT_EQ(sim.Counters().A429FifoDropped[2], 0u);
    // 70 words a second for a second timed by the host: a tick either way.
    EXPECT_GE(generated, 60u);
    EXPECT_LE(generated, 100u);

    const Output r = Tool({"gen", "--link", sim.Link, "a429tx:2", "label=203,rate=0"});
    EXPECT_EQ(r.Status, 2);
    EXPECT_NE(r.Err.find("gen:"), std::string::npos) << r.Err;
    EXPECT_EQ(sim.Counters().A429Pushed[2], generated);
}

// A Halden and a Travin on pseudo-terminals: list (no header when piped; the key, seventh column to the end,
// names the receiver for monitor), discrete banks, a PC serial port, then each refusal: one stderr line, no stdout.
TEST(ToolOnPty, ListKeysDiscreteBanksPcSerialPortAndBadArgumentsUnknownPortsRefusedParametersDeadLinksTooFewMessages)
{
    SimProcess sim(false), travin(false, "travin", "5");
    const Output list = Tool({"list", "--link", sim.Link});
    ASSERT_EQ(list.Status, 0) << list.Err;
    EXPECT_EQ(list.Lines().size(), 14u) << list.Out; // 2 UART, 4+4 ARINC 429, 2 CAN, 2 MIL-STD-1553
    std::map<std::string, std::string> keys;
    unsigned a429rx = 0;
    for (const auto& l : list.Lines()) {
        const auto w = Words(l);
        ASSERT_GE(w.size(), 7u) << l;
        EXPECT_EQ(w[2], w[1] + ":" + w[0]) << l;
        EXPECT_EQ(w[3], "Halden");
        if (w[1] == "a429rx") { // numbered per type, channel = number
            EXPECT_EQ(w[0], std::to_string(a429rx));
            EXPECT_EQ(w[5], std::to_string(a429rx++));
        }
        keys[w[2]] = l.substr(l.find(w[6]));
    }
    const Output csv = Tool({"list", "--link", sim.Link, "--format", "csv"});
    EXPECT_EQ(csv.Lines().front(), "NUM,TYPE,PORT,MODEL,SERIAL,CHANNEL,KEY");
    EXPECT_EQ(csv.Lines().size(), 15u);
    ASSERT_EQ(keys["a429rx:2"].substr(0, 4), "3@2@");
    // Time stamp, port, label (three octal digits), SDI, data, SSM, parity, raw word.
    const Row mon = Rows({"monitor", "--link", sim.Link, keys["a429rx:2"], "--count", "1", "--duration", "20", "--send",
                             "a429tx:2=label=012,data=0x55"},
        1)[0];
    EXPECT_EQ(mon.size(), 8u);
    EXPECT_EQ(Row(mon.begin() + 1, mon.begin() + 5), (Row{"a429rx:2", "012", "0", "00055"}));

    // Discrete banks: outputs driven, outputs and wired inputs monitored.
    EXPECT_EQ(
        Rows({"send", "--link", travin.Link, "dout:2", "set=0x81", "toggle=0x01", "-v"}, 2)[1].back(), "toggle=0x01");
    // The inputs' 1 ms debounce filters lines 0 and 1, set and cleared 1 µs apart.
    std::vector<std::string> din1, dout1;
    for (const Row& w : Rows({"monitor", "--link", travin.Link, "din:1", "dout:1", "--count", "3", "--duration", "20",
                                 "--send", "dout:1=write=0x0F", "--send", "dout:1=clear=0x03"},
             3)) {
        ASSERT_EQ(w.size(), 5u);
        (w[1] == "din:1" ? din1 : dout1).push_back(w[2] + "/" + w[3] + "/" + w[4]);
    }
    EXPECT_EQ(dout1, (std::vector<std::string>{"0x0F/0x0F/00001111", "0x0C/0x03/00001100"}));
    EXPECT_EQ(din1, (std::vector<std::string>{"0x0C/0x0C/00001100"}));

    // Bytes sent on a PC serial port reach it; then it is a dead link.
    PtyPair pty;
    ASSERT_TRUE(pty.Ok());
    const Output pc = Tool({"send", "--link", "pcuart:" + pty.SlaveName(), "uart:0", "--rate", "57600", "hello\\n"});
    EXPECT_EQ(pc.Status, 0) << pc.Err;
    const auto got = pty.ReadMaster(6);
    EXPECT_EQ(std::string(got.begin(), got.end()), "hello\n");
    // Dead links: a pseudo-terminal and a UDP port nobody answers on, and no device at all.
    CKVX_HdwUdpSocket mute;
    ASSERT_EQ(mute.Open(0, CKVX_IpAddress(127, 0, 0, 1)), 0u);
    const std::string deadPty = "3:" + pty.SlaveName(),
                      deadUdp = "3:udp:127.0.0.1:" + std::to_string(mute.GetLocalPort());
    const struct {
        std::vector<std::string> Args;
        int Status;
        std::string Says;
        const char* AlsoSays = "";
    } cases[] = {{{"frobnicate"}, 2, "unknown subcommand"},
        {{"monitor", "--link", "3:/dev/null", "lin:0"}, 2, "is not a port"},
        {{"monitor", "--link", "3:/dev/null", "can:0", "--bogus"}, 2, "unknown option"},
        {{"monitor", "--link", "3:/dev/null", "a429rx:0", "--time", "wall"}, 2, "relative, absolute or delta"},
        {{"send", "--link", "3:/dev/null", "a429rx:0", "label=1"}, 2, "a429tx"},
        {{"list", "--link", "3:"}, 2, "CODE:LINK"},
        {{"list", "--link", "x:/dev/ttyUSB0"}, 2, "neither a number nor a driver name"},
        {{"send", "can:0"}, 2, "at least one value"},
        {{"monitor", "--link", sim.Link, "can:5"}, 1, "unknown port can:5: the units have can:0 to can:1"},
        {{"monitor", "--link", sim.Link, "can:0", "--bitrate", "7"}, 1, "cannot open can:0: argument out of range"},
        {{"monitor", "--link", sim.Link, "a429rx:0", "--rate", "50k"}, 1, "(result 2): rate 50000"},
        {{"monitor", "--link", sim.Link, "can:1", "--count", "1", "--duration", "0.3"}, 1, "0 of 1"},
        {{"send", "--link", sim.Link, "1553:0", "bc", "tx", "rt=31", "sa=1", "wc=1"}, 2,
            "terminal 31 only for receive"},
        {{"send", "--link", sim.Link, "1553:0", "bc", "tx", "rt=5", "sa=1", "wc=32", "--frame", "500us=0"}, 2,
            "more than its period"},
        {{"send", "--link", sim.Link, "1553:1", "rt", "31"}, 2, "from 0 to 30"},
        {{"monitor", "--link", sim.Link, "1553:1", "--log", "x.log"}, 2, "transfers are not captured"},
        {{"gen", "--link", sim.Link, "a429rx:0", "label=1,rate=1", "--duration", "0.1"}, 1, "ARINC 429 transmitters"},
        {{"replay", "--link", sim.Link, "/dev/null"}, 2, "a candump log file and a CAN port"},
        {{"replay", "--link", sim.Link, "/dev/null", "a429tx:0"}, 2, "not a CAN port"},
        {{"replay", "--link", sim.Link, "--interface", "can0", "--all-interfaces", "/dev/null", "can:0"}, 2, "exclude"},
        {{"replay", "--link", sim.Link, "/nonexistent/can.log", "can:0"}, 1, "cannot read /nonexistent/can.log"},
        {{"send", "--link", travin.Link, "dout:0", "blink=1"}, 2, "set=MASK"},
        {{"send", "--link", travin.Link, "dout:0", "set=0x100"}, 1, "(result 2)"}, // beyond the bank's lines
        {{"list"}, 1, "--link"}, {{"list", "--link", "77:/dev/null"}, 1, "no driver has device code 77"},
        {{"list", "--link", deadPty}, 1, "no unit answered on link " + deadPty + ": ", "(result 14)"},
        {{"list", "--link", deadUdp}, 1, "no unit answered on link " + deadUdp + ": ", "(result 14)"}};
    for (const auto& c : cases) {
        const Output o = Tool(c.Args);
        EXPECT_EQ(o.Status, c.Status) << c.Args[0] << " " << o.Err;
        // One line, "hdwtool: " first.
        EXPECT_TRUE(o.Err.rfind("hdwtool: ", 0) == 0 && o.Err.find('\n') == o.Err.size() - 1) << o.Err;
        EXPECT_NE(o.Err.find(c.Says), std::string::npos) << o.Err;
        EXPECT_NE(o.Err.find(c.AlsoSays), std::string::npos) << o.Err;
        EXPECT_TRUE(o.Out.empty()) << o.Out;
    }
}

// The demo's summary: a row per path (4 ARINC 429 wires, CAN both ways, 1553), each sent something and
// received all of it unaltered (1553 but `lost1553` transfers); `parityErrors` words with a parity error.
void ExpectNoLossSummary(const Output& o, unsigned parityErrors = 0, unsigned lost1553 = 0)
{
    const std::string result = parityErrors == 0 && lost1553 == 0 ? "result: no loss"
                                                                  : "result: LOSS, " + std::to_string(lost1553) +
            " lost, 0 altered and " + std::to_string(parityErrors) + " with a parity error of ";
    EXPECT_NE(o.Out.find(result), std::string::npos) << o.Out;
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

// Words whose parity the unit flipped and unanswered 1553 transfers: counted, marked, exit status 1.
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
    // The examples get a free UDP port for 55003, and a Travin's and a Wendal's pseudo-terminal.
    SimProcess sim(true);
    SimProcess travin(false, "travin", "5");
    SimProcess wendal(false, "wendal", "7");
    std::set<std::string> demoLinks;
    // replay's examples read the log that monitor's example writes.
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

// Bytes sent on a UART come out of the one wired to it. Both units' UARTs wake the tool through their signal
// services; on the Sorrel, monitor ends with the unit's counters.
TEST(ToolUart, MonitorSeesBytesOfTheWiredPortOnASorrelAndAHalden)
{
    struct Row {
        bool sorrel;
        const char *from, *to;
    };
    for (const Row& r : {Row{true, "uart:2", "uart:3"}, Row{false, "uart:0", "uart:1"}}) {
        SCOPED_TRACE(r.to);
        SimProcess sim(r.sorrel, r.sorrel ? "sorrel" : "halden", r.sorrel ? "sorrel" : "3");
        const Output m = Tool({"monitor", "--link", sim.Link, r.to, "--rate", "921600", "--count", "1", "--duration",
            "20", "--send", std::string(r.from) + "=hello"});
        ASSERT_EQ(m.Status, 0) << m.Err;
        EXPECT_NE(m.Out.find(r.to), std::string::npos) << m.Out;
        EXPECT_NE(m.Out.find("\"hello\""), std::string::npos) << m.Out;
        if (!r.sorrel)
            continue;
        EXPECT_NE(m.Err.find("uart:2 counters: received 0, lost 0, sent 5, accepted 5,"), std::string::npos) << m.Err;
        EXPECT_NE(m.Err.find("uart:3 counters: received 5, lost 0, sent 0,"), std::string::npos) << m.Err;
    }
}

namespace {

struct TempFile {
    explicit TempFile(const std::string& text)
    {
        char path[] = "/tmp/hdwtool_replay_XXXXXX";
        const int fd = mkstemp(path);
        EXPECT_GE(fd, 0);
        close(fd);
        Path = path;
        std::ofstream(Path) << text;
    }
    ~TempFile() { std::remove(Path.c_str()); }
    std::string Path;
};

// A transfer line without its time: PORT TARGET WRITE READ RESULT...
std::vector<std::string> Transfers(const std::vector<Row>& rows)
{
    std::vector<std::string> lines;
    for (const Row& w : rows) {
        lines.emplace_back();
        for (size_t i = 1; i < w.size(); ++i)
            lines.back() += (i > 1 ? " " : "") + w[i];
    }
    return lines;
}

std::string FileText(const std::string& path)
{
    std::stringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

} // namespace

// hdwtool replay and send against an emulator in this process, whose counters tell what was sent.
TEST(ToolReplayAndSend, ReplayKeepsGapsOrGoesFastMalformedLinesSendNothingAndSentWordsAndFramesReachTheUnit)
{
    LocalSim sim;
    // can0's frames span 0.6 s; another interface's lines and an error frame between.
    const TempFile log("(1700000000.000000) can0 123#DEADBEEF\n"
                       "(1700000000.100000) vcan9 555#01\n"
                       "\n"
                       "(1700000000.200000) can0 1F334455#R3\n"
                       "(1700000000.300000) can0 20000080#0000000000000000\n"
                       "(1700000000.400000) can0 7FF# R\n"
                       "(1700000000.500000) vcan9 556#02\n"
                       "(1700000000.600000) can0 00000001#0102030405060708\n");
    const TempFile bad("(1.000000) can0 123#00\n\n(1.5) can0 12#00\n");
    const auto start = std::chrono::steady_clock::now();
    const Output o = Tool({"replay", "--link", sim.Link, log.Path, "can:0", "--verbose"});
    const double took = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    ASSERT_EQ(o.Status, 0) << o.Err;
    std::vector<std::string> sent;
    for (const auto& l : o.Lines())
        sent.push_back(l.substr(l.rfind(' ') + 1));
    EXPECT_EQ(sent, (std::vector<std::string>{"123#DEADBEEF", "1F334455#R3", "7FF#", "00000001#0102030405060708"}));
    EXPECT_NE(o.Err.find("replayed 4 frames of can0 on can:0, skipped 2 lines of other interfaces, skipped 1 error "
                         "frames"),
        std::string::npos)
        << o.Err;
    EXPECT_GE(took, 0.6); // the gaps were kept (only a lower bound holds on a loaded machine)
    EXPECT_EQ(sim.Counters().CanTransmitted[0], 4u);

    Output r = Tool({"replay", "--link", sim.Link, "--fast", "--interface", "vcan9", log.Path, "can:1"});
    ASSERT_EQ(r.Status, 0) << r.Err;
    EXPECT_EQ(sim.Counters().CanTransmitted[1], 2u);
    r = Tool({"replay", "--link", sim.Link, "--fast", "--all-interfaces", log.Path, "can:0"});
    ASSERT_EQ(r.Status, 0) << r.Err;
    EXPECT_EQ(sim.Counters().CanTransmitted[0], 4u + 6u);
    // An interface the file does not have is an error, not an empty replay; a malformed line sends nothing.
    r = Tool({"replay", "--link", sim.Link, "--fast", "--interface", "can7", log.Path, "can:1"});
    EXPECT_EQ(r.Status, 1);
    EXPECT_NE(r.Err.find("has no line of interface can7 (it has can0, vcan9)"), std::string::npos) << r.Err;
    EXPECT_EQ(sim.Counters().CanTransmitted[1], 2u);
    r = Tool({"replay", "--link", sim.Link, bad.Path, "can:0"});
    EXPECT_EQ(r.Status, 1);
    EXPECT_NE(r.Err.find("replay: " + bad.Path + ":3: CAN identifier \"12\""), std::string::npos) << r.Err;
    EXPECT_EQ(sim.Counters().CanTransmitted[0], 4u + 6u);

    // send prints nothing without --verbose, and with it what was sent in the monitor's columns.
    Rows({"send", "--link", sim.Link, "a429tx:1", "label=203,data=1", "0x60000083", "label=0o10", "--repeat", "3",
             "--interval", "10"},
        0);
    EXPECT_EQ(sim.Counters().A429Transmitted[1], 9u);
    EXPECT_EQ(sim.Counters().A429Transmitted[0], 0u);
    const auto rows = Rows({"send", "--link", sim.Link, "can:0", "--bitrate", "250k", "123#11", "1F334455#R", "-v"}, 2);
    EXPECT_EQ(sim.Counters().CanTransmitted[0], 4u + 6u + 2u);
    EXPECT_EQ(rows[1].back(), "1F334455#R");
}

// I2C and SPI on a Wendal: a line per transfer with its result, the exit status, refusals before sending.
TEST(ToolSend, I2cAndSpiTransfersOnTheWendal)
{
    LocalSim sim("wendal", "7");
    const std::string& link = sim.Link;

    // Bad values and settings first: usage errors, nothing sent to the unit.
    using Args = std::vector<std::string>;
    for (const Args& bad : {Args{"send", "i2c:0", "addr=0x80"}, Args{"send", "spi:0", "cs=1"},
             Args{"send", "spi:0", "--mode", "4", "out=hex:01"},
             Args{"monitor", "spi:0", "--poll", "out=hex:01,every=0"},
             Args{"monitor", "i2c:0", "can:0", "--poll", "addr=0x50"}, Args{"monitor", "i2c:0"}}) {
        Args args{bad[0], "--link", link};
        args.insert(args.end(), bad.begin() + 1, bad.end());
        EXPECT_EQ(Tool(args).Status, 2) << bad[0] << " " << bad[2];
    }
    EXPECT_EQ(sim.Counters().CommandsReceived, 0u);

    // A missing acknowledge fails the run.
    EXPECT_EQ(Transfers(Rows({"send", "--link", link, "i2c:1", "--speed", "400k", "addr=0x50,reg=0x20,write=hex:0A.0B",
                                 "addr=0x50,reg=0x20,read=2", "addr=0x33", "addr=0x20,write=hex:01"},
                  4, 1)),
        (std::vector<std::string>{"i2c:1 0x50 20.0A.0B - ok", "i2c:1 0x50 20 0A.0B ok", "i2c:1 0x33 - - nack address",
            "i2c:1 0x20 01 - nack data"}));
    EXPECT_EQ(sim.Counters().I2cTransfers[1], 4u);
    EXPECT_EQ(Transfers(Rows({"send", "--link", link, "spi:0", "--mode", "2", "--clock", "5M", "out=hex:01.02.03"}, 1)),
        (std::vector<std::string>{"spi:0 cs=port 01.02.03 01.02.03 ok"}));

    // monitor polls on their intervals, in the same lines: 0x33 is due again after 1 s, 0x50 200 ms after the start.
    const auto polls = Rows({"monitor", "--link", link, "i2c:1", "--count", "3", "--poll",
                                "addr=0x50,reg=0x20,read=2,every=200ms", "--poll", "addr=0x33,every=1"},
        3);
    EXPECT_EQ(Transfers(polls),
        (std::vector<std::string>{"i2c:1 0x50 20 0A.0B ok", "i2c:1 0x33 - - nack address", "i2c:1 0x50 20 0A.0B ok"}));
    EXPECT_GE(std::stod(polls[2][0]), 0.19);
}

// monitor --reconnect against hdwsim through its symbolic link, unplugged and plugged back by signals: the monitor
// says when the unit went and came back, goes on printing traffic and counts the outage.
TEST(ToolMonitorReconnect, KeepsRunningThroughAnUnplugAndCountsTheOutage)
{
    const std::string base = "/tmp/hdwtool-reconnect-" + std::to_string(getpid());
    const std::string link = base + "-link", outPath = base + "-out", errPath = base + "-err";
    auto sim = std::make_unique<SimProcess>(false, "halden", "3", std::vector<std::string>{"--link", link});
    EXPECT_EQ(sim->Line(), "link " + link);

    const int out = open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    const int err = open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    ASSERT_GE(out, 0);
    ASSERT_GE(err, 0);
    const pid_t tool =
        Spawn({HDWTOOL_PROGRAM, "monitor", "--link", "3:" + link, "a429rx:1", "--reconnect", "--send",
                  "a429tx:1=label=201,data=0x10", "--repeat", "100000", "--interval", "20", "--duration", "100"},
            out, err, 120); // a hung child cannot outlive the test
    close(out);
    close(err);

    // The output, and how many of its lines after `from` show a word of a429rx:1.
    std::string text;
    auto look = [&](auto&& done) {
        return testsupport::WaitUntil(
            [&] {
                text = FileText(outPath);
                return done();
            },
            30000);
    };
    auto words = [&](size_t from) {
        size_t n = 0;
        for (size_t at = text.find("a429rx:1", from); at != std::string::npos; at = text.find("a429rx:1", at + 1))
            ++n;
        return n;
    };
    EXPECT_TRUE(look([&] { return words(0) >= 3; })) << "no traffic before the unplug";
    kill(sim->Pid, SIGUSR1);
    EXPECT_EQ(sim->Line(), "unplugged");
    EXPECT_TRUE(look([&] { return text.find("\nunit lost ") != std::string::npos; })) << "no unit-lost line";
    kill(sim->Pid, SIGUSR2);
    EXPECT_EQ(sim->Line(), "plugged");
    EXPECT_TRUE(look([&] {
        const size_t back = text.find("\nunit back ");
        return back != std::string::npos && words(back) >= 3;
    })) << "no traffic after the unit came back";

    kill(tool, SIGINT);
    int status = -1;
    waitpid(tool, &status, 0);
    sim.reset();
    EXPECT_NE(access(link.c_str(), F_OK), 0); // hdwsim removed its link
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
    const size_t lost = text.find("\nunit lost " + link + " outages=1 lost-items="),
                 back = text.find("\nunit back " + link + " returns=1 away-ms=");
    EXPECT_NE(back, std::string::npos) << text;
    EXPECT_LT(lost, back) << text;
    EXPECT_NE(FileText(errPath).find("unit outages 1, back 1"), std::string::npos) << FileText(errPath);
    unlink(outPath.c_str());
    unlink(errPath.c_str());
}
