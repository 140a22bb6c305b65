#include <hdwsim/Emulator.h>
#include <hdwsim/UnitEngine.h>

#include "PtyEndpoint.h"
#include "SorrelUarts.h"
#include "UdpEndpoint.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <sys/eventfd.h>
#include <thread>
#include <unistd.h>

namespace hdwsim {

namespace {
// While no host holds the pseudo-terminal's slave the master cannot be polled
// (it reports a hang-up at once); its state is checked this often instead.
constexpr uint64_t PeerCheckNs = 10'000'000;
constexpr size_t SerialChunk = 1u << 20;
// Shortest pause between two wake-ups for bus events (see Run).
constexpr uint64_t MinWakeGapNs = 200'000;
constexpr size_t UdpChunk = 1350;

UnitEngine::Options EngineOptions(const Emulator::Options& o, std::chrono::steady_clock::time_point epoch)
{
    UnitEngine::Options e;
    e.Pacing = o.Pacing;
    e.ClockStartUs = o.ClockStartUs;
    e.MilStd1553Terminals = o.MilStd1553Terminals;
    // steady_clock is CLOCK_MONOTONIC here: the unit clock starts at the
    // epoch's monotonic microseconds and then runs with it.
    if (o.MonotonicClock)
        e.ClockStartUs = static_cast<uint32_t>(
            std::chrono::duration_cast<std::chrono::microseconds>(epoch.time_since_epoch()).count());
    return e;
}
} // namespace

struct Emulator::Impl {
    Impl(const UnitModel& model, const Options& options)
        : Model(model),
          Opts(options),
          Epoch(std::chrono::steady_clock::now()),
          Engine(model, EngineOptions(options, Epoch))
    {
        if (Opts.SerialNumber.empty())
            Opts.SerialNumber = std::string(model.DefaultSerialNumber);
        if (model.PortPackets) {
            Ports = std::make_unique<SorrelPortHandler>(Udp, Engine.MutableCounters(), Opts.UartPaceFactor);
            Udp.SetPortHandler(Ports.get());
        }
    }

    const UnitModel& Model;
    Options Opts;
    mutable std::mutex Mutex;
    // Time 0 of the engine (declared before it: its options read it).
    std::chrono::steady_clock::time_point Epoch;
    UnitEngine Engine;
    PtyEndpoint Pty;
    UdpEndpoint Udp;
    std::unique_ptr<SorrelPortHandler> Ports; // the UARTs of a port-packet unit
    std::thread Thread;
    int WakeFd = -1;
    bool Running = false;
    bool StopRequested = false;
    bool HungUp = false;
    bool Unplugged = false;
    UnitEngine::Link Active = UnitEngine::LinkSerial;

    uint64_t Now() const
    {
        return static_cast<uint64_t>(
            std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now() - Epoch).count());
    }

    void Log(const std::string& line) const
    {
        if (Opts.Log)
            Opts.Log(line);
    }

    void Wake() const
    {
        if (WakeFd >= 0) {
            const uint64_t one = 1;
            [[maybe_unused]] ssize_t n = write(WakeFd, &one, sizeof one);
        }
    }

    bool Silent() const { return HungUp || Unplugged; }
    // Points Opts.LinkPath at the pseudo-terminal's path (replacing what was
    // there in one step, so that a host never sees a half-made link).
    bool PointLink(std::string& error);
    void RemoveLink();
    void RouteOutput(uint64_t now);
    void Run();
};

bool Emulator::Impl::PointLink(std::string& error)
{
    if (Opts.LinkPath.empty() || !Pty.IsOpen())
        return true;
    const std::string tmp = Opts.LinkPath + ".new";
    unlink(tmp.c_str());
    if (symlink(Pty.Path().c_str(), tmp.c_str()) != 0 || rename(tmp.c_str(), Opts.LinkPath.c_str()) != 0) {
        error = "cannot make the link " + Opts.LinkPath + ": " + std::strerror(errno);
        unlink(tmp.c_str());
        return false;
    }
    return true;
}

void Emulator::Impl::RemoveLink()
{
    if (!Opts.LinkPath.empty())
        unlink(Opts.LinkPath.c_str());
}

