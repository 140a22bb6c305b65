// The built hdwtool run as a user runs it: against hdwsim (a separate
// process) on a pseudo-terminal and on loopback UDP, and against an emulator
// in this process whose counters tell what reached the buses.
#include <hdwsim/Emulator.h>

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <csignal>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <pty.h>
#include <sstream>
#include <string>
#include <sys/socket.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>
#include <vector>

namespace {

struct Output {
    int Status = -1;
    std::string Out, Err;
    std::vector<std::string> Lines() const
    {
        std::vector<std::string> lines;
        std::istringstream in(Out);
        for (std::string l; std::getline(in, l);)
            lines.push_back(l);
        return lines;
    }
};

std::vector<std::string> Words(const std::string& line)
{
    std::vector<std::string> w;
    std::istringstream in(line);
    for (std::string s; in >> s;)
        w.push_back(s);
    return w;
}

// Runs a program with its output on pipes (not a terminal); kills it after
// `timeoutS` seconds.
Output Run(const std::string& program, const std::vector<std::string>& args, int timeoutS = 60)
{
    int out[2], err[2];
    EXPECT_EQ(pipe(out), 0);
    EXPECT_EQ(pipe(err), 0);
    const pid_t pid = fork();
    if (pid == 0) {
        dup2(out[1], 1);
        dup2(err[1], 2);
        close(out[0]);
        close(err[0]);
        std::vector<char*> argv{const_cast<char*>(program.c_str())};
        for (const auto& a : args)
            argv.push_back(const_cast<char*>(a.c_str()));
        argv.push_back(nullptr);
        execv(program.c_str(), argv.data());
        _exit(127);
    }
    close(out[1]);
    close(err[1]);
    Output o;
    pollfd fds[2] = {{out[0], POLLIN, 0}, {err[0], POLLIN, 0}};
    const auto deadline = time(nullptr) + timeoutS;
    int open = 2;
    while (open > 0 && time(nullptr) < deadline) {
        if (poll(fds, 2, 200) <= 0)
            continue;
        for (int i = 0; i < 2; ++i) {
            if (fds[i].fd < 0 || !(fds[i].revents & (POLLIN | POLLHUP)))
                continue;
            char buf[4096];
            const ssize_t n = read(fds[i].fd, buf, sizeof buf);
            if (n <= 0) {
                close(fds[i].fd);
                fds[i].fd = -1;
                --open;
            } else {
                (i == 0 ? o.Out : o.Err).append(buf, size_t(n));
            }
        }
    }
    if (open > 0) {
        kill(pid, SIGKILL);
        ADD_FAILURE() << program << " did not finish within " << timeoutS << " s";
    }
    for (auto& f : fds)
        if (f.fd >= 0)
            close(f.fd);
    int status = 0;
    waitpid(pid, &status, 0);
    o.Status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return o;
}

Output Tool(const std::vector<std::string>& args, int timeoutS = 60) { return Run(HDWTOOL_PROGRAM, args, timeoutS); }

// hdwsim in a process of its own; its first line names the endpoint.
class SimProcess {
public:
    explicit SimProcess(bool udp, const char* unit = "halden", const char* code = "3")
    {
        int out[2];
        EXPECT_EQ(pipe(out), 0);
        m_Pid = fork();
        if (m_Pid == 0) {
            dup2(out[1], 1);
            close(out[0]);
            const char* endpoint = udp ? "--udp" : "--pty";
            if (udp)
                execl(HDWSIM_PROGRAM, HDWSIM_PROGRAM, "--unit", unit, endpoint, "0", nullptr);
            else
                execl(HDWSIM_PROGRAM, HDWSIM_PROGRAM, "--unit", unit, endpoint, nullptr);
            _exit(127);
        }
        close(out[1]);
        std::string line;
        pollfd p{out[0], POLLIN, 0};
        char c = 0;
        while (poll(&p, 1, 10000) > 0 && read(out[0], &c, 1) == 1 && c != '\n')
            line += c;
        close(out[0]);
        // "pty /dev/pts/7" or "udp 127.0.0.1:40811"
        const auto w = Words(line);
        EXPECT_EQ(w.size(), 2u) << line;
        if (w.size() == 2)
            Link = std::string(code) + (w[0] == "udp" ? ":udp:" : ":") + w[1];
        if (w.size() == 2 && w[0] == "udp")
            Port = w[1].substr(w[1].rfind(':') + 1);
    }
    ~SimProcess()
    {
        kill(m_Pid, SIGTERM);
        waitpid(m_Pid, nullptr, 0);
    }
    std::string Link; // --link value
    std::string Port; // UDP port
private:
    pid_t m_Pid = -1;
};

bool OneErrorLine(const Output& o)
{
    return o.Err.rfind("hdwtool: ", 0) == 0 && o.Err.find('\n') == o.Err.size() - 1;
}

} // namespace

