#include <HdwLib/units/KvxArinc429Ports.h>
#include <HdwLib/units/KvxCanPort.h>
#include <HdwLib/units/KvxSignalService.h>
#include <HdwLib/units/internal/KvxUnitAccess.h>

CKVX_HdwKvxSignalService::CKVX_HdwKvxSignalService(CKVX_HdwObject* port) : CKVX_HdwSignalService(port)
{
    // The end of the tick publishes (the adapters' end-of-tick handler).
    HoldReadinessUntilPublished();
}

CKVX_HdwKvxSignalService::~CKVX_HdwKvxSignalService() = default;

unsigned CKVX_HdwKvxSignalService::Start()
{
    if (const unsigned rc = CKVX_HdwSignalService::Start())
        return rc;
    if (!hdw::units::EnableChannelOf<CKVX_HdwKvxArinc429TxPort>(*this))
        hdw::units::EnableChannelOf<CKVX_HdwKvxCanPort>(*this);
    return 0;
}

unsigned CKVX_HdwKvxSignalService::Stop()
{
    return CKVX_HdwSignalService::Stop();
}

unsigned CKVX_HdwKvxSignalService::ProcessEvent(CKVX_HdwEvent* event)
{
    // Runs in the tick, under the device lock; posting takes only the queue's mutex.
    if (!event)
        return 0;
    switch (event->GetEventCode()) {
    case KvxEventCriticalFailure: Abort(); break;
    case KvxEventA429Rx: {
        const auto* e = static_cast<const CKVX_HdwKvxArinc429RxEvent*>(event);
        PostArinc429(HDW_SIGNAL_ARINC429_RECEIVED, e->Message, e->TimeStamp);
        break;
    }
    case KvxEventA429Tx: {
        const auto* e = static_cast<const CKVX_HdwKvxArinc429TxEvent*>(event);
        PostArinc429(HDW_SIGNAL_ARINC429_SENT, e->Message, e->TimeStamp);
        break;
    }
    case KvxEventCanRx: {
        const auto* e = static_cast<const CKVX_HdwKvxCanRxEvent*>(event);
        PostCan(HDW_SIGNAL_CAN_RECEIVED, e->Message, e->TimeStamp);
        break;
    }
    case KvxEventCanTx: {
        const auto* e = static_cast<const CKVX_HdwKvxCanTxEvent*>(event);
        PostCan(HDW_SIGNAL_CAN_SENT, e->Message, e->TimeStamp);
        break;
    }
    case KvxEventUartRx: {
        const auto* e = static_cast<const CKVX_HdwKvxUartRxEvent*>(event);
        if (!e->Data.empty())
            PostValue(HDW_SIGNAL_UART_RECEIVED, uint32_t(e->Data.size()), e->Status, e->TimeStamp);
        break;
    }
    case KvxEventUartTx: {
        const auto* e = static_cast<const CKVX_HdwKvxUartTxEvent*>(event);
        PostValue(HDW_SIGNAL_UART_SENT, e->Count, e->ChunkCounter, e->TimeStamp);
        break;
    }
    case KvxEventDiscreteIn:
    case KvxEventDiscreteOut: {
        // Read answers and writes that changed nothing are no signal.
        const auto* e = static_cast<const CKVX_HdwKvxDiscreteEvent*>(event);
        const unsigned kind = event->GetEventCode() == KvxEventDiscreteIn ? unsigned(HDW_SIGNAL_DISCRETE_INPUT)
                                                                          : unsigned(HDW_SIGNAL_DISCRETE_OUTPUT);
        if (e->Changed != 0)
            PostValue(kind, e->State, e->Changed, e->TimeStamp);
        break;
    }
    default: break;
    }
    return 0;
}
