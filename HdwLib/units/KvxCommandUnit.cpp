// The unit protocol of the command-protocol drivers around the engine: the
// tick's reception and sending, opening and closing a session, the probe.
#include <HdwLib/units/KvxCommandUnit.h>
#include <HdwLib/units/KvxUnitPorts.h>
#include <HdwLib/units/internal/KvxReconnectAttempt.h>
#include <HdwLib/units/internal/KvxUnitAccess.h>
#include <HdwLib/units/internal/KvxWait.h>

#include <HdwLib/bus/HdwSignalService.h>
#include <HdwLib/framework/HdwTimer.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <mutex>
#include <string>

namespace {
// Bytes taken from the link per read while receiving.
constexpr unsigned kReadChunk = 4096;
// Sendings of a session start: a frame lost to the noise of an earlier
// exchange costs one sending, not the Open. The next goes when nothing has
// come back for a quarter of the echo time-out, within these bounds (ms).
constexpr unsigned kSessionSendings = 4;
constexpr unsigned kResendMinMs = 20;
constexpr unsigned kResendMaxMs = 100;

} // namespace

// ---- the instance -----------------------------------------------------------

CKVX_HdwKvxUnitInstance::CKVX_HdwKvxUnitInstance(CKVX_HdwDevice::CDeviceInstance& base) : m_Base(base) {}
CKVX_HdwKvxUnitInstance::~CKVX_HdwKvxUnitInstance() = default;

void CKVX_HdwKvxUnitInstance::Reset()
{
    ResetRxState();
    ResetQueues();
    for (auto& c : AtxCtrl)
        c = CKVX_HdwKvxArinc429TxCtrlStatus();
    for (auto& c : ArxCtrl)
        c = CKVX_HdwKvxArinc429RxCtrlStatus();
    for (auto& c : CanCtrl)
        c = CKVX_HdwKvxCanCtrlStatus();
    for (auto& c : UartCtrl)
        c = CKVX_HdwKvxUartCtrlStatus();
    for (auto& c : MilStd1553Ctrl)
        c = CKVX_HdwKvxMilStd1553Config();
}

void CKVX_HdwKvxUnitInstance::SizeChannels(const CKVX_HdwKvxUnitProfile& profile)
{
    AtxCtrl.resize(profile.AtxChannels);
    ArxCtrl.resize(profile.ArxChannels);
    CanCtrl.resize(profile.CanChannels);
    UartCtrl.resize(profile.UartChannels);
    MilStd1553Ctrl.resize(profile.MilStd1553Channels);
}

// ---- the unit ---------------------------------------------------------------

CKVX_HdwKvxCommandUnit::CKVX_HdwKvxCommandUnit(const CKVX_HdwKvxUnitProfile& profile)
    : m_EchoTimeout(profile.EchoTimeoutMs),
      m_Profile(profile)
{
    BuildCrc16Table();
}

CKVX_HdwKvxCommandUnit::~CKVX_HdwKvxCommandUnit() = default;

void CKVX_HdwKvxCommandUnit::BuildCrc16Table()
{
    std::memcpy(m_Crc16Table, CKVX_HdwKvxUnitEngine::Crc16Table(), sizeof m_Crc16Table);
}

uint16_t CKVX_HdwKvxCommandUnit::CalcCRC16Word(uint16_t crc, uint8_t byte) const
{
    return uint16_t(m_Crc16Table[((crc >> 8) ^ byte) & 0xFF] ^ uint16_t(crc << 8));
}

uint16_t CKVX_HdwKvxCommandUnit::CalcCRC16(const uint8_t* bytes, unsigned count) const
{
    return CKVX_HdwKvxUnitEngine::Crc16(bytes, count);
}

uint64_t CKVX_HdwKvxCommandUnit::GetUnitTime()
{
    return CKVX_HdwTimer::GetTickCount();
}

unsigned CKVX_HdwKvxCommandUnit::GetPayloadLimit(CKVX_HdwKvxUnitInstance* instance)
{
    return IsEthernetInstance(instance) ? m_Profile.EthernetPayloadLimit : PayloadLimitUart;
}