// Lists the unit's ports (no header when piped), checks every row's name
// columns and model, and returns the key printed for each port in `keysOf`.
std::vector<std::string> ListedKeys(const SimProcess& sim, const char* model, size_t rows,
                                    const std::vector<std::string>& keysOf)
{
    const Output o = Tool({"list", "--link", sim.Link});
    EXPECT_EQ(o.Status, 0) << o.Err;
    EXPECT_EQ(o.Lines().size(), rows) << o.Out;
    std::vector<std::string> keys(keysOf.size());
    unsigned a429rx = 0;
    for (const auto& l : o.Lines()) {
        const auto w = Words(l);
        EXPECT_GE(w.size(), 7u) << l;
        if (w.size() < 7)
            continue;
        EXPECT_EQ(w[2], w[1] + ":" + w[0]) << l;
        EXPECT_EQ(w[3], model);
        if (w[1] == "a429rx") { // numbered per type, channel = number on these units
            EXPECT_EQ(w[0], std::to_string(a429rx));
            EXPECT_EQ(w[5], std::to_string(a429rx));
            ++a429rx;
        }
        // The key runs from the seventh column to the end of the line.
        for (size_t k = 0; k < keysOf.size(); ++k)
            if (w[2] == keysOf[k])
                keys[k] = l.substr(l.find(w[6]));
    }
    return keys;
}

// Monitors `key` while sending one ARINC 429 word; returns the row's columns.
std::vector<std::string> MonitorOneWord(const SimProcess& sim, const std::string& key, const std::string& send)
{
    const Output m = Tool({"monitor", "--link", sim.Link, key, "--count", "1", "--duration", "20", "--send", send});
    EXPECT_EQ(m.Status, 0) << m.Err;
    EXPECT_EQ(m.Lines().size(), 1u);
    return m.Lines().empty() ? std::vector<std::string>{} : Words(m.Lines()[0]);
}

TEST(ToolList, RowsPerPortAndKeysThatMonitorAccepts)
{
    SimProcess sim(false);
    // 2 UART, 4+4 ARINC 429, 2 CAN, 2 MIL-STD-1553.
    const auto keys = ListedKeys(sim, "Halden", 14, {"a429rx:2", "1553:1"});
    ASSERT_EQ(keys[0].substr(0, 4), "3@2@");
    ASSERT_EQ(keys[1].substr(0, 4), "5@1@");

    const Output csv = Tool({"list", "--link", sim.Link, "--format", "csv"});
    ASSERT_EQ(csv.Status, 0) << csv.Err;
    EXPECT_EQ(csv.Lines().front(), "NUM,TYPE,PORT,MODEL,SERIAL,CHANNEL,KEY");
    EXPECT_EQ(csv.Lines().size(), 15u);

    // The key printed by list names the same receiver for monitor.
    const auto w = MonitorOneWord(sim, keys[0], "a429tx:2=label=12,data=0x55");
    ASSERT_EQ(w.size(), 8u);
    EXPECT_EQ(w[1], "a429rx:2");
    EXPECT_EQ(w[2], "012");
    EXPECT_EQ(w[4], "00055");

    // A MIL-STD-1553 key opens its channel too (the emulator reports no
    // messages of its own, so nothing is shown).
    const Output mil = Tool({"monitor", "--link", sim.Link, keys[1], "--duration", "250ms"});
    EXPECT_EQ(mil.Status, 0) << mil.Err;
    EXPECT_EQ(mil.Lines().size(), 0u) << mil.Out;
}

TEST(ToolList, KeysOfAnotherUnitModelAreAcceptedByMonitor)
{
    // An 8-channel ARINC 429 unit, named by its driver name.
    SimProcess sim(false, "arvane", "arvane");
    const auto keys = ListedKeys(sim, "Arvane", 16, {"a429rx:6"});
    ASSERT_EQ(keys[0].substr(0, 4), "3@6@");
    const auto w = MonitorOneWord(sim, keys[0], "a429tx:6=label=17,data=0x1234");
    ASSERT_EQ(w.size(), 8u);
    EXPECT_EQ(w[1], "a429rx:6");
    EXPECT_EQ(w[2], "017");
    EXPECT_EQ(w[4], "01234");
}

