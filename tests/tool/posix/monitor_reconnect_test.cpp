// hdwtool monitor --reconnect against hdwsim reached through its symbolic link,
// unplugged and plugged back with its signals: the monitor says when the unit
// went and came back, goes on printing traffic and counts the outage.
#include <gtest/gtest.h>

#include "Spawn.h"
#include "support/Wait.h"

#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

std::vector<std::string> FileLines(const std::string& path)
{
    std::vector<std::string> lines;
    std::ifstream in(path);
    for (std::string l; std::getline(in, l);)
        lines.push_back(l);
    return lines;
}

// Index of the first line starting with `prefix` (-1: none), and the word lines after line `from`.
long FindLine(const std::vector<std::string>& lines, const std::string& prefix)
{
    for (size_t i = 0; i < lines.size(); ++i)
        if (lines[i].rfind(prefix, 0) == 0)
            return long(i);
    return -1;
}
size_t WordLinesAfter(const std::vector<std::string>& lines, long from)
{
    size_t n = 0;
    for (size_t i = size_t(from + 1); i < lines.size(); ++i)
        n += lines[i].find("a429rx:1") != std::string::npos;
    return n;
}

TEST(ToolMonitorReconnect, KeepsRunningThroughAnUnplugAndCountsTheOutage)
{
    const std::string base = "/tmp/hdwtool-reconnect-" + std::to_string(getpid());
    const std::string link = base + "-link", outPath = base + "-out", errPath = base + "-err";
    auto sim = std::make_unique<tooltest::SimProcess>(false, "halden", "3", std::vector<std::string>{"--link", link});
    EXPECT_EQ(sim->Line(), "link " + link);

    const int out = open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    const int err = open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    ASSERT_GE(out, 0);
    ASSERT_GE(err, 0);
    const pid_t tool = tooltest::Spawn(
        {HDWTOOL_PROGRAM, "monitor", "--link", "3:" + link, "a429rx:1", "--reconnect", "--send",
            "a429tx:1=label=201,data=0x10", "--repeat", "100000", "--interval", "20", "--duration", "100"},
        out, err, 120); // a hung child cannot outlive the test
    close(out);
    close(err);

    std::vector<std::string> lines;
    auto look = [&](auto&& done) {
        return testsupport::WaitUntil(
            [&] {
                lines = FileLines(outPath);
                return done();
            },
            30000);
    };
    EXPECT_TRUE(look([&] { return WordLinesAfter(lines, -1) >= 3; })) << "no traffic before the unplug";
    kill(sim->Pid, SIGUSR1);
    EXPECT_EQ(sim->Line(), "unplugged");
    EXPECT_TRUE(look([&] { return FindLine(lines, "unit lost ") >= 0; })) << "no unit-lost line";
    kill(sim->Pid, SIGUSR2);
    EXPECT_EQ(sim->Line(), "plugged");
    EXPECT_TRUE(look([&] {
        const long back = FindLine(lines, "unit back ");
        return back >= 0 && WordLinesAfter(lines, back) >= 3;
    })) << "no traffic after the unit came back";

    kill(tool, SIGINT);
    int status = -1;
    waitpid(tool, &status, 0);
    sim.reset();
    EXPECT_NE(access(link.c_str(), F_OK), 0); // hdwsim removed its link
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
    const long lost = FindLine(lines, "unit lost " + link + " outages=1 lost-items=");
    EXPECT_GE(lost, 0);
    EXPECT_GT(FindLine(lines, "unit back " + link + " returns=1 away-ms="), lost);
    std::stringstream errText;
    errText << std::ifstream(errPath).rdbuf();
    EXPECT_NE(errText.str().find("unit outages 1, back 1"), std::string::npos) << errText.str();
    unlink(outPath.c_str());
    unlink(errPath.c_str());
}

} // namespace
