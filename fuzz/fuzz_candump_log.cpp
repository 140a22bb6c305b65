// libFuzzer target: hdwtool's candump log line parser (replay reads files
// from anywhere). Whatever parses, written back out as monitor --log writes
// it, must parse to the same time, interface and frame.
#include "CandumpLog.h"

#include <cstdint>
#include <cstdlib>
#include <string>

using namespace hdwtool;

namespace {

void Require(bool ok)
{
    if (!ok)
        std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string line(reinterpret_cast<const char*>(data), size);
    CandumpRecord r;
    std::string error;
    if (!ParseCandumpLine(line, r, error)) {
        Require(!error.empty());
        return 0;
    }
    if (r.ErrorFrame)
        return 0;
    const CKVX_HdwCanMessage& f = r.Frame;
    Require(f.Dlc <= 8);
    Require(f.Identifier <= (f.Extended ? 0x1FFFFFFFu : 0x7FFu));
    CandumpRecord back;
    Require(ParseCandumpLine(FormatCandumpLine(r.TimeUs, r.Interface, f), back, error));
    Require(back.TimeUs == r.TimeUs && back.Interface == r.Interface);
    const CKVX_HdwCanMessage& g = back.Frame;
    Require(g.Identifier == f.Identifier && g.Extended == f.Extended && g.Rtr == f.Rtr && g.Dlc == f.Dlc);
    for (unsigned i = 0; !f.Rtr && i < f.Dlc; ++i)
        Require(g.Data[i] == f.Data[i]);
    return 0;
}