// ---- commands ---------------------------------------------------------------

uint16_t CKVX_HdwKvxCommandUnit::GetLastCommandNum(CKVX_HdwKvxUnitInstance* instance)
{
    return instance ? instance->GetLastCommandNum() : 0;
}

uint16_t CKVX_HdwKvxCommandUnit::GetLastCommandNum(unsigned instance)
{
    return GetLastCommandNum(GetUnitInstance(instance));
}

unsigned CKVX_HdwKvxCommandUnit::AttachCommand(
    CKVX_HdwKvxUnitInstance* instance, uint8_t code, const uint8_t* params, unsigned paramCount)
{
    return instance ? instance->AttachCommand(code, params, paramCount) : unsigned(HDW_ERR_ARGUMENT);
}

unsigned CKVX_HdwKvxCommandUnit::AttachCommand(
    unsigned instance, uint8_t code, const uint8_t* params, unsigned paramCount)
{
    return AttachCommand(GetUnitInstance(instance), code, params, paramCount);
}

unsigned CKVX_HdwKvxCommandUnit::AttachSessionCommand(CKVX_HdwKvxUnitInstance* instance, unsigned char close)
{
    uint8_t p[3];
    p[0] = uint8_t((close ? 0 : 1) | ((m_LinkSelector & 3) << 4));
    uint16_t watchdog = 0;
    if (const unsigned ms = GetSessionWatchdog())
        watchdog = uint16_t(0x8000 | std::min(ms / 10, 1023u));
    p[1] = uint8_t(watchdog & 0xFF);
    p[2] = uint8_t(watchdog >> 8);
    return AttachCommand(instance, 1, p, 3);
}

unsigned CKVX_HdwKvxCommandUnit::AttachSessionCommand(unsigned instance, unsigned char close)
{
    return AttachSessionCommand(GetUnitInstance(instance), close);
}

unsigned CKVX_HdwKvxCommandUnit::AttachStatusRequestCommand(unsigned instance, unsigned channel, unsigned kind)
{
    if (!(m_Profile.Commands & KvxCmdStatusRequest))
        return HDW_ERR_ARGUMENT;
    uint8_t p[3] = {0, 0, 0};
    // A unit with more than two CAN channels reads byte 6 bit n as CAN
    // channel n: its transmit state (kind 3) is part of the kind-2 answer.
    if (kind == 3 && m_Profile.CanChannels > 2)
        kind = 2;
    // The request has one bit per channel for eight channels; a channel
    // beyond that cannot be asked for.
    if ((kind == 1 || kind == 2) && channel >= 8)
        return HDW_ERR_ARGUMENT;
    if (kind == 3 && channel + 2 >= 8)
        return HDW_ERR_ARGUMENT;
    if (kind == 1)
        p[1] = uint8_t(1u << channel);
    else if (kind == 2)
        p[2] = uint8_t(1u << channel);
    else if (kind == 3)
        p[2] = uint8_t(1u << (channel + 2));
    return AttachCommand(GetUnitInstance(instance), 2, p, 3);
}

// ---- sending ----------------------------------------------------------------

unsigned CKVX_HdwKvxCommandUnit::SendNextFrame(CKVX_HdwKvxUnitInstance* inst, uint64_t nowMs)
{
    if (!inst)
        return HDW_ERR_ARGUMENT;
    const std::vector<uint8_t>* frame = inst->BuildFrame(GetPayloadLimit(inst), uint32_t(nowMs));
    if (!frame)
        return 0;
    if (UnitLinkWrite(inst, const_cast<uint8_t*>(frame->data()), unsigned(frame->size())) != 0) {
        inst->FrameFailed();
        return HDW_ERR_LINK;
    }
    inst->FrameSent();
    return 0;
}

unsigned CKVX_HdwKvxCommandUnit::ProcessCommandList(CKVX_HdwKvxUnitInstance* inst)
{
    return SendNextFrame(inst, GetUnitTime());
}

unsigned CKVX_HdwKvxCommandUnit::ProcessCommandList(unsigned instance)
{
    return ProcessCommandList(GetUnitInstance(instance));
}

