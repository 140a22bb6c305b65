// Costs of the bus vocabulary: ARINC 429 pack/unpack/filter per word, the
// receive path of a word or frame (filter and append under the unit lock,
// as a driver does per event, then the application's batch Read), and the
// signal queue.
#include <HdwLib/HdwLib.h>

#include <benchmark/benchmark.h>

#include <random>
#include <vector>

namespace {

// One unit with one real instance lock, no manager: enough for the services'
// DeviceLock to take a real mutex.
class CBenchDevice : public CKVX_HdwDevice {
public:
    CBenchDevice()
    {
        CKVX_HdwDevice::Init(1);
        m_DeviceList.Create(1);
        m_DeviceList[0] = new CDeviceInstance;
    }
};

class CBenchArinc429In : public CKVX_HdwArinc429InBufferService {
public:
    using CKVX_HdwArinc429InBufferService::CKVX_HdwArinc429InBufferService;
    bool Append(const CKVX_HdwArinc429Message& m, uint64_t t) { return AppendReceived(m, t); }
    unsigned char Filter(CKVX_HdwArinc429Message& m) { return ApplyFilter(m, LabelFilter); }
    unsigned Read(CKVX_HdwArinc429Message* out, unsigned max, unsigned& n) override
    {
        return ReadMessages(out, max, n);
    }
};

class CBenchCanIn : public CKVX_HdwCanInBufferService {
public:
    using CKVX_HdwCanInBufferService::CKVX_HdwCanInBufferService;
    void Append(const CKVX_HdwCanMessage& m, uint64_t t) { AppendReceived(m, t); }
    unsigned Read(CKVX_HdwCanMessage* out, unsigned max, unsigned& n) override { return ReadMessages(out, max, n); }
};

std::vector<uint32_t> RandomWords(size_t n)
{
    std::mt19937 rng(429);
    std::vector<uint32_t> w(n);
    for (auto& x : w)
        x = static_cast<uint32_t>(rng());
    return w;
}

void BM_Arinc429Unpack(benchmark::State& state)
{
    const auto words = RandomWords(1024);
    CKVX_HdwArinc429Message m;
    size_t i = 0;
    for (auto _ : state) {
        m.SetFromUint32(words[i++ & 1023]);
        benchmark::DoNotOptimize(m);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Arinc429Unpack);

void BM_Arinc429PackWithParity(benchmark::State& state)
{
    const auto words = RandomWords(1024);
    std::vector<CKVX_HdwArinc429Message> msgs(1024);
    for (size_t k = 0; k < msgs.size(); ++k)
        msgs[k].SetFromUint32(words[k]);
    size_t i = 0;
    for (auto _ : state) {
        CKVX_HdwArinc429Message& m = msgs[i++ & 1023];
        m.SetParity(0);
        benchmark::DoNotOptimize(m.GetToUint32());
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Arinc429PackWithParity);

void BM_Arinc429Filter(benchmark::State& state)
{
    CBenchArinc429In in(nullptr);
    for (unsigned l = 0; l < 256; l += 3)
        in.AcceptMessage(static_cast<unsigned char>(l), 0x05, 0x0A);
    const auto words = RandomWords(1024);
    std::vector<CKVX_HdwArinc429Message> msgs(1024);
    for (size_t k = 0; k < msgs.size(); ++k)
        msgs[k].SetFromUint32(words[k]);
    size_t i = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(in.Filter(msgs[i++ & 1023]));
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Arinc429Filter);

// A received word's whole path: lock, filter, stamp, append, unlock (per
// word, as a driver does per event), then one Read of the 1000 words.
void BM_Arinc429ReceiveAndRead1000(benchmark::State& state)
{
    CBenchDevice device;
    CKVX_HdwArinc429RxPort port(&device, 0, "RX0");
    CBenchArinc429In in(&port);
    in.Start();
    const auto words = RandomWords(1000);
    std::vector<CKVX_HdwArinc429Message> msgs(1000), out(1000);
    for (size_t k = 0; k < msgs.size(); ++k)
        msgs[k].SetFromUint32(words[k]);
    uint64_t t = 0;
    for (auto _ : state) {
        for (const auto& m : msgs) {
            in.DeviceLock();
            in.Append(m, ++t);
            in.DeviceUnlock();
        }
        unsigned n = 0;
        in.Read(out.data(), 1000, n);
        if (n != 1000)
            state.SkipWithError("words lost");
    }
    state.SetItemsProcessed(state.iterations() * 1000);
}
BENCHMARK(BM_Arinc429ReceiveAndRead1000);

// One second of a data generator's 1 ms ticks: `labels` BNR sine labels at
// 50 words a second each, generated and taken as a driver takes them.
void BM_DataGeneratorSecondOfTicks(benchmark::State& state)
{
    using Gen = CKVX_HdwDataGeneratorService;
    Gen gen(nullptr);
    gen.Start();
    std::vector<Gen::CLabelDef> defs;
    for (int i = 0; i < state.range(0); ++i) {
        Gen::CLabelDef d(uint8_t(i), 50.0);
        d.Pattern = Gen::PatternBnr;
        d.Range = 512;
        d.Resolution = 0.25;
        d.Low = -100;
        d.High = 100;
        d.Period = 2;
        defs.push_back(d);
    }
    gen.SetLabels(defs.data(), unsigned(defs.size()));
    CKVX_HdwArinc429Message words[64];
    uint64_t now = 0, taken = 0;
    for (auto _ : state) {
        for (int tick = 0; tick < 1000; ++tick) {
            gen.Generate(now += 1000);
            while (unsigned n = gen.TakeWords(words, 64))
                taken += n;
        }
    }
    if (gen.GetMissedCount() != 0)
        state.SkipWithError("transmissions skipped");
    state.SetItemsProcessed(int64_t(taken));
}
BENCHMARK(BM_DataGeneratorSecondOfTicks)->Arg(8)->Arg(64);

// Read alone: 1000 words in one call against 1000 calls of one word.
void BM_Arinc429Read(benchmark::State& state)
{
    const unsigned batch = static_cast<unsigned>(state.range(0));
    CBenchDevice device;
    CKVX_HdwArinc429RxPort port(&device, 0, "RX0");
    CBenchArinc429In in(&port);
    in.Start();
    CKVX_HdwArinc429Message m;
    std::vector<CKVX_HdwArinc429Message> out(1000);
    for (auto _ : state) {
        state.PauseTiming();
        in.DeviceLock();
        for (unsigned k = 0; k < 1000; ++k)
            in.Append(m, k);
        in.DeviceUnlock();
        state.ResumeTiming();
        unsigned total = 0, n = 0;
        while (total < 1000) {
            in.Read(out.data(), batch, n);
            total += n;
        }
    }
    state.SetItemsProcessed(state.iterations() * 1000);
}
BENCHMARK(BM_Arinc429Read)->Arg(1000)->Arg(1);

void BM_CanReceiveAndRead1000(benchmark::State& state)
{
    CBenchDevice device;
    CKVX_HdwCanPort port(&device, 0, "CAN0");
    CBenchCanIn in(&port);
    in.Start();
    std::vector<CKVX_HdwCanMessage> frames(1000), out(1000);
    for (unsigned k = 0; k < 1000; ++k) {
        frames[k].Identifier = k;
        frames[k].Dlc = 8;
    }
    uint64_t t = 0;
    for (auto _ : state) {
        for (const auto& f : frames) {
            in.DeviceLock();
            in.Append(f, ++t);
            in.DeviceUnlock();
        }
        unsigned n = 0;
        in.Read(out.data(), 1000, n);
        if (n != 1000)
            state.SkipWithError("frames lost");
    }
    state.SetItemsProcessed(state.iterations() * 1000);
}
BENCHMARK(BM_CanReceiveAndRead1000);

void BM_SignalPostAndRead1000(benchmark::State& state)
{
    CKVX_HdwSignalService signals(nullptr);
    signals.Start();
    CKVX_HdwArinc429Message m;
    std::vector<CKVX_HdwSignalService::CSignal> out(1000);
    for (auto _ : state) {
        for (unsigned k = 0; k < 1000; ++k)
            signals.PostArinc429(HDW_SIGNAL_ARINC429_RECEIVED, m, k);
        unsigned n = 0;
        signals.ReadSignals(out.data(), 1000, n);
        if (n != 1000)
            state.SkipWithError("signals lost");
    }
    state.SetItemsProcessed(state.iterations() * 1000);
}
BENCHMARK(BM_SignalPostAndRead1000);

} // namespace
