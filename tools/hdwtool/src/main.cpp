// hdwtool: list the ports of interface units, watch their buses, put words
// and frames on them, or run the demo against an emulated unit.
#include "Commands.h"

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

int main(int argc, char** argv)
{
    using namespace hdwtool;
    if (argc < 2) {
        std::fputs(HelpText(""), stderr);
        return ExitUsage;
    }
    const std::string command = argv[1];
    const std::vector<std::string> args(argv + 2, argv + argc);
    if (command == "--help" || command == "-h" || command == "help") {
        const char* text = HelpText(args.empty() ? "" : args.front());
        std::fputs(text ? text : HelpText(""), stdout);
        return ExitOk;
    }
    if (command == "list")
        return RunList(args);
    if (command == "monitor")
        return RunMonitor(args);
    if (command == "send")
        return RunSend(args);
    if (command == "gen")
        return RunGen(args);
    if (command == "demo")
        return RunDemo(args);
    if (command == "replay")
        return RunReplay(args);
    return Fail("unknown subcommand \"" + command + "\" (list, monitor, send, gen, demo, replay; see hdwtool --help)",
        ExitUsage);
}