// ---- reception --------------------------------------------------------------

unsigned CKVX_HdwKvxCommandUnit::ReceiveBytes(
    unsigned instance, CKVX_HdwKvxUnitInstance* inst, const uint8_t* data, unsigned count)
{
    while (count > 0) {
        unsigned used = 0;
        bool ok = false;
        const auto fed = inst->FeedBytes(data, count, used, ok);
        data += used;
        count -= used;
        const bool failed = fed == CKVX_HdwKvxUnitEngine::EFeed::Overflow ||
            (fed == CKVX_HdwKvxUnitEngine::EFeed::Frame && ok && ProcessEventPayload(instance) != 0);
        if (failed) {
            // Only the failed frame is lost: the rest of the read is parsed
            // at the next reception, as if it had not been read yet.
            ++inst->FailedFrames;
            inst->ResetRxState();
            inst->KeepUnread(data, count);
            return HDW_ERR_LINK;
        }
    }
    return 0;
}

unsigned CKVX_HdwKvxCommandUnit::ProcessReception(unsigned instance)
{
    CKVX_HdwKvxUnitInstance* inst = GetUnitInstance(instance);
    if (!inst)
        return HDW_ERR_LINK;
    // The device lock is held for the whole reception, so the routes that
    // its first frame builds serve every frame after it.
    m_RoutesKept = true;
    const unsigned rc = ReadAndReceive(instance, inst);
    m_RoutesKept = false;
    inst->Routes.Clear();
    return rc;
}

unsigned CKVX_HdwKvxCommandUnit::ReadAndReceive(unsigned instance, CKVX_HdwKvxUnitInstance* inst)
{
    // Every event of this reception was sent by the unit before now: the
    // pair (its latest time, now) bounds the link's delay from above.
    inst->ReceptionHostUs = CKVX_HdwKvxUnitInstance::HostMonotonicMicroseconds();
    // What an earlier reception left after a failed frame goes first.
    if (!inst->GetUnread().empty()) {
        std::vector<uint8_t> unread;
        unread.swap(inst->GetUnread());
        if (ReceiveBytes(instance, inst, unread.data(), unsigned(unread.size())) != 0)
            return HDW_ERR_LINK;
    }
    // Everything queued, a chunk at a time, without asking for the count
    // first: a read that does not fill the chunk has taken all there was, so
    // a busy tick costs one read call and an idle one a single empty read.
    uint8_t chunk[kReadChunk];
    inst->Reconnect.ReadFailed = false;
    for (;;) {
        unsigned got = 0;
        if (UnitLinkRead(inst, chunk, kReadChunk, got) != 0) {
            inst->Reconnect.ReadFailed = true;
            return HDW_ERR_LINK;
        }
        if (got > 0 && ReceiveBytes(instance, inst, chunk, got) != 0)
            return HDW_ERR_LINK;
        if (got < kReadChunk)
            return 0;
    }
}

unsigned CKVX_HdwKvxCommandUnit::ProcessEventPayload(unsigned instance)
{
    CKVX_HdwKvxUnitInstance* inst = GetUnitInstance(instance);
    if (!inst)
        return HDW_ERR_LINK;
    // The caller holds the device lock: the port list stays as it is for
    // the whole pass, and each event finds its port in the routes.
    if (!inst->Routes.IsValid())
        inst->Routes.Build(inst->GetDeviceInstanceBase().GetPortList());
    m_PassIndex = instance;
    m_PassInstance = inst;
    unsigned rc = 0;
    bool timed = false;
    for (uint32_t p : inst->EventPosList) {
        const unsigned length = inst->EventBuffer[p];
        const unsigned typeByte = inst->EventBuffer[p + 1];
        // Until the unit has echoed a command of the new session, what it
        // sends belongs to the earlier one.
        if (!inst->IsSessionConfirmed() && (typeByte >> 3) != EventComEcho)
            continue;
        const uint8_t* params = inst->EventBuffer.data() + p + 2;
        // Every record starts with the unit's 32-bit time stamp.
        if (length >= 5) {
            inst->RecordUnitTime = inst->Clock.Unwrap(kvx_events::Le32(params), inst->ReceptionHostUs);
            timed = true;
        }
        rc = ProcessEventRecord(instance, typeByte >> 3, typeByte & 7, length, inst->EventBuffer.data() + p + 2);
        if (rc)
            break;
    }
    if (timed)
        inst->Clock.AddPair(inst->Clock.GetLatest(), inst->ReceptionHostUs);
    if (!m_RoutesKept)
        inst->Routes.Clear();
    m_PassIndex = ~0u;
    m_PassInstance = nullptr;
    return rc;
}

