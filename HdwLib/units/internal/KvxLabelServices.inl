// Label-oriented ARINC 429 services of the command-protocol units. Included
// once, by KvxPortsServices.inl.

// ---- output -------------------------------------------------------------------

template <class B>
CKVX_HdwKvxCommandDevice<B>::CArinc429OutLbloService::CArinc429OutLbloService(CKVX_HdwObject* port)
    : CKVX_HdwArinc429OutLbloService(port)
{
}

template <class B>
CKVX_HdwKvxCommandDevice<B>::CArinc429OutLbloService::~CArinc429OutLbloService() = default;

template <class B>
typename CKVX_HdwArinc429OutLbloService::CLabelCtrl
CKVX_HdwKvxCommandDevice<B>::CArinc429OutLbloService::EffectiveCtrl(unsigned char label) const
{
    CLabelCtrl c = Ctrls[label];
    if (!TxEnabled)
        c.Enabled = 0;
    return c;
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CArinc429OutLbloService::AttachAllCtrls()
{
    CKVX_HdwPort* port = GetHdwPort();
    auto* unit = hdw::units::UnitOf<B>(port);
    const unsigned channel = hdw::units::ChannelOf(this);
    for (unsigned label = 0; label < 256; ++label) {
        if (!Defined[label])
            continue;
        if (const unsigned rc = unit->AttachAtxCtxCtrlCommand(port->GetDeviceId(), channel,
                                                               EffectiveCtrl(static_cast<unsigned char>(label))))
            return rc;
    }
    return 0;
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CArinc429OutLbloService::Start()
{
    if (const unsigned rc = CKVX_HdwArinc429OutLbloService::Start())
        return rc;
    auto* port = dynamic_cast<CArinc429TxPort*>(GetHdwPort());
    if (!port)
        return 0;
    CKVX_HdwServiceLock lock(*this);
    // The transmitter on, and nothing left of an earlier user's table.
    port->AttachConfiguration(true);
    return hdw::units::UnitOf<B>(port)->AttachAtxCtxResetCommand(port->GetDeviceId(), port->GetChannel());
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CArinc429OutLbloService::Stop()
{
    if (auto* port = dynamic_cast<CArinc429TxPort*>(GetHdwPort())) {
        CKVX_HdwServiceLock lock(*this);
        hdw::units::UnitOf<B>(port)->AttachAtxCtxResetCommand(port->GetDeviceId(), port->GetChannel());
    }
    return CKVX_HdwArinc429OutLbloService::Stop();
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CArinc429OutLbloService::ProcessEvent(CKVX_HdwEvent* event)
{
    // Runs in the tick, under the device lock.
    if (hdw::units::IsEvent(event, EventCriticalFailure))
        Abort();
    return 0;
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CArinc429OutLbloService::EnableTx()
{
    if (const unsigned rc = CKVX_HdwArinc429OutLbloService::EnableTx())
        return rc;
    CKVX_HdwServiceLock lock(*this);
    return AttachAllCtrls();
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CArinc429OutLbloService::DisableTx()
{
    if (const unsigned rc = CKVX_HdwArinc429OutLbloService::DisableTx())
        return rc;
    CKVX_HdwServiceLock lock(*this);
    return AttachAllCtrls();
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CArinc429OutLbloService::ResetTx()
{
    if (const unsigned rc = CKVX_HdwArinc429OutLbloService::ResetTx())
        return rc;
    CKVX_HdwPort* port = GetHdwPort();
    CKVX_HdwServiceLock lock(*this);
    return hdw::units::UnitOf<B>(port)->AttachAtxCtxResetCommand(port->GetDeviceId(), hdw::units::ChannelOf(this));
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CArinc429OutLbloService::SetLabelsCtrl(const CLabelCtrl* ctrls,
                                                                             unsigned int count)
{
    if (const unsigned rc = CKVX_HdwArinc429OutLbloService::SetLabelsCtrl(ctrls, count))
        return rc;
    CKVX_HdwPort* port = GetHdwPort();
    auto* unit = hdw::units::UnitOf<B>(port);
    const unsigned channel = hdw::units::ChannelOf(this);
    CKVX_HdwServiceLock lock(*this);
    for (unsigned i = 0; i < count; ++i)
        if (const unsigned rc = unit->AttachAtxCtxCtrlCommand(port->GetDeviceId(), channel,
                                                               EffectiveCtrl(ctrls[i].Label)))
            return rc;
    return 0;
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CArinc429OutLbloService::UpdateMessages(const CKVX_HdwArinc429Message* messages,
                                                                              unsigned int count)
{
    if (const unsigned rc = CKVX_HdwArinc429OutLbloService::UpdateMessages(messages, count))
        return rc;
    CKVX_HdwPort* port = GetHdwPort();
    auto* unit = hdw::units::UnitOf<B>(port);
    const unsigned channel = hdw::units::ChannelOf(this);
    CKVX_HdwServiceLock lock(*this);
    for (unsigned i = 0; i < count; ++i)
        if (const unsigned rc = unit->AttachAtxCtxDataCommand(port->GetDeviceId(), channel, messages[i]))
            return rc;
    return 0;
}

// ---- input --------------------------------------------------------------------

template <class B>
CKVX_HdwKvxCommandDevice<B>::CArinc429InLbloService::CArinc429InLbloService(CKVX_HdwObject* port)
    : CKVX_HdwArinc429InLbloService(port)
{
}

template <class B>
CKVX_HdwKvxCommandDevice<B>::CArinc429InLbloService::~CArinc429InLbloService() = default;

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CArinc429InLbloService::ReconfigureChannel(bool enable)
{
    return hdw::units::ReconfigureChannelOf<CArinc429RxPort>(*this, enable);
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CArinc429InLbloService::Start()
{
    if (const unsigned rc = CKVX_HdwArinc429InLbloService::Start())
        return rc;
    hdw::units::EnableChannelOf<CArinc429RxPort>(*this);
    return 0;
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CArinc429InLbloService::ProcessEvent(CKVX_HdwEvent* event)
{
    // Runs in the tick, under the device lock.
    if (hdw::units::IsEvent(event, EventCriticalFailure)) {
        Abort();
        return 0;
    }
    if (GetStatus() == HDW_SERVICE_RUNNING && hdw::units::IsEvent(event, EventA429Rx)) {
        const auto* rx = static_cast<const CArinc429RxEvent*>(event);
        StoreReceived(hdw::units::Arinc429Of(*rx), rx->TimeStamp);
    }
    return 0;
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CArinc429InLbloService::EnableRx()
{
    CKVX_HdwArinc429InLbloService::EnableRx();
    return ReconfigureChannel(true);
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CArinc429InLbloService::DisableRx()
{
    CKVX_HdwArinc429InLbloService::DisableRx();
    return ReconfigureChannel(false);
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CArinc429InLbloService::AcceptLabel(unsigned char label, unsigned char sdiMask)
{
    CKVX_HdwArinc429InLbloService::AcceptLabel(label, sdiMask);
    return ReconfigureChannel(IsRxEnabled());
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CArinc429InLbloService::DiscardLabel(unsigned char label)
{
    CKVX_HdwArinc429InLbloService::DiscardLabel(label);
    return ReconfigureChannel(IsRxEnabled());
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CArinc429InLbloService::AcceptAllLabels()
{
    CKVX_HdwArinc429InLbloService::AcceptAllLabels();
    return ReconfigureChannel(IsRxEnabled());
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CArinc429InLbloService::DiscardAllLabels()
{
    CKVX_HdwArinc429InLbloService::DiscardAllLabels();
    return ReconfigureChannel(IsRxEnabled());
}