void Emulator::Impl::RouteOutput(uint64_t now)
{
    std::vector<uint8_t> chunk;
    while (Engine.NextOutputNs() <= now) {
        if (Silent()) {
            Engine.DiscardOutput();
            return;
        }
        chunk.clear();
        if (Active == UnitEngine::LinkSerial) {
            if (!Pty.IsOpen() || !Pty.PeerPresent()) {
                Engine.DiscardOutput();
                return;
            }
            Engine.TakeOutput(now, SerialChunk, chunk);
            Pty.Write(chunk.data(), chunk.size());
        } else {
            if (!Udp.HasSession()) {
                Engine.DiscardOutput();
                return;
            }
            Engine.TakeOutput(now, UdpChunk, chunk);
            Udp.SendEventData(chunk, Engine.MutableCounters());
        }
    }
}

void Emulator::Impl::Run()
{
    if (Opts.RealTime) {
        sched_param priority{};
        priority.sched_priority = sched_get_priority_min(SCHED_FIFO) + 2;
        if (pthread_setschedparam(pthread_self(), SCHED_FIFO, &priority) != 0)
            Log("real-time priority refused; serving at normal priority");
    }
    std::unique_lock<std::mutex> lock(Mutex);
    std::vector<uint8_t> input;
    uint64_t lastWake = 0;
    while (!StopRequested) {
        uint64_t now = Now();
        if (Pty.IsOpen() && !Pty.PeerPresent() && Pty.RefreshPeer())
            Log("pty peer connected");
        Engine.Advance(now);
        if (Udp.Fd() >= 0) {
            const bool had = Udp.HasSession();
            Udp.Tick(now, Engine, Silent());
            if (had && !Udp.HasSession())
                Log("udp session timed out");
            if (Ports && Udp.HasSession() && !Silent())
                Ports->Advance(now);
        }
        RouteOutput(now);

        pollfd fds[3];
        nfds_t n = 0;
        fds[n++] = {WakeFd, POLLIN, 0};
        int ptyIndex = -1;
        int udpIndex = -1;
        if (Pty.IsOpen() && Pty.PeerPresent()) {
            ptyIndex = static_cast<int>(n);
            fds[n++] = {Pty.Fd(), static_cast<short>(POLLIN | (Pty.HasPending() ? POLLOUT : 0)), 0};
        }
        if (Udp.Fd() >= 0) {
            udpIndex = static_cast<int>(n);
            fds[n++] = {Udp.Fd(), POLLIN, 0};
        }
        uint64_t wake = std::min({Engine.NextBusEventNs(), Engine.NextOutputNs(), Udp.NextWakeNs()});
        if (Ports && Udp.HasSession())
            wake = std::min(wake, Ports->Uarts.NextWakeNs());
        if (Pty.IsOpen() && !Pty.PeerPresent())
            wake = std::min(wake, now + PeerCheckNs);
        // Wake at the next bus event itself rather than at the next whole
        // millisecond, but no sooner than MinWakeGapNs after the last
        // wake-up: events leave at most that late, and a busy bus costs a
        // bounded number of wake-ups and frames per second.
        timespec timeout{};
        const timespec* timeoutPtr = nullptr;
        if (wake != UnitEngine::Never) {
            if (wake > now)
                wake = std::max(wake, lastWake + MinWakeGapNs);
            const uint64_t ns = wake <= now ? 0 : std::min<uint64_t>(wake - now, 60'000'000'000ull);
            timeout.tv_sec = static_cast<time_t>(ns / 1'000'000'000);
            timeout.tv_nsec = static_cast<long>(ns % 1'000'000'000);
            timeoutPtr = &timeout;
        }

        lock.unlock();
        const int ready = ppoll(fds, n, timeoutPtr, nullptr);
        lock.lock();
        lastWake = Now();
        if (ready <= 0)
            continue;
        now = Now();
        if (fds[0].revents & POLLIN) {
            uint64_t v;
            [[maybe_unused]] ssize_t r = read(WakeFd, &v, sizeof v);
        }
        // The endpoints may have been closed or reopened while unlocked.
        if (ptyIndex >= 0 && Pty.IsOpen() && Pty.Fd() == fds[ptyIndex].fd && fds[ptyIndex].revents) {
            if (fds[ptyIndex].revents & POLLOUT)
                Pty.Flush();
            input.clear();
            const bool present = Pty.Read(input);
            if (Silent())
                Engine.MutableCounters().BytesIgnored += input.size();
            else if (!input.empty()) {
                Active = UnitEngine::LinkSerial;
                Engine.OnHostBytes(UnitEngine::LinkSerial, input.data(), input.size(), now);
            }
            if (!present) {
                Engine.ResetLink(UnitEngine::LinkSerial);
                Log("pty peer closed");
            }
        }
        if (udpIndex >= 0 && Udp.Fd() >= 0 && (fds[udpIndex].revents & POLLIN)) {
            if (Udp.OnReadable(now, Engine, Silent()))
                Active = UnitEngine::LinkUdp;
        }
    }
}

Emulator::Emulator(const UnitModel& model, const Options& options) : m(std::make_unique<Impl>(model, options)) {}

Emulator::~Emulator()
{
    Stop();
}

bool Emulator::Start(std::string* error)
{
    std::lock_guard<std::mutex> lock(m->Mutex);
    std::string why;
    if (m->Running) {
        why = "already running";
    } else if (m->Opts.Pty && !m->Model.Serial) {
        why = "this unit has no serial link";
    } else if (m->Opts.Udp && !m->Model.Ethernet) {
        why = "this unit has no Ethernet link";
    } else if (!m->Opts.Pty && !m->Opts.Udp) {
        why = "no endpoint requested";
    } else if (m->Opts.Pty && !m->Pty.Open(why)) {
    } else if (m->Opts.Pty && !m->PointLink(why)) {
    } else if (m->Opts.Udp &&
        !m->Udp.Open({m->Opts.UdpPort, m->Opts.SerialNumber, uint64_t(m->Opts.SessionTimeoutMs) * 1'000'000,
                         uint64_t(m->Opts.KeepAliveMs) * 1'000'000, m->Opts.Seed},
            why)) {
    } else if ((m->WakeFd = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) < 0) {
        why = "eventfd failed";
    } else {
        m->Active = m->Opts.Pty ? UnitEngine::LinkSerial : UnitEngine::LinkUdp;
        m->StopRequested = false;
        m->Unplugged = false;
        m->Running = true;
        m->Thread = std::thread([this] { m->Run(); });
        return true;
    }
    m->Pty.Close();
    m->Udp.Close();
    if (error)
        *error = why;
    return false;
}

void Emulator::Stop()
{
    {
        std::lock_guard<std::mutex> lock(m->Mutex);
        if (!m->Running)
            return;
        m->StopRequested = true;
        m->Wake();
    }
    m->Thread.join();
    std::lock_guard<std::mutex> lock(m->Mutex);
    m->Running = false;
    if (m->Opts.Pty)
        m->RemoveLink();
    m->Pty.Close();
    m->Udp.Close();
    close(m->WakeFd);
    m->WakeFd = -1;
}

bool Emulator::IsRunning() const
{
    std::lock_guard<std::mutex> lock(m->Mutex);
    return m->Running;
}

const UnitModel& Emulator::Model() const
{
    return m->Model;
}

std::string Emulator::PtyPath() const
{
    std::lock_guard<std::mutex> lock(m->Mutex);
    return m->Pty.IsOpen() ? m->Pty.Path() : std::string();
}

uint16_t Emulator::UdpPort() const
{
    std::lock_guard<std::mutex> lock(m->Mutex);
    return m->Udp.Fd() >= 0 ? m->Udp.Port() : 0;
}

bool Emulator::HasUdpSession() const
{
    std::lock_guard<std::mutex> lock(m->Mutex);
    return m->Udp.HasSession();
}

uint32_t Emulator::UdpSessionId() const
{
    std::lock_guard<std::mutex> lock(m->Mutex);
    return m->Udp.SessionId();
}

Counters Emulator::GetCounters() const
{
    std::lock_guard<std::mutex> lock(m->Mutex);
    return m->Engine.GetCounters();
}

uint32_t Emulator::ClockUs() const
{
    std::lock_guard<std::mutex> lock(m->Mutex);
    return m->Engine.ClockUs(m->Now());
}

size_t Emulator::A429FifoLevel(unsigned channel) const
{
    std::lock_guard<std::mutex> lock(m->Mutex);
    return m->Engine.A429FifoLevel(channel);
}

size_t Emulator::CanFifoLevel(unsigned channel) const
{
    std::lock_guard<std::mutex> lock(m->Mutex);
    return m->Engine.CanFifoLevel(channel);
}

UnitEngine::A429RxState Emulator::A429Receiver(unsigned channel) const
{
    std::lock_guard<std::mutex> lock(m->Mutex);
    return m->Engine.A429Receiver(channel);
}

std::vector<uint8_t> Emulator::RecentCommandCodes() const
{
    std::lock_guard<std::mutex> lock(m->Mutex);
    return m->Engine.RecentCommandCodes();
}

void Emulator::SetEchoEnabled(bool enabled)
{
    std::lock_guard<std::mutex> lock(m->Mutex);
    m->Engine.SetEchoEnabled(enabled);
}

void Emulator::FlipNextA429Parity(unsigned words)
{
    std::lock_guard<std::mutex> lock(m->Mutex);
    m->Engine.FlipNextA429Parity(words);
}

bool Emulator::LoseNextA429Words(unsigned channel, unsigned words)
{
    std::lock_guard<std::mutex> lock(m->Mutex);
    return m->Engine.LoseNextA429Words(channel, words);
}

bool Emulator::HoldI2cBus(unsigned channel, unsigned ms)
{
    std::lock_guard<std::mutex> lock(m->Mutex);
    return m->Engine.HoldI2cBus(channel, ms, m->Now());
}

bool Emulator::NackNextI2c(unsigned channel, unsigned byteIndex)
{
    std::lock_guard<std::mutex> lock(m->Mutex);
    return m->Engine.NackNextI2c(channel, byteIndex);
}

bool Emulator::LoseI2cArbitration(unsigned channel)
{
    std::lock_guard<std::mutex> lock(m->Mutex);
    return m->Engine.LoseI2cArbitration(channel);
}

void Emulator::CorruptNextFrameCrc(unsigned frames)
{
    std::lock_guard<std::mutex> lock(m->Mutex);
    m->Engine.CorruptNextFrameCrc(frames);
}

void Emulator::InsertStrayBytes(const std::vector<uint8_t>& bytes)
{
    std::lock_guard<std::mutex> lock(m->Mutex);
    m->Engine.InsertStrayBytes(bytes);
}

bool Emulator::InjectCriticalFailure(unsigned code)
{
    std::lock_guard<std::mutex> lock(m->Mutex);
    const bool sent = m->Engine.InjectCriticalFailure(code, m->Now());
    m->Wake();
    return sent;
}

bool Emulator::DriveInput(unsigned bank, uint32_t mask, uint32_t value)
{
    std::lock_guard<std::mutex> lock(m->Mutex);
    const bool ok = m->Engine.DriveInput(bank, mask, value, m->Now());
    m->Wake();
    return ok;
}

bool Emulator::ReleaseInput(unsigned bank, uint32_t mask)
{
    std::lock_guard<std::mutex> lock(m->Mutex);
    const bool ok = m->Engine.ReleaseInput(bank, mask, m->Now());
    m->Wake();
    return ok;
}

bool Emulator::BounceInput(unsigned bank, unsigned line, unsigned edges, unsigned spacingUs)
{
    std::lock_guard<std::mutex> lock(m->Mutex);
    const bool ok = m->Engine.BounceInput(bank, line, edges, spacingUs, m->Now());
    m->Wake();
    return ok;
}

void Emulator::DropNextDiscreteEvents(unsigned events)
{
    std::lock_guard<std::mutex> lock(m->Mutex);
    m->Engine.DropNextDiscreteEvents(events);
}

uint32_t Emulator::DiscreteOutputState(unsigned bank) const
{
    std::lock_guard<std::mutex> lock(m->Mutex);
    return m->Engine.DiscreteOutputState(bank);
}

bool Emulator::SetCanFault(unsigned channel, unsigned faultState, uint8_t errReg0, uint8_t errReg1)
{
    std::lock_guard<std::mutex> lock(m->Mutex);
    return m->Engine.SetCanFault(channel, faultState, errReg0, errReg1);
}

bool Emulator::SetMilStd1553Fault(unsigned address, unsigned bus, MilStd1553Fault fault, unsigned transfers)
{
    std::lock_guard<std::mutex> lock(m->Mutex);
    return m->Engine.SetMilStd1553Fault(address, bus, fault, transfers);
}

uint16_t Emulator::MilStd1553SramWord(unsigned channel, unsigned address) const
{
    std::lock_guard<std::mutex> lock(m->Mutex);
    return m->Engine.MilStd1553SramWord(channel, address);
}

bool Emulator::InjectMilStd1553Event(unsigned channel, const std::vector<uint8_t>& body)
{
    std::lock_guard<std::mutex> lock(m->Mutex);
    const bool sent = m->Engine.InjectMilStd1553Event(channel, body, m->Now());
    m->Wake();
    return sent;
}

void Emulator::SetAnswerDelayMs(unsigned ms)
{
    std::lock_guard<std::mutex> lock(m->Mutex);
    m->Engine.SetAnswerDelayMs(ms);
    m->Wake();
}

void Emulator::DropNextUdpPackets(unsigned packets)
{
    std::lock_guard<std::mutex> lock(m->Mutex);
    m->Udp.DropNext(packets);
}

void Emulator::SetUdpDropFraction(double fraction)
{
    std::lock_guard<std::mutex> lock(m->Mutex);
    m->Udp.SetDropFraction(std::clamp(fraction, 0.0, 1.0));
}

void Emulator::SetHungUp(bool hungUp)
{
    std::lock_guard<std::mutex> lock(m->Mutex);
    if (m->HungUp != hungUp)
        m->Log(hungUp ? "hung up" : "answering again");
    m->HungUp = hungUp;
    if (hungUp) {
        m->Engine.ResetLink(UnitEngine::LinkSerial);
        m->Engine.ResetLink(UnitEngine::LinkUdp);
    }
    m->Wake();
}

void Emulator::ClosePty()
{
    std::lock_guard<std::mutex> lock(m->Mutex);
    m->Pty.Close();
    m->Engine.ResetLink(UnitEngine::LinkSerial);
    m->Wake();
}

bool Emulator::ReopenPty(std::string* error)
{
    std::lock_guard<std::mutex> lock(m->Mutex);
    std::string why;
    const bool ok = m->Pty.Open(why);
    m->Engine.ResetLink(UnitEngine::LinkSerial);
    if (!ok && error)
        *error = why;
    m->Wake();
    return ok;
}

std::string Emulator::LinkPath() const
{
    std::lock_guard<std::mutex> lock(m->Mutex);
    return m->Opts.Pty ? m->Opts.LinkPath : std::string();
}

void Emulator::Unplug()
{
    std::lock_guard<std::mutex> lock(m->Mutex);
    if (m->Unplugged || !m->Running)
        return;
    m->Unplugged = true;
    m->Log("unplugged");
    // The serial device disappears: the link path goes, then the terminal.
    if (m->Opts.Pty) {
        m->RemoveLink();
        m->Pty.Close();
    }
    // Without power the unit keeps nothing: no session, no half-read frame.
    m->Udp.ForgetSession(m->Engine);
    m->Engine.ResetLink(UnitEngine::LinkSerial);
    m->Engine.ResetLink(UnitEngine::LinkUdp);
    m->Wake();
}

bool Emulator::Plug(std::string* error)
{
    std::lock_guard<std::mutex> lock(m->Mutex);
    if (!m->Unplugged || !m->Running)
        return m->Running;
    std::string why;
    if (m->Opts.Pty && (!m->Pty.Open(why) || !m->PointLink(why))) {
        if (error)
            *error = why;
        return false;
    }
    m->Unplugged = false;
    m->Log("plugged in");
    m->Wake();
    return true;
}

bool Emulator::IsPlugged() const
{
    std::lock_guard<std::mutex> lock(m->Mutex);
    return !m->Unplugged;
}

void Emulator::DropHostPackets(unsigned packets)
{
    std::lock_guard<std::mutex> lock(m->Mutex);
    if (m->Ports)
        m->Ports->Uarts.DropHostPackets(packets);
}

bool Emulator::InjectBreak(unsigned channel)
{
    std::lock_guard<std::mutex> lock(m->Mutex);
    return m->Ports && m->Ports->Uarts.InjectBreak(channel);
}

void Emulator::SetSessionTimeoutMs(unsigned ms)
{
    std::lock_guard<std::mutex> lock(m->Mutex);
    m->Opts.SessionTimeoutMs = ms;
    m->Udp.SetSessionTimeoutNs(uint64_t(ms) * 1'000'000);
    m->Wake();
}

} // namespace hdwsim
