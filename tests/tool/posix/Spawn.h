#pragma once
// Starting the built programs: hdwtool run to its end, hdwsim in a process of its own or an emulator in this one.

#include <hdwsim/Emulator.h>

#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <poll.h>
#include <sstream>
#include <string>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace tooltest {

// Starts `argv` (in `dir` when given) with its output and error on the given
// descriptors; a time-out (s, 0: none) that survives the exec kills it with SIGALRM.
inline pid_t Spawn(
    const std::vector<std::string>& argv, int out, int err, unsigned timeoutS, const std::string& dir = {})
{
    const pid_t pid = fork();
    if (pid == 0) {
        if (!dir.empty() && chdir(dir.c_str()) != 0)
            _exit(126);
        dup2(out, 1);
        dup2(err, 2);
        alarm(timeoutS);
        std::vector<char*> args;
        for (const auto& a : argv)
            args.push_back(const_cast<char*>(a.c_str()));
        args.push_back(nullptr);
        execv(args[0], args.data());
        _exit(127);
    }
    return pid;
}

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

inline std::string ReadAll(FILE* f)
{
    std::string s(size_t(ftell(f)), '\0'); // the child's writes moved the shared offset to the end
    rewind(f);
    s.resize(fread(s.data(), 1, s.size(), f));
    fclose(f);
    return s;
}

// Runs hdwtool with its output in files (not a terminal), in `dir` when given.
inline Output Tool(std::vector<std::string> args, unsigned timeoutS = 60, const std::string& dir = {})
{
    args.insert(args.begin(), HDWTOOL_PROGRAM);
    FILE* out = tmpfile();
    FILE* err = tmpfile();
    int status = 0;
    waitpid(Spawn(args, fileno(out), fileno(err), timeoutS, dir), &status, 0);
    if (!WIFEXITED(status))
        ADD_FAILURE() << args[1] << " did not finish within " << timeoutS << " s";
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, ReadAll(out), ReadAll(err)};
}

inline std::vector<std::string> Words(const std::string& line)
{
    std::vector<std::string> w;
    std::istringstream in(line);
    for (std::string s; in >> s;)
        w.push_back(s);
    return w;
}

using Row = std::vector<std::string>;

// hdwtool's output lines as words, expecting `status` and `lines` lines (else as many rows of empty words).
inline std::vector<Row> Rows(const std::vector<std::string>& args, size_t lines, int status = 0)
{
    const Output o = Tool(args);
    std::vector<Row> rows;
    for (const auto& l : o.Lines())
        rows.push_back(Words(l));
    if (o.Status == status && rows.size() == lines)
        return rows;
    ADD_FAILURE() << args[0] << ": status " << o.Status << ", " << rows.size() << " lines\n" << o.Out << o.Err;
    return std::vector<Row>(lines, Row(12));
}

// hdwsim in a process of its own; its first line names the endpoint, Line() reads the next.
class SimProcess {
public:
    explicit SimProcess(
        bool udp, const char* unit = "halden", const char* code = "3", const std::vector<std::string>& extra = {})
    {
        int out[2];
        EXPECT_EQ(pipe(out), 0);
        std::vector<std::string> argv{HDWSIM_PROGRAM, "--unit", unit, udp ? "--udp" : "--pty"};
        if (udp)
            argv.push_back("0"); // any free port
        argv.insert(argv.end(), extra.begin(), extra.end());
        Pid = Spawn(argv, out[1], 2, 0);
        close(out[1]);
        m_Out = out[0];
        const std::string line = Line(); // "pty /dev/pts/7" or "udp 127.0.0.1:40811"
        const auto w = Words(line);
        EXPECT_EQ(w.size(), 2u) << line;
        if (w.size() == 2) {
            Link = std::string(code) + (w[0] == "udp" ? ":udp:" : ":") + w[1];
            Port = w[0] == "udp" ? w[1].substr(w[1].rfind(':') + 1) : "";
        }
    }
    ~SimProcess()
    {
        kill(Pid, SIGTERM);
        waitpid(Pid, nullptr, 0);
        close(m_Out);
    }
    // The next line it writes, waiting up to 10 s for each byte.
    std::string Line()
    {
        std::string line;
        pollfd p{m_Out, POLLIN, 0};
        char c = 0;
        while (poll(&p, 1, 10000) > 0 && read(m_Out, &c, 1) == 1 && c != '\n')
            line += c;
        return line;
    }
    std::string Link; // --link value
    std::string Port; // UDP port
    pid_t Pid = -1;

private:
    int m_Out = -1;
};

// An emulated unit in this process on a pseudo-terminal, its counters read by the tests.
struct LocalSim {
    explicit LocalSim(const char* unit = "halden", const char* code = "3", bool pacing = false)
        : Sim(*hdwsim::FindUnitModel(unit), [pacing] {
              hdwsim::Emulator::Options o;
              o.Pacing = pacing;
              return o;
          }())
    {
        std::string error;
        EXPECT_TRUE(Sim.Start(&error)) << error;
        Link = std::string(code) + ":" + Sim.PtyPath();
    }
    hdwsim::Counters Counters() const { return Sim.GetCounters(); }
    hdwsim::Emulator Sim;
    std::string Link;
};

} // namespace tooltest
