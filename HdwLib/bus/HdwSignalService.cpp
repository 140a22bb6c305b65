#include <HdwLib/bus/HdwSignalService.h>
#include <HdwLib/bus/HdwSignalGroup.h>
#include <HdwLib/bus/internal/PlatformSignal.h>
#include <HdwLib/framework/HdwPort.h>

#include <chrono>

CKVX_HdwSignalService::CParameters::~CParameters() = default;
CKVX_HdwSignalService::CSignal::~CSignal() = default;

CKVX_HdwSignalService::CCanTranceiverErrorSignal::CCanTranceiverErrorSignal()
{
    Kind = HDW_SIGNAL_CAN_TRANSCEIVER_ERROR;
}

CKVX_HdwSignalService::CCanTranceiverErrorSignal::CCanTranceiverErrorSignal(const CSignal& signal) : CSignal(signal) {}

CKVX_HdwSignalService::CCanTranceiverErrorSignal::~CCanTranceiverErrorSignal() = default;

CKVX_HdwSignalService::CKVX_HdwSignalService(CKVX_HdwObject* port)
    : CKVX_HdwService(port),
      m_Readiness(hdw::platform::ReadinessCreate())
{
    m_ServiceType = HDW_SERVICE_SIGNAL;
}

CKVX_HdwSignalService::~CKVX_HdwSignalService()
{
    LeaveGroup();
    hdw::platform::ReadinessDestroy(m_Readiness);
}

// ---- lifecycle --------------------------------------------------------------

unsigned CKVX_HdwSignalService::Start()
{
    {
        std::lock_guard<std::mutex> lock(m_QueueMutex);
        m_Ring.assign(BufferSize ? BufferSize : 1u, CSignal());
        m_Head = 0;
        m_Count = 0;
        m_Dropped = 0;
        SetStatus(HDW_SERVICE_RUNNING);
        UpdateReadinessLocked();
    }
    m_QueueCv.notify_all();
    return 0;
}

unsigned CKVX_HdwSignalService::Stop()
{
    {
        std::lock_guard<std::mutex> lock(m_QueueMutex);
        m_Head = 0;
        m_Count = 0;
        SetStatus(HDW_SERVICE_STOPPED);
        UpdateReadinessLocked();
    }
    m_QueueCv.notify_all();
    return 0;
}

unsigned CKVX_HdwSignalService::Abort()
{
    {
        std::lock_guard<std::mutex> lock(m_QueueMutex);
        CKVX_HdwService::Abort();
        UpdateReadinessLocked();
    }
    m_QueueCv.notify_all();
    return 0;
}

// ---- parameters -------------------------------------------------------------

unsigned CKVX_HdwSignalService::GetParameters(CParameters* params)
{
    if (const unsigned rc = CKVX_HdwService::GetParameters(params))
        return rc;
    if (!params)
        return HDW_ERR_ARGUMENT;
    std::lock_guard<std::mutex> lock(m_QueueMutex);
    params->BufferSize = BufferSize;
    params->SignalMask = SignalMask;
    return 0;
}

unsigned CKVX_HdwSignalService::SetParameters(CParameters* params)
{
    if (const unsigned rc = CKVX_HdwService::SetParameters(params))
        return rc;
    if (!params)
        return HDW_ERR_ARGUMENT;
    std::lock_guard<std::mutex> lock(m_QueueMutex);
    BufferSize = params->BufferSize;
    SignalMask = params->SignalMask;
    m_WantedKinds.store(SignalMask, std::memory_order_relaxed);
    return 0;
}

// ---- application side ----------------------------------------------------

unsigned CKVX_HdwSignalService::RunStateLocked() const
{
    switch (GetStatus()) {
    case HDW_SERVICE_RUNNING: return HDW_ERR_NOTHING_TO_READ;
    case HDW_SERVICE_FAILED: return HDW_ERR_SERVICE;
    default: return HDW_ERR_SERVICE_NOT_RUNNING;
    }
}

bool CKVX_HdwSignalService::PopLocked(CSignal& signal)
{
    if (m_Count == 0)
        return false;
    signal = m_Ring[m_Head];
    // An emptied ring starts over at its first slot: the next signals land
    // in memory that was just used instead of walking the whole ring cold.
    --m_Count;
    ++m_Head;
    if (m_Count == 0 || m_Head == m_Ring.size())
        m_Head = 0;
    return true;
}

