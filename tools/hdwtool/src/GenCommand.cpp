// hdwtool gen PORT LABEL...: the data generator on an ARINC 429 transmitter,
// until Ctrl-C or --duration, then what it generated and skipped.
#include "Channel.h"
#include "Commands.h"
#include "GeneratorLabels.h"
#include "Terminal.h"

#include <chrono>
#include <cstdio>
#include <thread>

namespace hdwtool {

int RunGen(const std::vector<std::string>& args)
{
    auto specs = LinkOptions();
    for (const char* o : {"rate", "parity"})
        specs.push_back({o, 0, true, false});
    specs.push_back({"duration", 't', true, false});
    ParsedArgs parsed;
    PortSpec target;
    PortOptions options;
    if (const int rc = ParsePortCommand("gen", specs, args, "label", parsed, target, options); rc >= 0)
        return rc;
    std::string error;
    const auto& pos = parsed.Positionals();
    double duration = -1; // until stopped
    if (parsed.Has("duration") && !ParseSeconds(parsed.Get("duration"), duration, error))
        return Fail("gen: --duration: " + error, ExitUsage);
    // Every label checked before any unit is touched.
    std::vector<CKVX_HdwDataGeneratorService::CLabelDef> defs(pos.size() - 1);
    for (size_t i = 1; i < pos.size(); ++i)
        if (!ParseGeneratorLabel(pos[i], defs[i - 1], error))
            return Fail("gen: " + error, ExitUsage);

    Session session;
    const auto owned = OpenChannel(parsed, session, target, error);
    if (!owned)
        return Fail(error);
    Channel& channel = *owned;
    const std::string& name = channel.Name();
    CKVX_HdwDataGeneratorService* gen = channel.EnableGenerator(error);
    if (!gen || !channel.Open(options, error))
        return Fail(error);
    if (const unsigned rc = gen->SetLabels(defs.data(), unsigned(defs.size())))
        return Fail("gen: " + name + " refused the labels: " + ResultText(rc));

    InstallStopHandler();
    const auto start = std::chrono::steady_clock::now();
    auto now = [&] { return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(); };
    while (!StopRequested() && (duration < 0 || now() < duration))
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    gen->Disable();
    const double ran = now();
    const uint64_t generated = gen->GetGeneratedCount();
    const uint64_t missed = gen->GetMissedCount();
    std::printf("%s: %zu labels for %.1f s: %llu words generated, %llu skipped\n", name.c_str(), defs.size(), ran,
        static_cast<unsigned long long>(generated), static_cast<unsigned long long>(missed));
    return missed == 0 ? ExitOk : ExitFailed;
}

} // namespace hdwtool