unsigned CKVX_HdwKvxCommandUnit::ProcessEventRecord(
    unsigned instance, unsigned type, unsigned subField, unsigned length, uint8_t* params)
{
    // A type this unit does not send is an error like an unknown one.
    if (type >= 32 || !(m_Profile.Events & (1u << type)))
        return HDW_ERR_MALFORMED_EVENT;
    switch (type) {
    case EventComEcho: return ProcessEventComEcho(instance, subField, length, params);
    case EventCriticalFailure: return ProcessEventCriticalFailure(instance, subField, length, params);
    case EventA429Rx: return ProcessEventA429Rx(instance, subField, length, params);
    case EventA429Tx: return ProcessEventA429Tx(instance, subField, length, params);
    case EventStatus: return ProcessEventStatus(instance, subField, length, params);
    case EventCanRx: return ProcessEventCanRx(instance, subField, length, params);
    case EventCanTx: return ProcessEventCanTx(instance, subField, length, params);
    case EventMilStd1553: return ProcessEventMilStd1553(instance, subField, length, params);
    case EventUartRx: return ProcessEventUartRx(instance, subField, length, params);
    case EventUartTx: return ProcessEventUartTx(instance, subField, length, params);
    case EventDiscreteIn: return ProcessEventDiscreteIn(instance, subField, length, params);
    case EventDiscreteOut: return ProcessEventDiscreteOut(instance, subField, length, params);
    case EventI2cResult: return ProcessEventI2cResult(instance, subField, length, params);
    case EventSpiResult: return ProcessEventSpiResult(instance, subField, length, params);
    default: return HDW_ERR_MALFORMED_EVENT;
    }
}

// ---- waiting ----------------------------------------------------------------

unsigned CKVX_HdwKvxCommandUnit::WaitAllCommandEchoes(unsigned instance, unsigned timeoutMs)
{
    CKVX_HdwKvxUnitInstance* inst = GetUnitInstance(instance);
    if (!inst)
        return HDW_ERR_LINK;
    CKVX_HdwDevice& device = GetUnitDevice();
    const bool empty = hdw::units::WaitUntil(timeoutMs, [&] {
        device.DeviceLock(instance);
        const bool done = inst->EchoList.IsEmpty();
        device.DeviceUnlock(instance);
        return done;
    });
    return empty ? 0u : unsigned(HDW_ERR_LINK);
}

// ---- open, close, tick ------------------------------------------------------

unsigned CKVX_HdwKvxCommandUnit::OpenUnit(unsigned instance)
{
    CKVX_HdwKvxUnitInstance* inst = GetUnitInstance(instance);
    if (!inst)
        return HDW_ERR_LINK;
    // The tick leaves the unit alone while this runs (its reconnect gate).
    std::lock_guard gate(inst->Reconnect.Attempt->Gate());
    CancelAttempt(instance, inst);
    if (inst->GetDeviceInstanceBase().IsOpen())
        return 0;
    // Opening a port of a lost unit tries the unit at once (the tick's
    // retrying holds off meanwhile); see OpenLostUnit.
    if (HoldLostUnit(instance, inst))
        return OpenLostUnit(instance, inst);
    if (UnitLinkOpen(instance) != 0)
        return HDW_ERR_LINK;
    return OpenSession(instance);
}

