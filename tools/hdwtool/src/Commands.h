#pragma once
// The subcommands. Each takes the words after its name and returns the
// process exit code: 0 done, 1 failed (no unit, a port refused, data lost),
// 2 bad command line. Errors go to stderr as "hdwtool: what: why".

#include "Cli.h"
#include "Format.h"
#include "Session.h"

#include <memory>
#include <string>
#include <vector>

namespace hdwtool {

struct PortSpec;
struct PortOptions;
class Channel;

constexpr int ExitOk = 0;
constexpr int ExitFailed = 1;
constexpr int ExitUsage = 2;

int RunList(const std::vector<std::string>& args);
int RunMonitor(const std::vector<std::string>& args);
int RunSend(const std::vector<std::string>& args);
int RunGen(const std::vector<std::string>& args);
int RunDemo(const std::vector<std::string>& args);
int RunReplay(const std::vector<std::string>& args);

// Help of the program ("") or of a subcommand; null for an unknown one.
const char* HelpText(const std::string& command);

// ---- shared by the subcommands ----

// Prints "hdwtool: message" to stderr and returns `code`.
int Fail(const std::string& message, int code = ExitFailed);
// --link (repeatable), --scan and --help, which every hardware command takes.
std::vector<OptionSpec> LinkOptions();
// Parses the words of a subcommand; on --help prints its help. Returns -1 to
// go on, otherwise the exit code.
int ParseCommand(const std::string& command, const std::vector<OptionSpec>& specs, const std::vector<std::string>& args,
    ParsedArgs& parsed);
// ParseCommand for a subcommand on one port followed by at least one `what`
// ("value", "label"): the port and its options are parsed too.
int ParsePortCommand(const std::string& command, const std::vector<OptionSpec>& specs,
    const std::vector<std::string>& args, const char* what, ParsedArgs& parsed, PortSpec& target, PortOptions& options);
// Enumerates the links of --link (or HDWTOOL_LINK) and --scan and runs the manager.
bool OpenSession(const ParsedArgs& args, Session& session, std::string& error);
// OpenSession, then the channel of the port `target` names; null with a reason.
std::unique_ptr<Channel> OpenChannel(
    const ParsedArgs& args, Session& session, const PortSpec& target, std::string& error);
bool ParseCount(const std::string& text, uint64_t& value, std::string& error);
OutputFormat ParseFormat(const ParsedArgs& args, bool& ok, std::string& error);
// Waits until the unit has confirmed the `sent` values written on `channel`
// (closing earlier would drop the rest), allowing for slow buses; false
// with a reason when it does not, or when a stop was requested.
bool WaitConfirmed(Channel& channel, uint64_t sent, std::string& error);
// send on a MIL-STD-1553 channel: "bc TRANSFERS" or "rt TA [SA=WORDS]...".
int RunMil1553Send(const ParsedArgs& parsed, const PortSpec& target, const PortOptions& options);

} // namespace hdwtool