void CKVX_HdwSignalService::UpdateReadinessLocked()
{
    const bool ready = m_Count > 0 || GetStatus() == HDW_SERVICE_FAILED;
    if (ready == m_Ready)
        return;
    ShowReadinessLocked(ready);
    m_Ready = ready;
}

void CKVX_HdwSignalService::ShowReadinessLocked(bool ready)
{
    if (m_Group)
        m_Group->MemberReadyChanged(ready);
    else if (ready)
        hdw::platform::ReadinessSet(m_Readiness);
    else
        hdw::platform::ReadinessReset(m_Readiness);
}

unsigned CKVX_HdwSignalService::JoinGroup(CKVX_HdwSignalGroup* group)
{
    if (!group)
        return HDW_ERR_ARGUMENT;
    std::lock_guard<std::mutex> lock(m_QueueMutex);
    if (m_Group == group)
        return 0;
    if (m_Group)
        m_Group->Remove(this, m_Ready);
    else if (m_Ready)
        hdw::platform::ReadinessReset(m_Readiness);
    m_Group = group;
    m_Group->Add(this, m_Ready);
    return 0;
}

unsigned CKVX_HdwSignalService::LeaveGroup()
{
    LeaveGroupIf(nullptr);
    return 0;
}

void CKVX_HdwSignalService::LeaveGroupIf(CKVX_HdwSignalGroup* only)
{
    std::lock_guard<std::mutex> lock(m_QueueMutex);
    if (!m_Group || (only && m_Group != only))
        return;
    m_Group->Remove(this, m_Ready);
    m_Group = nullptr;
    if (m_Ready)
        hdw::platform::ReadinessSet(m_Readiness);
}

CKVX_HdwSignalGroup* CKVX_HdwSignalService::GetGroup() const
{
    std::lock_guard<std::mutex> lock(m_QueueMutex);
    return m_Group;
}

unsigned CKVX_HdwSignalService::GetSignal(CSignal& signal)
{
    std::lock_guard<std::mutex> lock(m_QueueMutex);
    // What was queued is delivered even after a failure.
    if (!PopLocked(signal))
        return RunStateLocked();
    UpdateReadinessLocked();
    return 0;
}

unsigned CKVX_HdwSignalService::WaitSignal(CSignal& signal, unsigned timeoutMs)
{
    std::unique_lock<std::mutex> lock(m_QueueMutex);
    ++m_Waiters;
    m_QueueCv.wait_for(lock, std::chrono::milliseconds(timeoutMs),
        [this] { return m_Count > 0 || GetStatus() != HDW_SERVICE_RUNNING; });
    --m_Waiters;
    if (!PopLocked(signal))
        return RunStateLocked();
    UpdateReadinessLocked();
    return 0;
}

unsigned CKVX_HdwSignalService::ReadSignals(CSignal* signals, unsigned maxCount, unsigned& readCount)
{
    readCount = 0;
    if (maxCount && !signals)
        return HDW_ERR_ARGUMENT;
    std::lock_guard<std::mutex> lock(m_QueueMutex);
    while (readCount < maxCount && PopLocked(signals[readCount]))
        ++readCount;
    UpdateReadinessLocked();
    if (readCount == 0 && GetStatus() != HDW_SERVICE_RUNNING)
        return RunStateLocked();
    return 0;
}

unsigned CKVX_HdwSignalService::GetSignalsNumber(unsigned& count)
{
    std::lock_guard<std::mutex> lock(m_QueueMutex);
    count = m_Count;
    if (count == 0 && GetStatus() != HDW_SERVICE_RUNNING)
        return RunStateLocked();
    return 0;
}

unsigned CKVX_HdwSignalService::GetDroppedCount(uint64_t& count, bool reset)
{
    std::lock_guard<std::mutex> lock(m_QueueMutex);
    count = m_Dropped;
    if (reset)
        m_Dropped = 0;
    return 0;
}

void CKVX_HdwSignalService::PublishReadiness()
{
    std::lock_guard<std::mutex> lock(m_QueueMutex);
    UpdateReadinessLocked();
}

int CKVX_HdwSignalService::GetFileDescriptor() const
{
    return hdw::platform::ReadinessDescriptor(m_Readiness);
}

void* CKVX_HdwSignalService::GetWaitHandle() const
{
    return hdw::platform::ReadinessHandle(m_Readiness);
}