unsigned CKVX_HdwKvxCommandUnit::CloseUnit(unsigned instance)
{
    CKVX_HdwKvxUnitInstance* inst = GetUnitInstance(instance);
    if (!inst)
        return 0;
    std::lock_guard gate(inst->Reconnect.Attempt->Gate());
    CancelAttempt(instance, inst);
    // A lost unit, or one whose fresh session has not been echoed yet: no
    // closing commands, the link goes with the last port.
    if (!inst->GetDeviceInstanceBase().IsOpen() || inst->Reconnect.Status.State != HDW_UNIT_LINK_UP) {
        EndOutage(instance, inst);
        return 0;
    }
    // A port being opened counts as open: its Open found the unit open.
    if (inst->Reconnect.Attempt->PortsOpening().load() != 0 || !GetUnitDevice().CanClose(instance))
        return 0;
    OnClosing(instance);
    return UnitLinkClose(instance);
}

unsigned CKVX_HdwKvxCommandUnit::OpenSession(unsigned instance)
{
    CKVX_HdwKvxUnitInstance* inst = GetUnitInstance(instance);
    if (!inst)
        return HDW_ERR_LINK;
    CKVX_HdwDevice& device = GetUnitDevice();
    // Close, then open: the unit always starts a fresh session. What it
    // still sends of the earlier one is dropped until it has echoed these.
    // When nothing comes back for a while (the frame may have been lost to
    // the noise of a frame the open cut in two), the session start goes again
    // with new numbers; the echo of any sending settles the ones before it.
    const unsigned echoTimeout = GetEchoTimeout();
    const unsigned resendMs = std::clamp(echoTimeout / 4, kResendMinMs, kResendMaxMs);
    device.DeviceLock(instance);
    inst->Reset();
    inst->BeginSession();
    unsigned rc = SendSessionStart(inst);
    size_t waiting = inst->EchoList.GetLength();
    device.DeviceUnlock(instance);
    unsigned sendings = 1;
    uint64_t lastSent = CKVX_HdwTimer::GetTickCount();
    uint64_t lastHeard = lastSent;
    bool confirmed = false;
    hdw::units::WaitUntil(echoTimeout + (kSessionSendings - 1) * resendMs, [&] {
        device.DeviceLock(instance);
        const size_t now = inst->EchoList.GetLength();
        confirmed = rc == 0 && inst->IsSessionConfirmed();
        if (now != waiting)
            lastHeard = CKVX_HdwTimer::GetTickCount();
        waiting = now;
        const bool overdue = CKVX_HdwTimer::GetElapsedTicks(lastSent) >= echoTimeout;
        if (!confirmed && rc == 0 && !overdue && sendings < kSessionSendings &&
            CKVX_HdwTimer::GetElapsedTicks(lastHeard) >= resendMs) {
            rc = SendSessionStart(inst);
            waiting = inst->EchoList.GetLength();
            ++sendings;
            lastSent = lastHeard = CKVX_HdwTimer::GetTickCount();
        }
        device.DeviceUnlock(instance);
        return confirmed || rc != 0 || overdue;
    });
    if (confirmed)
        return 0;
    // Closed under the lock first: the tick reads the link of an open
    // instance. The link itself closes outside it, as in Close.
    device.DeviceLock(instance);
    inst->Reset();
    inst->GetDeviceInstanceBase().SetOpen(false);
    device.DeviceUnlock(instance);
    UnitLinkAbandon(inst);
    return HDW_ERR_LINK;
}

unsigned CKVX_HdwKvxCommandUnit::SendSessionStart(CKVX_HdwKvxUnitInstance* inst)
{
    // The echoes still awaited of an earlier sending stay awaited: they are
    // set aside while this frame goes, then put back in front of its own.
    CKVX_HdwKvxUnitEngine::CCommandEchoList earlier = std::move(inst->EchoList);
    inst->EchoList.DeleteAll();
    inst->CommandList.DeleteAll();
    AttachSessionCommand(inst, 1);
    AttachSessionCommand(inst, 0);
    const unsigned rc = ProcessCommandList(inst);
    for (const CEchoWaiting& e : inst->EchoList)
        earlier += e;
    inst->EchoList = std::move(earlier);
    return rc;
}

