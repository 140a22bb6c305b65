// Receive paths of the byte links, over real transports.
//
// Ethernet: a unit peer on 127.0.0.1 sends event-data datagrams to a
// connected HOE instance; its receive thread validates each one and appends
// the payload to the instance's receive list; the timer side drains the list
// with LinkRead.
//   BM_HoeReceive   datagrams/s and bytes/s from the peer's send to LinkRead
//   BM_HoeLinkRead  bytes/s of LinkRead alone over a filled receive list
// Serial: a pseudo-terminal's master writes, Com_Read of a USB-UART bridged
// device drains the slave.
//   BM_SerialComRead  bytes/s through Com_Read; bytes_per_read shows that one
//                     call (one read system call) takes everything queued,
//                     never a byte at a time.
#include "links/HoeTestPeer.h"

#include <HdwLib/HdwLib.h>

#include <benchmark/benchmark.h>

#include <chrono>
#include <fcntl.h>
#include <memory>
#include <poll.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr uint64_t kKind = 250;

class CBenchHoeDevice : public CKVX_HdwHoeFtdiUartBridgedDevice {
public:
    CBenchHoeDevice() { m_DeviceCode = kKind; }
};

// One connected Ethernet unit, kept for all HOE benchmarks.
struct HoeRig {
    HoeRig()
    {
        manager.AttachDevice(&device);
        CKVX_HdwManager::CInitPortDesc link(kKind, peer.Link().c_str());
        manager.Enumerate(&link, 1, CKVX_HdwManager::EnumerateNoScan);
        ok = link.Result == 0 && device.Open(0) == 0 &&
            peer.WaitFor([](const HoeTestPeer::Seen& s) { return s.Connects == 1; });
    }
    ~HoeRig()
    {
        device.Close(0);
        manager.Stop();
    }
    unsigned Waiting()
    {
        unsigned n = 0;
        device.LinkGetReadBufferBytes(0u, n);
        return n;
    }
    // Sends `count` datagrams of `payload` bytes; false when they did not all
    // arrive in the receive list within 10 s.
    bool Fill(unsigned count, const std::vector<unsigned char>& payload)
    {
        const unsigned target = Waiting() + count * unsigned(payload.size());
        for (unsigned i = 0; i < count; ++i)
            peer.SendToHost(peer.EventData(payload, number++));
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (Waiting() < target)
            if (std::chrono::steady_clock::now() > deadline)
                return false;
        return true;
    }

    HoeTestPeer peer{kKind};
    CBenchHoeDevice device;
    CKVX_HdwManager manager;
    uint32_t number = 0;
    bool ok = false;
};

HoeRig& Rig()
{
    static HoeRig rig;
    return rig;
}

// Datagrams per batch: well inside the socket's receive buffer, so that
// loopback never drops one.
constexpr unsigned kBatch = 32;

void BM_HoeReceive(benchmark::State& state)
{
    HoeRig& rig = Rig();
    if (!rig.ok) {
        state.SkipWithError("no HOE session");
        return;
    }
    const std::vector<unsigned char> payload(size_t(state.range(0)), 0x5A);
    const unsigned total = kBatch * unsigned(payload.size());
    std::vector<unsigned char> buffer(64 * 1024);
    for (auto _ : state) {
        for (unsigned i = 0; i < kBatch; ++i)
            rig.peer.SendToHost(rig.peer.EventData(payload, rig.number++));
        unsigned read = 0;
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (read < total) {
            unsigned got = 0;
            rig.device.LinkRead(0u, buffer.data(), unsigned(buffer.size()), got);
            read += got;
            if (std::chrono::steady_clock::now() > deadline) {
                state.SkipWithError("datagrams lost");
                return;
            }
        }
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * kBatch);
    state.SetBytesProcessed(int64_t(state.iterations()) * total);
}
BENCHMARK(BM_HoeReceive)->Arg(16)->Arg(256)->Arg(1024)->UseRealTime();

void BM_HoeLinkRead(benchmark::State& state)
{
    HoeRig& rig = Rig();
    if (!rig.ok) {
        state.SkipWithError("no HOE session");
        return;
    }
    const unsigned chunk = unsigned(state.range(0));
    const std::vector<unsigned char> payload(1024, 0xA5);
    std::vector<unsigned char> buffer(chunk);
    int64_t bytes = 0;
    for (auto _ : state) {
        state.PauseTiming();
        const bool filled = rig.Fill(64, payload);
        state.ResumeTiming();
        if (!filled) {
            state.SkipWithError("datagrams lost");
            return;
        }
        unsigned got = 0;
        do {
            rig.device.LinkRead(0u, buffer.data(), chunk, got);
            bytes += got;
        } while (got > 0);
    }
    state.SetBytesProcessed(bytes);
}
BENCHMARK(BM_HoeLinkRead)->Arg(64)->Arg(4096)->Arg(65536);

class CBenchBridgedDevice : public CKVX_HdwFtdiUartBridgedDevice {
public:
    CBenchBridgedDevice()
    {
        m_DeviceCode = 0x7E58;
        m_LinkParameters.BaudRate = 115200;
    }
    // Any explicit link is taken as a unit.
    unsigned ProbeUartLink(CDeviceInstance*, const CKVX_String&) override { return 0; }
};

void BM_SerialComRead(benchmark::State& state)
{
    int master = -1;
    int slave = -1;
    char name[256] = {};
    if (openpty(&master, &slave, name, nullptr, nullptr) != 0) {
        state.SkipWithError("openpty failed");
        return;
    }
    termios raw{};
    tcgetattr(slave, &raw);
    cfmakeraw(&raw);
    tcsetattr(slave, TCSANOW, &raw);
    {
        CBenchBridgedDevice device;
        CKVX_HdwManager manager;
        manager.AttachDevice(&device);
        CKVX_HdwManager::CInitPortDesc link(0x7E58, name);
        manager.Enumerate(&link, 1, CKVX_HdwManager::EnumerateNoScan);
        if (link.Result != 0 || device.Com_Open(0u) != 0) {
            state.SkipWithError("Com_Open failed");
        } else {
            // What the line discipline holds at most is a little under 4 KiB.
            const std::vector<unsigned char> chunk(size_t(state.range(0)), 0x3C);
            std::vector<unsigned char> buffer(8192);
            int64_t bytes = 0;
            int64_t reads = 0;
            for (auto _ : state) {
                if (write(master, chunk.data(), chunk.size()) != ssize_t(chunk.size())) {
                    state.SkipWithError("master write failed");
                    break;
                }
                size_t left = chunk.size();
                while (left > 0) {
                    unsigned got = 0;
                    if (device.Com_Read(0u, buffer.data(), unsigned(buffer.size()), got) != 0) {
                        state.SkipWithError("Com_Read failed");
                        break;
                    }
                    if (got > 0) {
                        ++reads;
                        left -= got;
                        bytes += got;
                    }
                }
            }
            state.SetBytesProcessed(bytes);
            state.counters["bytes_per_read"] = reads ? double(bytes) / double(reads) : 0.0;
            device.Com_Close(0u);
        }
    }
    close(slave);
    close(master);
}
BENCHMARK(BM_SerialComRead)->Arg(64)->Arg(1024)->Arg(4000)->UseRealTime();

} // namespace