TEST(ToolMonitor, Arinc429RoundTripOverUdp)
{
    SimProcess sim(true);
    const Output o = Tool({"monitor", "--link", sim.Link, "a429rx:1", "--rate", "high", "--count", "4", "--duration",
                           "20", "--send", "a429tx:1=label=203,sdi=1,data=0x1234,ssm=3", "--send",
                           "a429tx:1=0xE0048D83", "--repeat", "2", "--interval", "5"});
    ASSERT_EQ(o.Status, 0) << o.Err;
    const auto lines = o.Lines();
    ASSERT_EQ(lines.size(), 4u) << o.Out;
    const std::vector<std::vector<std::string>> expected = {
        {"a429rx:1", "203", "1", "01234", "3", "0", "6048D183"},
        {"a429rx:1", "203", "1", "00123", "3", "1", "E0048D83"},
    };
    for (size_t i = 0; i < lines.size(); ++i) {
        auto w = Words(lines[i]);
        ASSERT_EQ(w.size(), 8u) << lines[i];
        w.erase(w.begin()); // time stamp
        EXPECT_EQ(w, expected[i % 2]) << lines[i];
    }
}

TEST(ToolMonitor, LabelFilterPassesOnlyTheChosenSdi)
{
    SimProcess sim(false);
    const Output o = Tool({"monitor", "--link", sim.Link, "a429rx:0", "--accept", "310:2", "--count", "2",
                           "--duration", "20", "--send", "a429tx:0=label=310,sdi=1", "--send",
                           "a429tx:0=label=311,sdi=2", "--send", "a429tx:0=label=310,sdi=2,data=7", "--repeat", "2"});
    ASSERT_EQ(o.Status, 0) << o.Err;
    for (const auto& l : o.Lines()) {
        const auto w = Words(l);
        ASSERT_EQ(w.size(), 8u);
        EXPECT_EQ(w[2], "310");
        EXPECT_EQ(w[3], "2");
        EXPECT_EQ(w[4], "00007");
    }
    EXPECT_EQ(o.Lines().size(), 2u);
}

TEST(ToolMonitor, CanFramesComeBackInTheCansendSyntax)
{
    SimProcess sim(true);
    const std::vector<std::string> frames = {"123#DEADBEEF", "1F334455#R", "123#", "7FF#0102030405060708",
                                             "00000001#R2"};
    std::vector<std::string> args = {"monitor", "--link", sim.Link, "can:1", "--bitrate", "500k", "--sample-point",
                                     "87.5%", "--count", std::to_string(frames.size()), "--duration", "20"};
    for (const auto& f : frames) {
        args.push_back("--send");
        args.push_back("can:0=" + f);
    }
    const Output o = Tool(args);
    ASSERT_EQ(o.Status, 0) << o.Err;
    const auto lines = o.Lines();
    ASSERT_EQ(lines.size(), frames.size()) << o.Out;
    for (size_t i = 0; i < frames.size(); ++i) {
        const auto w = Words(lines[i]);
        ASSERT_EQ(w.size(), 7u) << lines[i];
        EXPECT_EQ(w[1], "can:1");
        EXPECT_EQ(w[6], frames[i]);
    }
    EXPECT_EQ(Words(lines[0])[2], "123");
    EXPECT_EQ(Words(lines[0])[4], "DE.AD.BE.EF");
    EXPECT_EQ(Words(lines[1])[2], "1F334455");
    EXPECT_EQ(Words(lines[1])[5], "R");
    EXPECT_EQ(Words(lines[2])[3], "0");
}

TEST(ToolMonitor, UartBytesAsHexAndText)
{
    SimProcess sim(false);
    const Output o = Tool({"monitor", "--link", sim.Link, "uart:1", "--rate", "115200", "--count", "1", "--duration",
                           "20", "--send", "uart:0=hi\\n"});
    ASSERT_EQ(o.Status, 0) << o.Err;
    ASSERT_EQ(o.Lines().size(), 1u);
    const auto w = Words(o.Lines()[0]);
    ASSERT_EQ(w.size(), 5u);
    EXPECT_EQ(w[2], "3");
    EXPECT_EQ(w[3], "68.69.0A");
    EXPECT_EQ(w[4], "\"hi\\n\"");
}