unsigned CKVX_HdwKvxCommandUnit::OnClosing(unsigned instance)
{
    CKVX_HdwKvxUnitInstance* inst = GetUnitInstance(instance);
    if (!inst)
        return HDW_ERR_ARGUMENT;
    CKVX_HdwDevice& device = GetUnitDevice();
    // What the ports and services queued on their way out (channels off,
    // label tables reset) goes first, one frame in flight at a time, then
    // the closing session command. This thread drives the exchange itself:
    // the timer may already be stopped. Its echo is not waited for: a late
    // echo is dropped by the next session.
    device.DeviceLock(instance);
    AttachSessionCommand(inst, 1);
    const uint16_t close = inst->GetLastAttachedNumber();
    device.DeviceUnlock(instance);
    hdw::units::WaitUntil(GetEchoTimeout(), [&] {
        device.DeviceLock(instance);
        ProcessReception(instance);
        const unsigned sent = ProcessCommandList(inst);
        bool queued = false;
        for (const CCommand& c : inst->CommandList)
            queued = queued || c.Number == close;
        device.DeviceUnlock(instance);
        return sent != 0 || !queued;
    });
    device.DeviceLock(instance);
    // An echo that never came must not keep the unit's session open: the
    // rest goes out regardless.
    if (!inst->CommandList.IsEmpty()) {
        inst->EchoList.DeleteAll();
        ProcessCommandList(inst);
    }
    inst->ResetQueues();
    device.DeviceUnlock(instance);
    return 0;
}

unsigned CKVX_HdwKvxCommandUnit::UnitTickStart(unsigned instance)
{
    CKVX_HdwKvxUnitInstance* inst = GetUnitInstance(instance);
    if (!inst)
        return HDW_ERR_LINK;
    const uint64_t now = GetUnitTime();
    // The link belongs to the reconnect attempt until the tick has its result.
    if (inst->Reconnect.Status.State == HDW_UNIT_LINK_OPENING)
        return 0;
    if (inst->Reconnect.Status.State == HDW_UNIT_LINK_RESYNC)
        return ResyncTick(instance, inst, now);
    if (ProcessReception(instance) != 0) {
        // A frame that failed its dispatch is not a lost link.
        if (inst->Reconnect.ReadFailed && TakeOverLoss(instance, inst, now))
            return 0;
        return HDW_ERR_LINK;
    }
    if (!inst->IsEchoOverdue(uint32_t(now), GetEchoTimeout()))
        return 0;
    // Every tick reports it until the echo list is reset; it is counted once.
    if (CEchoWaiting* oldest = inst->EchoList.GetFirst(); oldest && !(*oldest == inst->OverdueCounted)) {
        inst->OverdueCounted = *oldest;
        ++inst->EchoTimeouts;
    }
    return TakeOverLoss(instance, inst, now) ? 0u : unsigned(HDW_ERR_LINK);
}

unsigned CKVX_HdwKvxCommandUnit::UnitTickEnd(unsigned instance)
{
    CKVX_HdwKvxUnitInstance* inst = GetUnitInstance(instance);
    if (!inst)
        return HDW_ERR_LINK;
    if (inst->Reconnect.Status.State == HDW_UNIT_LINK_OPENING)
        return 0;
    const uint64_t now = GetUnitTime();
    // A unit that watches its host hears from it at least every
    // KeepAliveIdleMs: when a tick has nothing to send and nothing is in
    // flight, the keep-alive fills the silence.
    if (m_Profile.KeepAliveIdleMs && inst->CommandList.IsEmpty() && inst->EchoList.IsEmpty() &&
        uint32_t(now) - inst->LastSendTime >= m_Profile.KeepAliveIdleMs)
        AttachKeepAliveCommand(instance);
    // With reconnect on, an idle unit is sent a command of its own set that
    // changes nothing now and then: its echo shows that it is still there.
    if (inst->Reconnect.Status.State == HDW_UNIT_LINK_UP && inst->CommandList.IsEmpty() && inst->EchoList.IsEmpty() &&
        uint32_t(now) - inst->LastSendTime >= KvxReconnectProbeIdleMs && IsReconnectEnabled()) {
        if (m_Profile.ReconnectProbe == KvxCmdSession)
            AttachSessionCommand(inst, 1);
        else
            AttachStatusRequestCommand(instance, 0, 0);
    }
    unsigned rc = SendNextFrame(inst, now) != 0 ? unsigned(HDW_ERR_LINK) : 0u;
    if (rc != 0 && TakeOverLoss(instance, inst, now))
        rc = 0;
    // The signal services make their descriptors readable for the whole
    // tick at once, as the tick's last act.
    for (CKVX_HdwPort* port : inst->GetDeviceInstanceBase().GetPortList())
        for (CKVX_HdwService* service : port->GetServiceList())
            if (service->GetServiceType() == HDW_SERVICE_SIGNAL)
                static_cast<CKVX_HdwSignalService*>(service)->PublishReadiness();
    return rc;
}