// ---- driver side ----------------------------------------------------------

// Queues one signal of `kind`: `fill` writes its payload straight into the
// ring slot, so that a word or frame is copied once and a masked kind costs
// no copy at all.
template <class Fill>
unsigned CKVX_HdwSignalService::PostWith(unsigned kind, uint64_t eventTime, Fill&& fill)
{
    // Both checks are made first without the mutex (the status and a copy of
    // the mask are atomics), so that a kind the mask leaves out costs no lock;
    // the status is checked again under it, against a Stop in between.
    if (GetStatus() != HDW_SERVICE_RUNNING)
        return HDW_ERR_SERVICE_NOT_RUNNING;
    if (kind == 0 || kind > 32 || ((m_WantedKinds.load(std::memory_order_relaxed) >> (kind - 1)) & 1u) == 0)
        return 0;
    bool wake = false;
    {
        std::lock_guard<std::mutex> lock(m_QueueMutex);
        if (GetStatus() != HDW_SERVICE_RUNNING)
            return HDW_ERR_SERVICE_NOT_RUNNING;
        const unsigned capacity = static_cast<unsigned>(m_Ring.size());
        if (m_Count == capacity) {
            // Full: the oldest makes room.
            if (++m_Head == capacity)
                m_Head = 0;
            --m_Count;
            ++m_Dropped;
        }
        // Head and count are below the capacity: one subtraction wraps.
        unsigned tail = m_Head + m_Count;
        if (tail >= capacity)
            tail -= capacity;
        CSignal& slot = m_Ring[tail];
        fill(slot);
        slot.Kind = kind;
        slot.TimeStamp = eventTime;
        slot.Port = GetHdwPort();
        ++m_Count;
        if (!m_HoldReadiness)
            UpdateReadinessLocked();
        wake = m_Waiters > 0;
    }
    if (wake)
        m_QueueCv.notify_one();
    return 0;
}

unsigned CKVX_HdwSignalService::Post(const CSignal& signal)
{
    return PostWith(signal.Kind, signal.TimeStamp, [&](CSignal& slot) { slot = signal; });
}

unsigned CKVX_HdwSignalService::PostArinc429(unsigned kind, const CKVX_HdwArinc429Message& message, uint64_t eventTime)
{
    return PostWith(kind, eventTime, [&](CSignal& slot) {
        slot.Arinc429 = message;
        slot.Value = slot.Aux = 0;
    });
}

unsigned CKVX_HdwSignalService::PostCan(unsigned kind, const CKVX_HdwCanMessage& message, uint64_t eventTime)
{
    return PostWith(kind, eventTime, [&](CSignal& slot) {
        slot.Can = message;
        slot.Value = slot.Aux = 0;
    });
}

unsigned CKVX_HdwSignalService::PostCanFaultStatus(
    const CKVX_HdwCanPort::CFaultStatus& previous, const CKVX_HdwCanPort::CFaultStatus& current, uint64_t eventTime)
{
    CSignal s;
    s.TimeStamp = eventTime;
    s.FaultStatus = current;
    unsigned rc = 0;
    if (current.Status != previous.Status) {
        s.Kind = HDW_SIGNAL_CAN_STATUS_CHANGED;
        rc = Post(s);
        if (rc == 0 && CCanTranceiverErrorSignal::IsErrorState(current.Status)) {
            CCanTranceiverErrorSignal e(s);
            e.Kind = HDW_SIGNAL_CAN_TRANSCEIVER_ERROR;
            e.Value = previous.Status;
            rc = Post(e);
        }
    }
    if (rc == 0 && (current.ErrReg0 != previous.ErrReg0 || current.ErrReg1 != previous.ErrReg1)) {
        s.Kind = HDW_SIGNAL_CAN_ERROR_REGISTER_CHANGED;
        rc = Post(s);
    }
    return rc;
}

unsigned CKVX_HdwSignalService::PostValue(unsigned kind, uint32_t value, uint32_t aux, uint64_t eventTime)
{
    return PostWith(kind, eventTime, [&](CSignal& slot) {
        slot.Value = value;
        slot.Aux = aux;
    });
}

CKVX_HdwSignalService* CKVX_HdwSignalService::FindOn(CKVX_HdwPort* port)
{
    return port ? dynamic_cast<CKVX_HdwSignalService*>(port->FindService(HDW_SERVICE_SIGNAL)) : nullptr;
}
