#include <HdwLib/units/KvxArinc429LabelServices.h>
#include <HdwLib/units/KvxArinc429Ports.h>
#include <HdwLib/units/internal/KvxUnitAccess.h>

// ---- output -------------------------------------------------------------------

CKVX_HdwKvxArinc429OutLbloService::CKVX_HdwKvxArinc429OutLbloService(CKVX_HdwObject* port)
    : CKVX_HdwArinc429OutLbloService(port)
{}

CKVX_HdwKvxArinc429OutLbloService::~CKVX_HdwKvxArinc429OutLbloService() = default;

unsigned CKVX_HdwKvxArinc429OutLbloService::Start()
{
    if (const unsigned rc = CKVX_HdwArinc429OutLbloService::Start())
        return rc;
    auto* port = dynamic_cast<CKVX_HdwKvxArinc429TxPort*>(GetHdwPort());
    if (!port)
        return 0;
    CKVX_HdwServiceLock lock(*this);
    // The transmitter on, and nothing left of an earlier user's table.
    port->AttachConfiguration(true);
    return port->GetUnit()->AttachAtxCtxResetCommand(port->GetDeviceId(), port->GetChannel());
}

unsigned CKVX_HdwKvxArinc429OutLbloService::Stop()
{
    if (auto* port = dynamic_cast<CKVX_HdwKvxArinc429TxPort*>(GetHdwPort())) {
        CKVX_HdwServiceLock lock(*this);
        port->GetUnit()->AttachAtxCtxResetCommand(port->GetDeviceId(), port->GetChannel());
    }
    return CKVX_HdwArinc429OutLbloService::Stop();
}

unsigned CKVX_HdwKvxArinc429OutLbloService::EnableTx()
{
    if (const unsigned rc = CKVX_HdwArinc429OutLbloService::EnableTx())
        return rc;
    CKVX_HdwServiceLock lock(*this);
    return AttachAllCtrls();
}

unsigned CKVX_HdwKvxArinc429OutLbloService::DisableTx()
{
    if (const unsigned rc = CKVX_HdwArinc429OutLbloService::DisableTx())
        return rc;
    CKVX_HdwServiceLock lock(*this);
    return AttachAllCtrls();
}

unsigned CKVX_HdwKvxArinc429OutLbloService::ResetTx()
{
    if (const unsigned rc = CKVX_HdwArinc429OutLbloService::ResetTx())
        return rc;
    CKVX_HdwPort* port = GetHdwPort();
    CKVX_HdwServiceLock lock(*this);
    return hdw::units::UnitOf(port)->AttachAtxCtxResetCommand(port->GetDeviceId(), hdw::units::ChannelOf(this));
}

unsigned CKVX_HdwKvxArinc429OutLbloService::SetLabelsCtrl(const CLabelCtrl* ctrls, unsigned int count)
{
    if (const unsigned rc = CKVX_HdwArinc429OutLbloService::SetLabelsCtrl(ctrls, count))
        return rc;
    CKVX_HdwPort* port = GetHdwPort();
    CKVX_HdwKvxCommandUnit* unit = hdw::units::UnitOf(port);
    const unsigned channel = hdw::units::ChannelOf(this);
    CKVX_HdwServiceLock lock(*this);
    for (unsigned i = 0; i < count; ++i)
        if (const unsigned rc =
                unit->AttachAtxCtxCtrlCommand(port->GetDeviceId(), channel, EffectiveCtrl(ctrls[i].Label)))
            return rc;
    return 0;
}

unsigned CKVX_HdwKvxArinc429OutLbloService::UpdateMessages(const CKVX_HdwArinc429Message* messages, unsigned int count)
{
    if (const unsigned rc = CKVX_HdwArinc429OutLbloService::UpdateMessages(messages, count))
        return rc;
    CKVX_HdwPort* port = GetHdwPort();
    CKVX_HdwKvxCommandUnit* unit = hdw::units::UnitOf(port);
    const unsigned channel = hdw::units::ChannelOf(this);
    CKVX_HdwServiceLock lock(*this);
    for (unsigned i = 0; i < count; ++i)
        if (const unsigned rc = unit->AttachAtxCtxDataCommand(port->GetDeviceId(), channel, messages[i]))
            return rc;
    return 0;
}

unsigned CKVX_HdwKvxArinc429OutLbloService::ProcessEvent(CKVX_HdwEvent* event)
{
    // Runs in the tick, under the device lock.
    if (hdw::units::IsEvent(event, KvxEventCriticalFailure))
        Abort();
    else if (hdw::units::IsEvent(event, KvxEventUnitBack) && GetStatus() == HDW_SERVICE_RUNNING)
        RestoreTable();
    return 0;
}

