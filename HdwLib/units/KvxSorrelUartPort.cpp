#include <HdwLib/framework/HdwDevice.h>
#include <HdwLib/framework/HdwManager.h>
#include <HdwLib/units/HdwKvxSorrelDevice.h>
#include <HdwLib/units/KvxSignalService.h>
#include <HdwLib/units/internal/KvxSorrelChannel.h>
#include <HdwLib/units/internal/KvxUnitAccess.h>

namespace sorrel = hdw::units::sorrel;

namespace {

CKVX_HdwKvxSorrelDevice::CDeviceInstance* SorrelInstance(const CKVX_HdwPort& port)
{
    CKVX_HdwDevice* device = port.GetHdwDevice();
    return device
        ? dynamic_cast<CKVX_HdwKvxSorrelDevice::CDeviceInstance*>(device->GetDeviceInstance(port.GetDeviceId()))
        : nullptr;
}

} // namespace

CKVX_HdwKvxSorrelUartPort::CKVX_HdwKvxSorrelUartPort(
    CKVX_HdwObject* device, unsigned deviceInstance, const CKVX_String& channelId)
    : CKVX_HdwUartPort(device, deviceInstance, channelId)
{
    unsigned value = 0;
    m_Channel = channelId.ToUnsigned(value, 10) ? value : 0;
}

CKVX_HdwKvxSorrelUartPort::~CKVX_HdwKvxSorrelUartPort() = default;

hdw::units::CSorrelChannel* CKVX_HdwKvxSorrelUartPort::GetSorrelChannel() const
{
    CKVX_HdwKvxSorrelDevice::CDeviceInstance* inst = SorrelInstance(*this);
    return inst ? inst->GetChannel(m_Channel) : nullptr;
}

unsigned CKVX_HdwKvxSorrelUartPort::SendPortPacket(
    uint32_t code, uint32_t number, const uint8_t* payload, unsigned size)
{
    CKVX_HdwKvxSorrelDevice::CDeviceInstance* inst = SorrelInstance(*this);
    return inst ? inst->SendPortPacket(m_Channel, code, number, payload, size) : static_cast<unsigned>(HDW_ERR_LINK);
}

unsigned CKVX_HdwKvxSorrelUartPort::Request(
    uint32_t code, const uint8_t* payload, unsigned size, std::vector<uint8_t>& reply)
{
    hdw::units::CSorrelChannel* ch = GetSorrelChannel();
    if (!ch)
        return HDW_ERR_LINK;
    hdw::units::CSorrelReply& slot = ch->Replies[(code + 1) - 0xA0000000u];
    uint32_t number = 0;
    {
        std::lock_guard<std::mutex> lock(ch->Mutex);
        slot.Got = false;
        number = ch->TxNext;
    }
    const auto start = sorrel::Clock::now();
    const auto deadline = start + std::chrono::milliseconds(sorrel::RequestWaitMs);
    for (unsigned sending = 0; sending < sorrel::RequestTries; ++sending) {
        SendPortPacket(code, number, payload, size);
        const auto until = sending + 1 < sorrel::RequestTries
            ? start + std::chrono::milliseconds(sorrel::RequestGapMs * (sending + 1))
            : deadline;
        std::unique_lock<std::mutex> lock(ch->Mutex);
        if (ch->Changed.wait_until(lock, until, [&] { return slot.Got; })) {
            reply = slot.Payload;
            return 0;
        }
    }
    return HDW_ERR_LINK;
}

unsigned CKVX_HdwKvxSorrelUartPort::Open(CKVX_HdwPort::CParameters* params)
{
    if (params) {
        const auto* own = dynamic_cast<const CKVX_HdwUartPort::CParameters*>(params);
        if (!own || !sorrel::LineUsable(*own))
            return HDW_ERR_ARGUMENT;
    } else if (!sorrel::LineUsable(m_Parameters)) {
        return HDW_ERR_ARGUMENT;
    }
    const unsigned rc = CKVX_HdwUartPort::Open(params);
    // A refused port leaves no session behind unless another port uses it.
    if (rc != 0 && rc != HDW_ERR_PORT_ALREADY_OPEN && rc != HDW_ERR_WRONG_STATE && GetHdwDevice())
        GetHdwDevice()->Close(m_DeviceInstance);
    return rc;
}

