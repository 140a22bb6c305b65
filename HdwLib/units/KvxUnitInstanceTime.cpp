// The unit instance's loss counters and unit time, read by applications
// under the instance's device lock.
#include <HdwLib/units/KvxCommandUnit.h>

#include <chrono>

namespace {

class CInstanceLock {
public:
    explicit CInstanceLock(CKVX_HdwDevice::CDeviceInstance& base) : m_Base(base) { m_Base.Lock(); }
    ~CInstanceLock() { m_Base.Unlock(); }
    CInstanceLock(const CInstanceLock&) = delete;
    CInstanceLock& operator=(const CInstanceLock&) = delete;

private:
    CKVX_HdwDevice::CDeviceInstance& m_Base;
};

uint64_t Microseconds(std::chrono::nanoseconds since)
{
    return uint64_t(std::chrono::duration_cast<std::chrono::microseconds>(since).count());
}

} // namespace

CKVX_HdwKvxUnitInstance::CLossCounters CKVX_HdwKvxUnitInstance::GetLossCounters()
{
    CInstanceLock lock(m_Base);
    CLossCounters c;
    c.CrcErrors = CrcErrors;
    c.MalformedFrames = MalformedFrames;
    c.FailedFrames = FailedFrames;
    c.StaleEchoes = StaleEchoes;
    c.EchoTimeouts = EchoTimeouts;
    c.LostCommands = LostCommands;
    return c;
}

bool CKVX_HdwKvxUnitInstance::GetLatestUnitTime(uint64_t& unitUs)
{
    CInstanceLock lock(m_Base);
    unitUs = Clock.GetLatest();
    return Clock.HasTime();
}

uint64_t CKVX_HdwKvxUnitInstance::UnwrapUnitTime(uint64_t timeStamp)
{
    CInstanceLock lock(m_Base);
    return Clock.UnwrapPast(uint32_t(timeStamp));
}

bool CKVX_HdwKvxUnitInstance::MapUnitTime(uint64_t unitUs, uint64_t& hostMonotonicUs, uint64_t& wallClockUs)
{
    {
        CInstanceLock lock(m_Base);
        if (!Clock.ToHost(unitUs, hostMonotonicUs))
            return false;
    }
    // The wall clock may be set while we run: its offset from the monotonic
    // clock is taken now.
    const uint64_t mono = HostMonotonicMicroseconds();
    const uint64_t wall = Microseconds(std::chrono::system_clock::now().time_since_epoch());
    wallClockUs = wall - mono + hostMonotonicUs;
    return true;
}

double CKVX_HdwKvxUnitInstance::GetUnitClockRate()
{
    CInstanceLock lock(m_Base);
    return Clock.GetRate();
}

uint64_t CKVX_HdwKvxUnitInstance::HostMonotonicMicroseconds()
{
    return Microseconds(std::chrono::steady_clock::now().time_since_epoch());
}
