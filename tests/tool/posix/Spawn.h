#pragma once
// Starting the built programs from a test.

#include <string>
#include <sys/types.h>
#include <unistd.h>
#include <vector>

namespace tooltest {

// Starts `argv` with its standard output and error on the given descriptors;
// a time-out (seconds, 0: none) that survives the exec kills it with SIGALRM.
inline pid_t Spawn(const std::vector<std::string>& argv, int out, int err, unsigned timeoutS)
{
    const pid_t pid = fork();
    if (pid == 0) {
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

} // namespace tooltest