unsigned CKVX_HdwKvxSorrelUartPort::OnOpening(CKVX_HdwPort::CParameters* params)
{
    if (const unsigned rc = CKVX_HdwUartPort::OnOpening(params))
        return rc;
    hdw::units::CSorrelChannel* ch = GetSorrelChannel();
    if (!ch)
        return HDW_ERR_LINK;
    // A unit lost with other ports open is tried at once, not left to the
    // tick's back-off: the port's own request needs a live session.
    auto* device = static_cast<CKVX_HdwKvxSorrelDevice*>(GetHdwDevice());
    if (device->GetManager() && device->GetManager()->IsReconnectEnabled())
        if (const unsigned rc = device->ReviveForOpen(m_DeviceInstance))
            return rc;
    {
        std::lock_guard<std::mutex> lock(ch->Mutex);
        ch->Open = false; // set again by the reply
        ch->TxNext = 0;
        ch->LastHeard = sorrel::Clock::now();
    }
    uint8_t line[sorrel::LineSettingsSize];
    sorrel::EncodeLine(m_Parameters, line);
    std::vector<uint8_t> reply;
    return sorrel::ReplyStatus(Request(CKVX_HdwHoe::CodeOpenPort, line, sizeof line, reply), reply);
}

unsigned CKVX_HdwKvxSorrelUartPort::Close()
{
    if (!IsOpen())
        return 0;
    auto* device = dynamic_cast<CKVX_HdwKvxSorrelDevice*>(GetHdwDevice());
    if (device)
        device->HoldAttempt(m_DeviceInstance);
    if (device && device->IsUnitLost(m_DeviceInstance)) {
        // Nothing to tell a unit that is gone; the outage ends with the last port.
        if (hdw::units::CSorrelChannel* ch = GetSorrelChannel()) {
            std::lock_guard<std::mutex> lock(ch->Mutex);
            ch->Open = false;
            ch->RxBytes.clear();
        }
        const unsigned rc = CKVX_HdwUartPort::Close();
        device->EndOutage(m_DeviceInstance);
        return rc;
    }
    std::vector<uint8_t> reply;
    // The bytes the unit had to drop (its receive buffer full) are losses
    // of this port's input: the data context says how many, before the
    // port is gone at the unit.
    if (sorrel::ReplyStatus(Request(CKVX_HdwHoe::CodeDctx, nullptr, 0, reply), reply) == 0 &&
        reply.size() >= sorrel::DctxSize)
        if (auto* in = dynamic_cast<CKVX_HdwKvxSorrelByteInBufferService*>(FindService(HDW_SERVICE_BYTE_IN_BUFFER)))
            in->CountUnitDropped(sorrel::GetU32(reply.data() + sorrel::DctxDroppedAt));
    Request(CKVX_HdwHoe::CodeClosePort, nullptr, 0, reply);
    if (hdw::units::CSorrelChannel* ch = GetSorrelChannel()) {
        std::lock_guard<std::mutex> lock(ch->Mutex);
        ch->Open = false;
        ch->RxBytes.clear();
    }
    return CKVX_HdwUartPort::Close();
}

