// hdwtool list: one row per port of the enumerated units.
#include "Commands.h"
#include "Terminal.h"

#include <cstdio>

namespace hdwtool {

int RunList(const std::vector<std::string>& args)
{
    auto specs = LinkOptions();
    specs.push_back({"format", 'f', true, false});
    specs.push_back({"no-header", 0, false, false});
    ParsedArgs parsed;
    if (const int rc = ParseCommand("list", specs, args, parsed); rc >= 0)
        return rc;
    std::string error;
    bool ok = true;
    const OutputFormat format = ParseFormat(parsed, ok, error);
    if (!ok)
        return Fail("list: " + error, ExitUsage);
    if (!parsed.Positionals().empty())
        return Fail("list: unexpected argument \"" + parsed.Positionals().front() + "\"", ExitUsage);

    Session session;
    if (!OpenSession(parsed, session, error))
        return Fail(error);
    const Columns& cols = ListColumns();
    if (!parsed.Has("no-header") && (format == OutputFormat::Csv || IsTerminal(1)))
        std::printf("%s\n", RenderRow(cols.Header, cols, format).c_str());
    for (const auto& p : session.Ports()) {
        const Fields row = {std::to_string(p.AbsNum), PortTypeName(p.PortType), PortName(p.PortType, p.AbsNum),
            p.FullName.GetLength() ? p.FullName.c_str() : "-",
            p.SerialNumber.GetLength() ? p.SerialNumber.c_str() : "-",
            p.ChannelId.GetLength() ? p.ChannelId.c_str() : "-", p.Key.GetLength() ? p.Key.c_str() : "-"};
        std::printf("%s\n", RenderRow(row, cols, format).c_str());
    }
    return ExitOk;
}

} // namespace hdwtool
