// Receive path of a command-protocol unit on one core: unit frames parsed by
// the receive machine, decoded into events, dispatched to the ports and
// appended to the input services. The link read is left out (Feed); the
// last benchmark goes through the instance's receive list as an Ethernet
// unit's bytes do.
#include "../tests/support/HaldenFeed.h"

#include <benchmark/benchmark.h>

namespace {

using namespace halden_feed;

// Frames of `perFrame` ARINC 429 receive events spread over the four channels.
std::vector<uint8_t> Arinc429Stream(const CFeedDevice& d, unsigned frames, unsigned perFrame)
{
    std::vector<uint8_t> stream;
    uint32_t t = 1;
    for (unsigned f = 0; f < frames; ++f) {
        std::vector<std::vector<uint8_t>> records;
        for (unsigned e = 0; e < perFrame; ++e, ++t)
            records.push_back(A429RxRecord(e & 3, t * 36, 0x40000000u | (t << 10) | (e & 0xFF)));
        const auto frame = UnitFrame(d, records);
        stream.insert(stream.end(), frame.begin(), frame.end());
    }
    return stream;
}

void BM_Arinc429Receive(benchmark::State& state)
{
    CFeedDevice d;
    CKVX_HdwKvxHaldenDevice::CArinc429InBufferService* in[4];
    for (unsigned ch = 0; ch < 4; ++ch)
        in[ch] = d.AddService<CKVX_HdwKvxHaldenDevice::CArinc429InBufferService>(HDW_PORT_ARINC429_RX, ch);
    const auto stream = Arinc429Stream(d, 64, unsigned(state.range(0)));
    std::vector<CKVX_HdwArinc429Message> out(4096);
    for (auto _ : state) {
        if (d.Feed(stream.data(), stream.size()) != 0)
            state.SkipWithError("receive failed");
        state.PauseTiming();
        for (auto* s : in) {
            unsigned n = 0;
            s->Read(out.data(), unsigned(out.size()), n);
        }
        state.ResumeTiming();
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(stream.size()));
    state.SetItemsProcessed(int64_t(state.iterations()) * 64 * state.range(0));
}
BENCHMARK(BM_Arinc429Receive)->Arg(10)->Arg(100);

// The same with a signal service beside each input service, as an application
// that waits on signals has them: each word also becomes a signal, and the
// tick's end queues them (PublishReadiness) before the application reads.
void BM_Arinc429ReceiveWithSignals(benchmark::State& state)
{
    CFeedDevice d;
    CKVX_HdwKvxHaldenDevice::CArinc429InBufferService* in[4];
    CKVX_HdwKvxHaldenDevice::CSignalService* signals[4];
    for (unsigned ch = 0; ch < 4; ++ch) {
        in[ch] = d.AddService<CKVX_HdwKvxHaldenDevice::CArinc429InBufferService>(HDW_PORT_ARINC429_RX, ch);
        signals[ch] = d.AddService<CKVX_HdwKvxHaldenDevice::CSignalService>(HDW_PORT_ARINC429_RX, ch);
    }
    const auto stream = Arinc429Stream(d, 64, unsigned(state.range(0)));
    std::vector<CKVX_HdwArinc429Message> out(4096);
    std::vector<CKVX_HdwSignalService::CSignal> got(1000);
    for (auto _ : state) {
        if (d.Feed(stream.data(), stream.size()) != 0)
            state.SkipWithError("receive failed");
        for (auto* s : signals)
            s->PublishReadiness();
        state.PauseTiming();
        for (unsigned ch = 0; ch < 4; ++ch) {
            unsigned n = 0;
            in[ch]->Read(out.data(), unsigned(out.size()), n);
            do
                signals[ch]->ReadSignals(got.data(), unsigned(got.size()), n);
            while (n != 0);
        }
        state.ResumeTiming();
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(stream.size()));
    state.SetItemsProcessed(int64_t(state.iterations()) * 64 * state.range(0));
}
BENCHMARK(BM_Arinc429ReceiveWithSignals)->Arg(10); // 160 words a channel: no signal dropped

void BM_CanReceive(benchmark::State& state)
{
    CFeedDevice d;
    CKVX_HdwKvxHaldenDevice::CCanInBufferService* in[2];
    for (unsigned ch = 0; ch < 2; ++ch)
        in[ch] = d.AddService<CKVX_HdwKvxHaldenDevice::CCanInBufferService>(HDW_PORT_CAN, ch);
    std::vector<uint8_t> stream;
    for (unsigned f = 0; f < 64; ++f) {
        std::vector<std::vector<uint8_t>> records;
        for (unsigned e = 0; e < 60; ++e)
            records.push_back(CanRxRecord(e & 1, f * 100 + e, 0x1000000 + e));
        const auto frame = UnitFrame(d, records);
        stream.insert(stream.end(), frame.begin(), frame.end());
    }
    std::vector<CKVX_HdwCanMessage> out(4096);
    for (auto _ : state) {
        if (d.Feed(stream.data(), stream.size()) != 0)
            state.SkipWithError("receive failed");
        state.PauseTiming();
        for (auto* s : in) {
            unsigned n = 0;
            s->Read(out.data(), unsigned(out.size()), n);
        }
        state.ResumeTiming();
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(stream.size()));
    state.SetItemsProcessed(int64_t(state.iterations()) * 64 * 60);
}
BENCHMARK(BM_CanReceive);

void BM_Arinc429ReceiveThroughEthernetList(benchmark::State& state)
{
    CFeedDevice d;
    auto* in = d.AddService<CKVX_HdwKvxHaldenDevice::CArinc429InBufferService>(HDW_PORT_ARINC429_RX, 0);
    const auto stream = Arinc429Stream(d, 16, 100);
    std::vector<CKVX_HdwArinc429Message> out(4096);
    for (auto _ : state) {
        state.PauseTiming();
        d.Push(stream.data(), stream.size());
        state.ResumeTiming();
        if (d.Receive() != 0)
            state.SkipWithError("receive failed");
        state.PauseTiming();
        unsigned n = 0;
        in->Read(out.data(), unsigned(out.size()), n);
        state.ResumeTiming();
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(stream.size()));
}
BENCHMARK(BM_Arinc429ReceiveThroughEthernetList);

} // namespace