unsigned CKVX_HdwKvxArinc429OutLbloService::RestoreTable()
{
    if (const unsigned rc = AttachAllCtrls())
        return rc;
    CKVX_HdwPort* port = GetHdwPort();
    CKVX_HdwKvxCommandUnit* unit = hdw::units::UnitOf(port);
    const unsigned channel = hdw::units::ChannelOf(this);
    for (unsigned label = 0; label < 256; ++label)
        if (Defined[label] && HasData[label])
            if (const unsigned rc = unit->AttachAtxCtxDataCommand(port->GetDeviceId(), channel, Data[label]))
                return rc;
    return 0;
}

CKVX_HdwArinc429OutLbloService::CLabelCtrl CKVX_HdwKvxArinc429OutLbloService::EffectiveCtrl(unsigned char label) const
{
    CLabelCtrl c = Ctrls[label];
    if (!TxEnabled)
        c.Enabled = 0;
    return c;
}

unsigned CKVX_HdwKvxArinc429OutLbloService::AttachAllCtrls()
{
    CKVX_HdwPort* port = GetHdwPort();
    CKVX_HdwKvxCommandUnit* unit = hdw::units::UnitOf(port);
    const unsigned channel = hdw::units::ChannelOf(this);
    for (unsigned label = 0; label < 256; ++label) {
        if (!Defined[label])
            continue;
        if (const unsigned rc = unit->AttachAtxCtxCtrlCommand(
                port->GetDeviceId(), channel, EffectiveCtrl(static_cast<unsigned char>(label))))
            return rc;
    }
    return 0;
}

// ---- input --------------------------------------------------------------------

CKVX_HdwKvxArinc429InLbloService::CKVX_HdwKvxArinc429InLbloService(CKVX_HdwObject* port)
    : CKVX_HdwArinc429InLbloService(port)
{}

CKVX_HdwKvxArinc429InLbloService::~CKVX_HdwKvxArinc429InLbloService() = default;

unsigned CKVX_HdwKvxArinc429InLbloService::Start()
{
    if (const unsigned rc = CKVX_HdwArinc429InLbloService::Start())
        return rc;
    hdw::units::EnableChannelOf<CKVX_HdwKvxArinc429RxPort>(*this);
    return 0;
}

unsigned CKVX_HdwKvxArinc429InLbloService::ProcessEvent(CKVX_HdwEvent* event)
{
    // Runs in the tick, under the device lock.
    if (hdw::units::IsEvent(event, KvxEventCriticalFailure)) {
        Abort();
        return 0;
    }
    if (GetStatus() == HDW_SERVICE_RUNNING && hdw::units::IsEvent(event, KvxEventA429Rx)) {
        const auto* rx = static_cast<const CKVX_HdwKvxArinc429RxEvent*>(event);
        StoreReceived(rx->Message, rx->TimeStamp);
    }
    return 0;
}

unsigned CKVX_HdwKvxArinc429InLbloService::EnableRx()
{
    CKVX_HdwArinc429InLbloService::EnableRx();
    return ReconfigureChannel(true);
}

unsigned CKVX_HdwKvxArinc429InLbloService::DisableRx()
{
    CKVX_HdwArinc429InLbloService::DisableRx();
    return ReconfigureChannel(false);
}

unsigned CKVX_HdwKvxArinc429InLbloService::AcceptLabel(unsigned char label, unsigned char sdiMask)
{
    CKVX_HdwArinc429InLbloService::AcceptLabel(label, sdiMask);
    return ReconfigureChannel(IsRxEnabled());
}

unsigned CKVX_HdwKvxArinc429InLbloService::DiscardLabel(unsigned char label)
{
    CKVX_HdwArinc429InLbloService::DiscardLabel(label);
    return ReconfigureChannel(IsRxEnabled());
}

unsigned CKVX_HdwKvxArinc429InLbloService::AcceptAllLabels()
{
    CKVX_HdwArinc429InLbloService::AcceptAllLabels();
    return ReconfigureChannel(IsRxEnabled());
}

unsigned CKVX_HdwKvxArinc429InLbloService::DiscardAllLabels()
{
    CKVX_HdwArinc429InLbloService::DiscardAllLabels();
    return ReconfigureChannel(IsRxEnabled());
}

unsigned CKVX_HdwKvxArinc429InLbloService::ReconfigureChannel(bool enable)
{
    return hdw::units::ReconfigureChannelOf<CKVX_HdwKvxArinc429RxPort>(*this, enable);
}