// ---- what the drivers share -------------------------------------------------

CKVX_HdwPort* CKVX_HdwKvxCommandUnit::CreateProfilePort(
    unsigned kind, CKVX_HdwObject* parent, unsigned index, const CKVX_String& name)
{
    if (hdw::units::ChannelNumber(name) >= ProfileChannelCount(kind))
        return nullptr;
    switch (kind) {
    case PortKindUart: return new CUartPort(parent, index, name);
    case PortKindArinc429Tx: return new CArinc429TxPort(parent, index, name);
    case PortKindArinc429Rx: return new CArinc429RxPort(parent, index, name);
    case PortKindCan: return new CCanPort(parent, index, name);
    case PortKindMilStd1553: return new CMilStd1553Port(parent, index, name);
    case PortKindDiscreteIn: return new CDiscreteInPort(parent, index, name);
    case PortKindDiscreteOut: return new CDiscreteOutPort(parent, index, name);
    case PortKindI2c: return new CI2cPort(parent, index, name);
    case PortKindSpi: return new CSpiPort(parent, index, name);
    default: return nullptr;
    }
}

CKVX_HdwPort* CKVX_HdwKvxCommandUnit::CreatePort(
    unsigned kind, CKVX_HdwObject* parent, unsigned index, const CKVX_String& name)
{
    return CreateProfilePort(kind, parent, index, name);
}

unsigned CKVX_HdwKvxCommandUnit::ProcessHardwareID(const CKVX_List<CKVX_String>& ids)
{
    return HardwareIdNumber(ids);
}

unsigned CKVX_HdwKvxCommandUnit::CreateProfilePorts(unsigned instance)
{
    static const char* const kNames[KvxPortKindCount] = {
        "UART", "ARINC 429 TX", "ARINC 429 RX", "CAN", "", "MIL-STD-1553", "Discrete In", "Discrete Out", "I2C", "SPI"};
    for (unsigned kind = 0; kind < KvxPortKindCount; ++kind) {
        for (unsigned ch = 0; ch < ProfileChannelCount(kind); ++ch) {
            CKVX_String id;
            id.Format("%u", ch);
            CKVX_HdwPort* port = CreatePort(kind, &GetUnitDevice(), instance, id);
            if (!port)
                continue;
            CKVX_String description;
            description.Format("%s %u", kNames[kind], ch);
            UnitAddPort(instance, port, ch, description);
        }
    }
    return 0;
}

unsigned CKVX_HdwKvxCommandUnit::HardwareIdNumber(const CKVX_List<CKVX_String>& ids)
{
    if (ids.GetLength() != 2)
        return 0;
    auto it = ids.Items().begin();
    ++it;
    std::string text = it->str();
    for (char& c : text)
        c = char(std::toupper(static_cast<unsigned char>(c)));
    const auto first = text.find_first_not_of(" \t");
    const auto last = text.find_last_not_of(" \t");
    text = first == std::string::npos ? std::string() : text.substr(first, last - first + 1);
    if (text.size() < 2)
        return 0;
    unsigned value = 0;
    return CKVX_String(text.substr(text.size() - 2)).ToUnsigned(value, 10) ? value : 0;
}
