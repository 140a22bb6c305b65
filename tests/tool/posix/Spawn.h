#pragma once
// Starting the built programs from a test, and running hdwtool to its end.

#include <gtest/gtest.h>

#include <cstdio>
#include <sstream>
#include <string>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace tooltest {

// Starts `argv` with its standard output and error on the given descriptors;
// a time-out (seconds, 0: none) that survives the exec kills it with SIGALRM.
// It runs in `dir` when one is given.
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
    std::string s;
    rewind(f);
    for (int c; (c = fgetc(f)) != EOF;)
        s += static_cast<char>(c);
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

} // namespace tooltest
