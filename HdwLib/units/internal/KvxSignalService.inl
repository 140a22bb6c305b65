// Signal service of the command-protocol units. Included once, by
// KvxPortsServices.inl.

template <class B>
CKVX_HdwKvxCommandDevice<B>::CSignalService::CSignalService(CKVX_HdwObject* port) : CKVX_HdwSignalService(port)
{
    // The end of the tick publishes (HdwTimerEndDeviceIntanceHandler).
    HoldReadinessUntilPublished();
}

template <class B>
CKVX_HdwKvxCommandDevice<B>::CSignalService::~CSignalService() = default;

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CSignalService::Start()
{
    if (const unsigned rc = CKVX_HdwSignalService::Start())
        return rc;
    if (!hdw::units::EnableChannelOf<CArinc429TxPort>(*this))
        hdw::units::EnableChannelOf<CCanPort>(*this);
    return 0;
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CSignalService::Stop()
{
    return CKVX_HdwSignalService::Stop();
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CSignalService::ProcessEvent(CKVX_HdwEvent* event)
{
    // Runs in the tick, under the device lock; posting takes only the queue's mutex.
    if (!event)
        return 0;
    switch (event->GetEventCode()) {
    case EventCriticalFailure:
        Abort();
        break;
    case EventA429Rx: {
        const auto* e = static_cast<const CArinc429RxEvent*>(event);
        PostArinc429(HDW_SIGNAL_ARINC429_RECEIVED, hdw::units::Arinc429Of(*e), e->TimeStamp);
        break;
    }
    case EventA429Tx: {
        const auto* e = static_cast<const CArinc429TxEvent*>(event);
        PostArinc429(HDW_SIGNAL_ARINC429_SENT, hdw::units::Arinc429Of(*e), e->TimeStamp);
        break;
    }
    case EventCanRx: {
        const auto* e = static_cast<const CCanRxEvent*>(event);
        PostCan(HDW_SIGNAL_CAN_RECEIVED, hdw::units::CanOf(*e), e->TimeStamp);
        break;
    }
    case EventCanTx: {
        const auto* e = static_cast<const CCanTxEvent*>(event);
        PostCan(HDW_SIGNAL_CAN_SENT, hdw::units::CanOf(*e), e->TimeStamp);
        break;
    }
    default:
        break;
    }
    return 0;
}
