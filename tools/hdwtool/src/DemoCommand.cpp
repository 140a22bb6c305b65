// hdwtool demo: an emulated Halden unit in this process, enumerated through
// its link like real hardware, with a realistic pattern on its buses, the
// looped-back traffic watched and checked, and a summary of what was lost.
#include "Channel.h"
#include "Commands.h"
#include "DemoMil1553.h"
#include "StatusLine.h"
#include "TimeColumn.h"
#include "Terminal.h"

#include <hdwsim/Emulator.h>

#include <chrono>
#include <cstdio>
#include <deque>
#include <map>
#include <memory>
#include <set>
#include <thread>

namespace hdwtool {

namespace {

// One wire of the loopback: what a transmitter sent and its receiver got.
struct Flow {
    Channel* Tx = nullptr;
    Channel* Rx = nullptr;
    uint64_t Sent = 0, Received = 0, Altered = 0;
    uint64_t ParityErrors = 0; // ARINC 429 words received with a parity that is not odd
    std::deque<Item> Expected;
    // A transmitter run by the data generator: each label's words are
    // checked against its pattern, transmission by transmission.
    CKVX_HdwDataGeneratorService* Generator = nullptr;
    std::map<unsigned, std::pair<CKVX_HdwDataGeneratorService::CLabelDef, uint64_t>> Generated;
};

// Whether `got` is the next word of its generated label.
bool NextGenerated(Flow& f, const CKVX_HdwArinc429Message& got)
{
    auto it = f.Generated.find(got.Label);
    if (it == f.Generated.end())
        return false;
    auto& [def, index] = it->second;
    const auto want = CKVX_HdwDataGeneratorService::ComputeWord(def, index, double(index) / def.Rate);
    ++index;
    return got == want;
}

// A periodic word or frame: a label at its usual rate, or a CAN identifier.
struct Stream {
    Flow* Path = nullptr;
    Item Value;
    double Period = 0; // seconds
    double Next = 0;
    uint32_t Step = 1; // data change per transmission
    uint64_t Count = 0;
};

bool SameItem(const Item& a, const Item& b)
{
    if (a.PortType == HDW_PORT_CAN) {
        if (a.Frame.Identifier != b.Frame.Identifier || a.Frame.Extended != b.Frame.Extended ||
            a.Frame.Dlc != b.Frame.Dlc || a.Frame.Rtr != b.Frame.Rtr)
            return false;
        for (unsigned i = 0; !a.Frame.Rtr && i < a.Frame.Dlc && i < 8; ++i)
            if (a.Frame.Data[i] != b.Frame.Data[i])
                return false;
        return true;
    }
    return a.Word == b.Word;
}

// Labels (octal) and rates of an air-data computer, an inertial reference
// unit, its body rates and accelerations, and a radio altimeter with status.
struct LabelRate {
    unsigned Label;
    double Hz;
    uint32_t Base;
};
const std::vector<LabelRate> kTransmitters[3] = {
    {{0203, 20, 0x0A000}, {0205, 10, 0x01200}, {0206, 20, 0x02800}, {0210, 10, 0x03000}, {0211, 5, 0x00400},
        {0213, 5, 0x7FC00}},
    {{0310, 5, 0x1E000}, {0311, 5, 0x05000}, {0312, 20, 0x02000}, {0314, 20, 0x0B400}, {0324, 50, 0x00100},
        {0325, 50, 0x7FF00}},
    {{0326, 50, 0x00010}, {0327, 50, 0x7FFF0}, {0330, 50, 0x00008}, {0331, 50, 0x00020}, {0332, 50, 0x7FFE0},
        {0333, 50, 0x04000}},
};

// The fourth transmitter is a data generator standing in for a radio
// altimeter: altitude (BNR, 0.125 ft, swinging between 0 and 2500 ft),
// discrete status bits, a maintenance counter and a fixed equipment id.
std::vector<CKVX_HdwDataGeneratorService::CLabelDef> GeneratorLabels()
{
    using Gen = CKVX_HdwDataGeneratorService;
    std::vector<Gen::CLabelDef> d(4);
    d[0] = Gen::CLabelDef(0164, 20);
    d[0].Pattern = Gen::PatternBnr;
    d[0].Range = 8192;
    d[0].Resolution = 0.125;
    d[0].Low = 0;
    d[0].High = 2500;
    d[0].Period = 4;
    d[0].Ssm = 3;
    d[1] = Gen::CLabelDef(0270, 5);
    d[1].Pattern = Gen::PatternDiscrete;
    d[1].Data = 0x00005;
    d[1].Mask = 0x00030;
    d[1].Period = 1;
    d[2] = Gen::CLabelDef(0350, 2);
    d[2].Pattern = Gen::PatternCounter;
    d[2].Max = 999;
    d[3] = Gen::CLabelDef(0377, 1);
    d[3].Data = 0x00012;
    for (auto& l : d)
        l.Sdi = 2;
    return d;
}

struct CanId {
    unsigned From; // CAN channel that sends it
    bool Extended;
    uint32_t Id;
    double Hz;
    uint8_t Dlc;
};
const CanId kCanIds[] = {
    {0, false, 0x0C0, 100, 8}, // engine speed and torque
    {0, false, 0x1A0, 50, 6}, // wheel speeds
    {0, true, 0x18FEF100, 10, 8}, // vehicle speed
    {0, true, 0x18FEEE00, 1, 8}, // engine temperature
    {1, false, 0x321, 20, 4}, // gear and brake switches
    {1, true, 0x18FECA00, 1, 8}, // diagnostic message
};

} // namespace

int RunDemo(const std::vector<std::string>& args)
{
    std::vector<OptionSpec> specs = {{"duration", 't', true, false}, {"udp", 0, false, false},
        {"verbose", 'v', false, false}, {"no-status", 0, false, false}, {"parity-faults", 0, true, false},
        {"no-response", 0, true, false}, {"help", 'h', false, false}};
    ParsedArgs parsed;
    if (const int rc = ParseCommand("demo", specs, args, parsed); rc >= 0)
        return rc;
    std::string error;
    double duration = 5;
    if (parsed.Has("duration") && !ParseSeconds(parsed.Get("duration"), duration, error))
        return Fail("demo: --duration: " + error, ExitUsage);
    if (!parsed.Positionals().empty())
        return Fail("demo: unexpected argument \"" + parsed.Positionals().front() + "\"", ExitUsage);
    uint64_t parityFaults = 0;
    if (parsed.Has("parity-faults") &&
        (!ParseNumber(parsed.Get("parity-faults"), parityFaults) || parityFaults > 1000000))
        return Fail("demo: --parity-faults: \"" + parsed.Get("parity-faults") + "\" is not a count", ExitUsage);
    uint64_t noResponse = 0;
    if (parsed.Has("no-response") && (!ParseNumber(parsed.Get("no-response"), noResponse) || noResponse > 1000000))
        return Fail("demo: --no-response: \"" + parsed.Get("no-response") + "\" is not a count", ExitUsage);
    const bool udp = parsed.Has("udp");
    const bool verbose = parsed.Has("verbose");
    const bool terminal = IsTerminal(1);

    hdwsim::Emulator::Options simOptions;
    simOptions.Pty = !udp;
    simOptions.Udp = udp;
    simOptions.Pacing = true; // words and frames take their real time on the buses
    hdwsim::Emulator sim(hdwsim::HaldenModel(), simOptions);
    if (!sim.Start(&error))
        return Fail("demo: cannot start the emulated unit: " + error);
    sim.FlipNextA429Parity(unsigned(parityFaults));
    if (noResponse)
        sim.SetMilStd1553Fault(DemoMil1553::Terminal, 0, hdwsim::MilStd1553Fault::NoResponse, unsigned(noResponse));
    const std::string link = udp ? "udp:127.0.0.1:" + std::to_string(sim.UdpPort()) : sim.PtyPath();
    std::printf("Emulated Halden unit on %s (hdwtool list --link 3:%s)\n\n", link.c_str(), link.c_str());

    // The unit runs on this machine and has only just started. When the
    // machine is busy, its answers can take longer to cross the link than
    // a probe waits (200 ms) or the unit protocol waits for an echo (500
    // ms): the enumeration is tried again for a while, and the echoes and
    // port opens get generous time-outs. Neither is what the demo measures.
    constexpr unsigned kPatienceMs = 5000;
    Session session;
    const auto giveUp = std::chrono::steady_clock::now() + std::chrono::milliseconds(2 * kPatienceMs);
    while (!session.Enumerate({LinkSpec{3, link}}, false, error))
        if (std::chrono::steady_clock::now() >= giveUp)
            return Fail("demo: " + error);
    if (auto* unit = dynamic_cast<CKVX_HdwKvxHaldenDevice*>(session.Manager().FindDevice(3)))
        unit->SetEchoTimeout(kPatienceMs);
    if (!session.Run(error))
        return Fail("demo: " + error);
    const Columns& listCols = ListColumns();
    std::printf("%s\n", RenderRow(listCols.Header, listCols, OutputFormat::Text).c_str());
    for (const auto& p : session.Ports())
        std::printf("%s\n",
            RenderRow({std::to_string(p.AbsNum), PortTypeName(p.PortType), PortName(p.PortType, p.AbsNum),
                          p.FullName.c_str(), p.SerialNumber.c_str(), p.ChannelId.c_str(), p.Key.c_str()},
                listCols, OutputFormat::Text)
                .c_str());
    std::printf("\n");

    // Channels: ARINC 429 transmitter k wired to receiver k (0 and 1 at low
    // speed, 2 and 3 at high speed); CAN 0 and 1 on one bus at 500 kbit/s.
    std::vector<std::unique_ptr<Channel>> channels;
    std::vector<Flow> flows;
    flows.reserve(16);
    auto make = [&](unsigned type, unsigned num) -> Channel* {
        std::string name;
        CKVX_HdwPort* port = session.Resolve(PortSpec{false, type, num, ""}, name, error);
        if (!port)
            return nullptr;
        channels.push_back(std::make_unique<Channel>(port, name));
        return channels.back().get();
    };
    std::vector<Stream> streams;
    std::vector<PortOptions> a429Options(4);
    for (unsigned k = 0; k < 4; ++k) {
        a429Options[k].Rate = k < 2 ? 12500 : 100000;
        a429Options[k].OpenTimeoutMs = kPatienceMs;
        Channel* rx = make(HDW_PORT_ARINC429_RX, k);
        Channel* tx = make(HDW_PORT_ARINC429_TX, k);
        if (!rx || !tx)
            return Fail("demo: " + error);
        CKVX_HdwDataGeneratorService* gen = nullptr;
        if (!rx->EnableReceive(a429Options[k], error) || !rx->Open(a429Options[k], error) ||
            !(k == 3 ? (gen = tx->EnableGenerator(error)) != nullptr : tx->EnableTransmit(error)) ||
            !tx->Open(a429Options[k], error))
            return Fail("demo: " + error);
        flows.push_back(Flow{tx, rx, 0, 0, 0, 0, {}, gen, {}});
        if (gen) {
            const auto labels = GeneratorLabels();
            for (const auto& l : labels)
                flows.back().Generated[l.Label] = {l, 0};
            if (const unsigned rc = gen->SetLabels(labels.data(), unsigned(labels.size())))
                return Fail("demo: the generator on " + tx->Name() + " refused its labels: " + ResultText(rc));
            continue;
        }
        for (const auto& lr : kTransmitters[k]) {
            Stream s;
            s.Path = &flows.back();
            s.Value.PortType = HDW_PORT_ARINC429_TX;
            s.Value.Word.Label = uint8_t(lr.Label);
            s.Value.Word.Sdi = uint8_t(1 + k % 2);
            s.Value.Word.Ssm = 3;
            s.Value.Word.Data = lr.Base;
            s.Period = 1.0 / lr.Hz;
            s.Step = 1 + lr.Label % 7;
            streams.push_back(s);
        }
    }
    PortOptions canOptions;
    canOptions.BitRate = 500000;
    canOptions.SamplePoint = 0.875;
    canOptions.OpenTimeoutMs = kPatienceMs;
    Channel* can[2] = {make(HDW_PORT_CAN, 0), make(HDW_PORT_CAN, 1)};
    if (!can[0] || !can[1])
        return Fail("demo: " + error);
    for (Channel* c : can)
        if (!c->EnableReceive(canOptions, error) || !c->EnableTransmit(error))
            return Fail("demo: " + error);
    for (Channel* c : can)
        if (!c->Open(canOptions, error))
            return Fail("demo: " + error);
    Flow* canFlows[2];
    flows.push_back(Flow{can[0], can[1], 0, 0, 0, 0, {}, nullptr, {}});
    canFlows[0] = &flows.back();
    flows.push_back(Flow{can[1], can[0], 0, 0, 0, 0, {}, nullptr, {}});
    canFlows[1] = &flows.back();
    for (const auto& id : kCanIds) {
        Stream s;
        s.Path = canFlows[id.From];
        s.Value.PortType = HDW_PORT_CAN;
        s.Value.Frame.Extended = id.Extended ? 1 : 0;
        s.Value.Frame.Identifier = id.Id;
        s.Value.Frame.Dlc = id.Dlc;
        for (unsigned i = 0; i < 8; ++i)
            s.Value.Frame.Data[i] = uint8_t(id.Id >> (i % 4 * 8)) ^ uint8_t(i * 29);
        s.Period = 1.0 / id.Hz;
        streams.push_back(s);
    }

    // MIL-STD-1553: a controller on channel 0 polling terminal 5 on channel 1.
    Channel* mil[2] = {make(HDW_PORT_MILSTD1553, 0), make(HDW_PORT_MILSTD1553, 1)};
    DemoMil1553 milBus;
    if (!mil[0] || !mil[1] || !milBus.Start(*mil[0], *mil[1], error))
        return Fail("demo: " + error);

    // The receive side, in the order the status line shows them.
    std::vector<Flow*> order;
    std::vector<std::string> names;
    for (auto& f : flows) {
        order.push_back(&f);
        names.push_back(f.Rx->Name());
    }
    const size_t milIndex = names.size();
    names.push_back(mil[1]->Name());
    InstallStopHandler();
    StatusLine status(terminal && !parsed.Has("no-status"), stdout, names);
    std::printf("%s the traffic for %.1f s:\n",
        verbose ? "Every word, frame and transfer of" : "First arrival of each label, identifier and 1553 message in",
        duration);
    std::set<std::pair<std::string, uint64_t>> seen;
    const auto start = std::chrono::steady_clock::now();
    auto now = [&] { return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(); };
    TimeColumn timeColumn(TimeMode::Relative, Channel::HostMicroseconds(), 0);
    std::vector<Item> items;
    bool stopping = false;
    double sendEnd = duration;
    double drainDeadline = 0;
    for (;;) {
        const double t = now();
        if (!stopping && (t >= duration || StopRequested())) {
            stopping = true;
            sendEnd = t;
            drainDeadline = t + 5.0;
            // What the generators have not handed on is dropped, not sent.
            for (auto& f : flows)
                if (f.Generator)
                    f.Generator->Disable();
            milBus.Stop();
        }
        for (auto& f : flows)
            if (f.Generator)
                f.Sent = f.Generator->GetGeneratedCount();
        if (!stopping)
            for (auto& s : streams)
                while (s.Next <= t) {
                    Item v = s.Value;
                    if (v.PortType == HDW_PORT_CAN)
                        v.Frame.Data[0] = uint8_t(s.Count);
                    else
                        v.Word.Data = (v.Word.Data + uint32_t(s.Count) * s.Step) & 0x7FFFF;
                    v.Word.SetParity(0);
                    if (!s.Path->Tx->Send(v, error))
                        return Fail("demo: " + error);
                    s.Path->Expected.push_back(v);
                    ++s.Path->Sent;
                    ++s.Count;
                    s.Next += s.Period;
                }
        bool any = false;
        for (size_t i = 0; i < order.size(); ++i) {
            Flow& f = *order[i];
            items.clear();
            if (!f.Rx->Poll(items, error))
                return Fail("demo: " + error);
            // A CAN channel also receives the other direction's flow only.
            for (const auto& it : items) {
                any = true;
                ++f.Received;
                if (it.ParityError)
                    ++f.ParityErrors;
                status.Add(i, 1);
                if (f.Generator) {
                    if (!NextGenerated(f, it.Word))
                        ++f.Altered;
                } else {
                    if (f.Expected.empty() || !SameItem(f.Expected.front(), it))
                        ++f.Altered;
                    if (!f.Expected.empty())
                        f.Expected.pop_front();
                }
                const uint64_t what =
                    it.PortType == HDW_PORT_CAN ? it.Frame.Identifier : uint64_t(it.Word.Label) << 8 | it.Word.Sdi;
                if (verbose || seen.insert({f.Rx->Name(), what}).second) {
                    status.Clear();
                    Item shown = it;
                    shown.TimeUs = timeColumn.Shown(it.TimeUs);
                    std::printf("%s\n",
                        RenderRow(ItemFields(shown, f.Rx->Name()), ColumnsFor(it.PortType), OutputFormat::Text)
                            .c_str());
                }
            }
        }
        items.clear();
        if (!milBus.Poll(items, error))
            return Fail("demo: " + error);
        status.Add(milIndex, items.size());
        for (const auto& it : items) {
            any = true;
            const uint64_t what = uint64_t(it.Transfer.Transmit) << 8 | it.Transfer.Subaddress;
            if (verbose || seen.insert({mil[0]->Name(), what}).second) {
                status.Clear();
                Item shown = it;
                shown.TimeUs = timeColumn.Shown(it.TimeUs);
                std::printf(
                    "%s\n", RenderRow(ItemFields(shown, mil[0]->Name()), Mil1553Columns(), OutputFormat::Text).c_str());
            }
        }
        if (any && !terminal)
            std::fflush(stdout);
        status.Draw(t);
        if (stopping) {
            bool drained = milBus.Drained();
            for (const auto& f : flows)
                drained = drained && f.Received >= f.Sent;
            if (drained || t >= drainDeadline)
                break;
        }
        if (!any)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    status.Clear();

    // Summary.
    const hdwsim::Counters counters = sim.GetCounters();
    std::printf("\nSummary (%.1f s of traffic):\n", sendEnd);
    const Columns sumCols{
        {"PATH", "SENT", "RECEIVED", "LOST", "ALTERED", "PARITY", "RATE/S"}, {20, -8, -8, -6, -7, -6, -7}};
    std::printf("%s\n", RenderRow(sumCols.Header, sumCols, OutputFormat::Text).c_str());
    uint64_t lost = 0, altered = 0, parity = 0, sent = 0;
    for (const auto& f : flows) {
        const uint64_t l = f.Sent > f.Received ? f.Sent - f.Received : 0;
        lost += l;
        altered += f.Altered;
        parity += f.ParityErrors;
        sent += f.Sent;
        char rate[32];
        std::snprintf(rate, sizeof rate, "%.1f", sendEnd > 0 ? double(f.Received) / sendEnd : 0.0);
        std::printf("%s\n",
            RenderRow({f.Tx->Name() + ">" + f.Rx->Name(), std::to_string(f.Sent), std::to_string(f.Received),
                          std::to_string(l), std::to_string(f.Altered), std::to_string(f.ParityErrors), rate},
                sumCols, OutputFormat::Text)
                .c_str());
    }
    {
        // A transfer that failed or never reached the terminal is lost.
        const uint64_t l = milBus.Sent() - milBus.Received() + milBus.Dropped();
        lost += l;
        altered += milBus.Altered();
        sent += milBus.Sent();
        char rate[32];
        std::snprintf(rate, sizeof rate, "%.1f", sendEnd > 0 ? double(milBus.Received()) / sendEnd : 0.0);
        std::printf("%s\n",
            RenderRow(
                {mil[0]->Name() + ">" + mil[1]->Name(), std::to_string(milBus.Sent()),
                    std::to_string(milBus.Received()), std::to_string(l), std::to_string(milBus.Altered()), "0", rate},
                sumCols, OutputFormat::Text)
                .c_str());
    }
    uint64_t fifoDrops = 0;
    for (unsigned k = 0; k < hdwsim::MaxChannels; ++k)
        fifoDrops += counters.A429FifoDropped[k] + counters.CanFifoDropped[k];
    std::printf("unit: %llu commands, %llu events, %llu FIFO drops, %llu bad frames\n",
        static_cast<unsigned long long>(counters.CommandsReceived),
        static_cast<unsigned long long>(counters.EventsSent), static_cast<unsigned long long>(fifoDrops),
        static_cast<unsigned long long>(counters.FramesBadCrc + counters.FramesMalformed));
    if (lost == 0 && altered == 0 && parity == 0 && sent > 0) {
        std::printf(
            "result: no loss, %llu words, frames and transfers checked\n", static_cast<unsigned long long>(sent));
        return ExitOk;
    }
    std::printf("result: LOSS, %llu lost, %llu altered and %llu with a parity error of %llu\n",
        static_cast<unsigned long long>(lost), static_cast<unsigned long long>(altered),
        static_cast<unsigned long long>(parity), static_cast<unsigned long long>(sent));
    return ExitFailed;
}

} // namespace hdwtool
