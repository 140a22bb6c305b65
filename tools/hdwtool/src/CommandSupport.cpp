#include "Commands.h"

#include "Channel.h"
#include "Ports.h"

#include "Terminal.h"
#include "Values.h"

#include <cstdio>
#include <chrono>
#include <cstdlib>
#include <thread>

namespace hdwtool {

int Fail(const std::string& message, int code)
{
    std::fprintf(stderr, "hdwtool: %s\n", message.c_str());
    return code;
}

std::vector<OptionSpec> LinkOptions()
{
    return {{"link", 'l', true, true}, {"scan", 0, false, false}, {"help", 'h', false, false}};
}

int ParseCommand(const std::string& command, const std::vector<OptionSpec>& specs, const std::vector<std::string>& args,
    ParsedArgs& parsed)
{
    std::string error;
    if (!ParseArgs(specs, args, parsed, error))
        return Fail(command + ": " + error + " (see hdwtool " + command + " --help)", ExitUsage);
    for (const auto& l : parsed.All("link")) {
        LinkSpec link;
        if (!ParseLinkSpec(l, link, error))
            return Fail(command + ": " + error, ExitUsage);
    }
    if (parsed.Has("help")) {
        std::fputs(HelpText(command), stdout);
        return ExitOk;
    }
    return -1;
}

int ParsePortCommand(const std::string& command, const std::vector<OptionSpec>& specs,
    const std::vector<std::string>& args, const char* what, ParsedArgs& parsed, PortSpec& target, PortOptions& options)
{
    if (const int rc = ParseCommand(command, specs, args, parsed); rc >= 0)
        return rc;
    std::string error;
    if (parsed.Positionals().size() < 2)
        return Fail(
            command + ": give a port and at least one " + what + " (see hdwtool " + command + " --help)", ExitUsage);
    if (!ParsePortSpec(parsed.Positionals()[0], target, error) || !ParsePortOptions(parsed, options, error))
        return Fail(command + ": " + error, ExitUsage);
    return -1;
}

bool OpenSession(const ParsedArgs& args, Session& session, std::string& error)
{
    std::vector<std::string> texts = args.All("link");
    if (texts.empty())
        if (const char* env = std::getenv("HDWTOOL_LINK"); env && *env) {
            // Several links separated by commas.
            std::string all = env;
            size_t start = 0;
            while (start <= all.size()) {
                size_t comma = all.find(',', start);
                if (comma == std::string::npos)
                    comma = all.size();
                if (comma > start)
                    texts.push_back(all.substr(start, comma - start));
                start = comma + 1;
            }
        }
    std::vector<LinkSpec> links;
    for (const auto& t : texts) {
        LinkSpec l;
        if (!ParseLinkSpec(t, l, error))
            return false;
        links.push_back(l);
    }
    return session.Enumerate(links, args.Has("scan"), error) && session.Run(error);
}

std::unique_ptr<Channel> OpenChannel(
    const ParsedArgs& args, Session& session, const PortSpec& target, std::string& error)
{
    if (!OpenSession(args, session, error))
        return nullptr;
    std::string name;
    CKVX_HdwPort* port = session.Resolve(target, name, error);
    if (!port)
        return nullptr;
    return std::make_unique<Channel>(port, name);
}

bool ParseCount(const std::string& text, uint64_t& value, std::string& error)
{
    if (!ParseNumber(text, value)) {
        error = "\"" + text + "\" is not a count";
        return false;
    }
    return true;
}

OutputFormat ParseFormat(const ParsedArgs& args, bool& ok, std::string& error)
{
    const std::string f = args.Get("format", "text");
    ok = f == "text" || f == "csv";
    if (!ok)
        error = "format \"" + f + "\" is not text or csv";
    return f == "csv" ? OutputFormat::Csv : OutputFormat::Text;
}

bool WaitConfirmed(Channel& channel, uint64_t sent, std::string& error)
{
    const auto deadline =
        std::chrono::steady_clock::now() + std::chrono::milliseconds(10000 + static_cast<int64_t>(sent) * 3);
    unsigned pending = channel.Pending();
    while (pending != 0 && std::chrono::steady_clock::now() < deadline && !StopRequested()) {
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
        pending = channel.Pending();
    }
    if (pending != 0) {
        error = "the unit did not confirm " + std::to_string(pending) + " of " + std::to_string(sent) + " values on " +
            channel.Name() + " (bus not running, or the link stalled)";
        return false;
    }
    if (StopRequested()) {
        error = "stopped";
        return false;
    }
    return true;
}

} // namespace hdwtool