unsigned CKVX_HdwKvxSorrelUartPort::EnableService(
    unsigned serviceType, CKVX_HdwService** service, CKVX_HdwService::CParameters* params)
{
    if (const unsigned rc = CKVX_HdwUartPort::EnableService(serviceType, service, params))
        return rc;
    if (serviceType != HDW_SERVICE_BYTE_IN_BUFFER && serviceType != HDW_SERVICE_BYTE_OUT_BUFFER &&
        serviceType != HDW_SERVICE_SIGNAL)
        return HDW_ERR_WRONG_STATE;
    if (FindService(serviceType))
        return HDW_ERR_SERVICE_ALREADY_ENABLED;
    switch (serviceType) {
    case HDW_SERVICE_BYTE_IN_BUFFER:
        return hdw::units::InstallService(*this, new CKVX_HdwKvxSorrelByteInBufferService(this), service, params);
    case HDW_SERVICE_BYTE_OUT_BUFFER:
        return hdw::units::InstallService(*this, new CKVX_HdwKvxSorrelByteOutBufferService(this), service, params);
    default: return hdw::units::InstallService(*this, new CKVX_HdwKvxSignalService(this), service, params);
    }
}

unsigned CKVX_HdwKvxSorrelUartPort::HdwTimerHandler(uint64_t ticks)
{
    // The tick, under the device lock.
    hdw::units::CSorrelChannel* ch = GetSorrelChannel();
    if (!ch)
        return CKVX_HdwUartPort::HdwTimerHandler(ticks);
    auto* device = static_cast<CKVX_HdwKvxSorrelDevice*>(GetHdwDevice());
    const bool reconnect = device->GetManager() && device->GetManager()->IsReconnectEnabled();
    // A lost unit: nothing goes out until the port is opened again there.
    if (reconnect && device->IsUnitLost(m_DeviceInstance))
        return 0;
    const auto now = sorrel::Clock::now();
    bool keepAlive = false, resetAgain = false, silent = false;
    uint32_t number = 0;
    {
        std::lock_guard<std::mutex> lock(ch->Mutex);
        keepAlive = now - ch->LastSent >= std::chrono::milliseconds(sorrel::KeepAliveMs);
        resetAgain = ch->RxResetPending && now - ch->RxResetSent >= std::chrono::milliseconds(sorrel::RequestGapMs);
        if (resetAgain)
            ch->RxResetSent = now;
        const unsigned timeoutMs = GetHdwDevice()->GetLinkTimeout() ? GetHdwDevice()->GetLinkTimeout() : 1000u;
        silent = now - ch->LastHeard >= std::chrono::milliseconds(timeoutMs);
        number = ch->TxNext;
    }
    if (resetAgain)
        SendPortPacket(CKVX_HdwHoe::CodeRstRx, number, nullptr, 0);
    else if (keepAlive)
        SendPortPacket(CKVX_HdwHoe::CodeKeepAlivePort, number, nullptr, 0);
    // With reconnect on, the device's tick takes a silent unit over instead.
    if (silent && !reconnect) {
        for (CKVX_HdwService* s : m_Services)
            if (s->GetStatus() == HDW_SERVICE_RUNNING)
                s->Abort();
        return 0;
    }
    return CKVX_HdwUartPort::HdwTimerHandler(ticks);
}

void CKVX_HdwKvxSorrelUartPort::MoveReceived()
{
    hdw::units::CSorrelChannel* ch = GetSorrelChannel();
    if (!ch)
        return;
    std::vector<uint8_t> bytes;
    {
        std::lock_guard<std::mutex> lock(ch->Mutex);
        bytes.swap(ch->RxBytes);
    }
    if (bytes.empty())
        return;
    if (auto* in = dynamic_cast<CKVX_HdwKvxSorrelByteInBufferService*>(FindService(HDW_SERVICE_BYTE_IN_BUFFER)))
        in->Append(bytes.data(), bytes.size());
    // The unit's Data buffers carry no time: the signal has the tick's.
    if (CKVX_HdwSignalService* signals = CKVX_HdwSignalService::FindOn(this))
        signals->PostValue(HDW_SIGNAL_UART_RECEIVED, uint32_t(bytes.size()), 0, sorrel::NowUs());
}

void CKVX_HdwKvxSorrelUartPort::PublishSignals()
{
    if (CKVX_HdwSignalService* signals = CKVX_HdwSignalService::FindOn(this))
        signals->PublishReadiness();
}