TEST(ToolMonitor, CountNotReachedWithinDurationFails)
{
    SimProcess sim(false);
    const Output o = Tool({"monitor", "--link", sim.Link, "can:1", "--count", "1", "--duration", "0.3"});
    EXPECT_EQ(o.Status, 1);
    EXPECT_TRUE(OneErrorLine(o)) << o.Err;
    EXPECT_NE(o.Err.find("0 of 1"), std::string::npos) << o.Err;
}

TEST(ToolSend, WordsAndFramesReachTheUnitsTransmitters)
{
    hdwsim::Emulator::Options opt;
    opt.Pty = true;
    hdwsim::Emulator sim(hdwsim::HaldenModel(), opt);
    std::string error;
    ASSERT_TRUE(sim.Start(&error)) << error;
    const std::string link = "3:" + sim.PtyPath();
    Output o = Tool({"send", "--link", link, "a429tx:1", "label=203,data=1", "0x60000083", "label=0o10", "--repeat", "3",
                     "--interval", "10"});
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

TEST(ToolSend, BytesReachAPcSerialPort)
{
    int master = -1, slave = -1;
    char name[128] = {};
    ASSERT_EQ(openpty(&master, &slave, name, nullptr, nullptr), 0);
    termios t{};
    tcgetattr(slave, &t);
    cfmakeraw(&t);
    tcsetattr(slave, TCSANOW, &t);
    const Output o = Tool({"send", "--link", std::string("pcuart:") + name, "uart:0", "--rate", "57600", "hello\\n"});
    EXPECT_EQ(o.Status, 0) << o.Err;
    std::string got;
    pollfd p{master, POLLIN, 0};
    while (got.size() < 6 && poll(&p, 1, 10000) > 0) {
        char buf[64];
        const ssize_t n = read(master, buf, sizeof buf);
        if (n <= 0)
            break;
        got.append(buf, size_t(n));
    }
    EXPECT_EQ(got, "hello\n");
    close(master);
    close(slave);
}

TEST(ToolErrors, BadArgumentsUnknownPortsAndRefusedParameters)
{
    // Each parser's own messages are checked in core_test; here one case per
    // parser shows its refusal reaching stderr as one line with status 2.
    struct Case {
        std::vector<std::string> Args;
        const char* Says;
    };
    const std::vector<Case> usage = {
        {{"frobnicate"}, "unknown subcommand"},
        {{"monitor", "--link", "3:/dev/null", "lin:0"}, "is not a port"},
        {{"monitor", "--link", "3:/dev/null", "can:0", "--bogus"}, "unknown option"},
        {{"send", "--link", "3:/dev/null", "can:0", "12#34"}, "3 hex digits"},
        {{"send", "--link", "3:/dev/null", "a429tx:0", "label=400"}, "out of range"},
        {{"send", "--link", "3:/dev/null", "a429rx:0", "label=1"}, "a429tx"},
        {{"monitor", "--link", "3:/dev/null", "a429rx:0", "--accept", "9"}, "octal"},
        {{"list", "--link", "/dev/ttyUSB0"}, "CODE:LINK"},
        {{"send", "can:0"}, "at least one value"},
    };
    for (const auto& c : usage) {
        const Output o = Tool(c.Args);
        EXPECT_EQ(o.Status, 2) << c.Args[0] << " " << o.Err;
        EXPECT_TRUE(OneErrorLine(o)) << o.Err;
        EXPECT_NE(o.Err.find(c.Says), std::string::npos) << o.Err;
    }

    SimProcess sim(false);
    const std::vector<Case> failed = {
        {{"monitor", "--link", sim.Link, "can:5"}, "unknown port can:5: the units have can:0 to can:1"},
        {{"monitor", "--link", sim.Link, "can:0", "--bitrate", "7"}, "cannot open can:0: argument out of range"},
        {{"monitor", "--link", sim.Link, "a429rx:0", "--rate", "50k"}, "(result 2): rate 50000"},
        {{"list"}, "--link"},
        {{"list", "--link", "9:/dev/null"}, "no driver has device code 9"},
    };
    for (const auto& c : failed) {
        const Output o = Tool(c.Args);
        EXPECT_EQ(o.Status, 1) << o.Err;
        EXPECT_TRUE(OneErrorLine(o)) << o.Err;
        EXPECT_NE(o.Err.find(c.Says), std::string::npos) << o.Err;
    }
}

TEST(ToolErrors, DeadLinksSayNoUnitAnswered)
{
    // A pseudo-terminal nobody answers on, and a UDP port nobody answers on.
    int master = -1, slave = -1;
    char name[128] = {};
    ASSERT_EQ(openpty(&master, &slave, name, nullptr, nullptr), 0);
    const int sock = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(bind(sock, reinterpret_cast<sockaddr*>(&a), sizeof a), 0);
    socklen_t len = sizeof a;
    ASSERT_EQ(getsockname(sock, reinterpret_cast<sockaddr*>(&a), &len), 0);
    for (const std::string& link :
         {std::string("3:") + name, "3:udp:127.0.0.1:" + std::to_string(ntohs(a.sin_port)), std::string("3:/nonexistent")}) {
        const Output o = Tool({"list", "--link", link});
        EXPECT_EQ(o.Status, 1) << link;
        EXPECT_TRUE(OneErrorLine(o)) << o.Err;
        EXPECT_NE(o.Err.find("no unit answered on link " + link + ": "), std::string::npos) << o.Err;
        EXPECT_NE(o.Err.find("(result 14)"), std::string::npos) << o.Err;
    }
    close(sock);
    close(slave);
    close(master);
}

TEST(ToolHelp, EveryExampleRunsAsPrinted)
{
    const Output main = Tool({"--help"});
    ASSERT_EQ(main.Status, 0);
    for (const char* sub : {"list", "monitor", "send", "demo"})
        EXPECT_NE(main.Out.find("  " + std::string(sub) + " "), std::string::npos) << sub;
    // The examples name the emulator's UDP port 55003; run them against one
    // on a free port instead, with that port put in.
    SimProcess sim(true);
    for (const char* sub : {"list", "monitor", "send", "demo"}) {
        const Output help = Tool({sub, "--help"});
        ASSERT_EQ(help.Status, 0) << sub;
        EXPECT_NE(help.Out.find("examples"), std::string::npos) << sub;
        unsigned examples = 0;
        for (const auto& line : help.Lines()) {
            if (line.rfind("  hdwtool ", 0) != 0)
                continue;
            ++examples;
            // Split like a shell: blanks separate words, single quotes group.
            std::vector<std::string> args;
            std::string word;
            bool quoted = false, any = false;
            for (char ch : line.substr(10)) {
                if (ch == '\'') {
                    quoted = !quoted;
                    any = true;
                } else if (ch == ' ' && !quoted) {
                    if (any)
                        args.push_back(word);
                    word.clear();
                    any = false;
                } else {
                    word += ch;
                    any = true;
                }
            }
            if (any)
                args.push_back(word);
            for (auto& a : args)
                if (auto at = a.find("55003"); at != std::string::npos)
                    a.replace(at, 5, sim.Port);
            if (args.size() == 1 && args[0] == "demo")
                args.insert(args.end(), {"--duration", "1"}); // the same run, shorter
            const Output o = Tool(args, 90);
            EXPECT_EQ(o.Status, 0) << line << "\n" << o.Err;
        }
        EXPECT_GE(examples, 1u) << sub;
    }
}

TEST(ToolDemo, ReportsNoLossOnThePseudoTerminalAndOverUdp)
{
    for (const bool udp : {false, true}) {
        std::vector<std::string> args = {"demo", "--duration", "1.5"};
        if (udp)
            args.push_back("--udp");
        const Output o = Tool(args, 90);
        ASSERT_EQ(o.Status, 0) << o.Out << o.Err;
        EXPECT_NE(o.Out.find("result: no loss"), std::string::npos) << o.Out;
        // Every summary row: sent = received, nothing lost or altered.
        unsigned rows = 0;
        for (const auto& l : o.Lines()) {
            const auto w = Words(l);
            if (w.size() == 6 && w[0].find('>') != std::string::npos) {
                ++rows;
                EXPECT_NE(w[1], "0") << l;
                EXPECT_EQ(w[1], w[2]) << l;
                EXPECT_EQ(w[3], "0") << l;
                EXPECT_EQ(w[4], "0") << l;
            }
        }
        EXPECT_EQ(rows, 6u) << o.Out; // 4 ARINC 429 wires, CAN both ways
        EXPECT_NE(o.Out.find(udp ? "udp:127.0.0.1:" : "/dev/pts/"), std::string::npos);
    }
}
