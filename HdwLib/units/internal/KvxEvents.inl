// Included once, by KvxCommandDevice.cpp, before the explicit instantiations.
//
// The event handlers of the command-protocol units: each decodes its record
// into the event object of its type, names the channel (the sub-field in
// decimal) and offers the event to the open ports of the instance that it
// concerns. Runs on the timer thread under the instance's device lock.
//
// The fixed-size events live on the stack: the receive path of the ARINC 429
// and CAN channels allocates nothing per event. Variable parts (UART bytes,
// 1553 words) are held by the event and freed with it.

namespace kvx_events {

// The sub-field as the channel text ("0" ... "7").
inline CKVX_String ChannelText(unsigned subField)
{
    const char text[2] = {char('0' + (subField & 7)), 0};
    return CKVX_String(text, 1);
}

} // namespace kvx_events

// Steps shared by the handlers: name the channel, decode, dispatch to the
// ports of `portType` on that channel.
template <class B>
template <class TEvent>
unsigned CKVX_HdwKvxCommandDevice<B>::DecodeAndDispatch(unsigned instance, unsigned portType, unsigned subField,
                                                        unsigned length, uint8_t* params, TEvent& event)
{
    event.SetChannelId(kvx_events::ChannelText(subField));
    if (const unsigned rc = event.ExtractData(params, length))
        return rc;
    return this->ProcessEventHandlers(instance, portType, &event);
}

// A critical failure concerns the whole unit: every open port hears it, so
// that each can set its services to failed.
template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::ProcessEventCriticalFailure(unsigned instance, unsigned subField,
                                                                  unsigned length, uint8_t* params)
{
    CCriticalFailureEvent event;
    event.SetChannelId(kvx_events::ChannelText(subField));
    event.FailureCode = subField;
    if (const unsigned rc = event.ExtractData(params, length))
        return rc;
    return this->ProcessEventHandlers(instance, &event);
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::ProcessEventA429Rx(unsigned instance, unsigned subField, unsigned length,
                                                         uint8_t* params)
{
    CArinc429RxEvent event;
    return DecodeAndDispatch(instance, HDW_PORT_ARINC429_RX, subField, length, params, event);
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::ProcessEventA429Tx(unsigned instance, unsigned subField, unsigned length,
                                                         uint8_t* params)
{
    CArinc429TxEvent event;
    return DecodeAndDispatch(instance, HDW_PORT_ARINC429_TX, subField, length, params, event);
}

// Kind 1 goes to the ARINC 429 transmitter of the channel, kind 2 to the CAN
// channel; both first update that channel's status record. Other kinds are
// accepted and reach no port.
template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::ProcessEventStatus(unsigned instance, unsigned subField, unsigned length,
                                                         uint8_t* params)
{
    CDeviceInstance* inst = GetProtocolInstance(instance);
    if (!inst)
        return 14;
    CStatusEvent event;
    event.SetChannelId(kvx_events::ChannelText(subField));
    if (const unsigned rc = event.ExtractData(params, length))
        return rc;
    if (event.Kind == 1) {
        if (subField < inst->AtxCtrl.size())
            inst->AtxCtrl[subField].FifoWaiting = event.StatusWord;
        return this->ProcessEventHandlers(instance, HDW_PORT_ARINC429_TX, &event);
    }
    if (event.Kind == 2) {
        if (subField < inst->CanCtrl.size()) {
            CCanCtrlStatus& c = inst->CanCtrl[subField];
            c.FaultState = event.StatusWord & 0xFF;
            c.TxWaiting = (event.StatusWord >> 8) & 0xFF;
            c.ErrReg0 = uint8_t(event.StatusWord >> 16);
            c.ErrReg1 = uint8_t(event.StatusWord >> 24);
        }
        return this->ProcessEventHandlers(instance, HDW_PORT_CAN, &event);
    }
    return 0;
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::ProcessEventCanRx(unsigned instance, unsigned subField, unsigned length,
                                                        uint8_t* params)
{
    CCanRxEvent event;
    return DecodeAndDispatch(instance, HDW_PORT_CAN, subField, length, params, event);
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::ProcessEventCanTx(unsigned instance, unsigned subField, unsigned length,
                                                        uint8_t* params)
{
    CCanTxEvent event;
    return DecodeAndDispatch(instance, HDW_PORT_CAN, subField, length, params, event);
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::ProcessEventMilStd1553(unsigned instance, unsigned subField, unsigned length,
                                                             uint8_t* params)
{
    CMilStd1553Event event;
    return DecodeAndDispatch(instance, HDW_PORT_MILSTD1553, subField, length, params, event);
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::ProcessEventUartRx(unsigned instance, unsigned subField, unsigned length,
                                                         uint8_t* params)
{
    CUartRxEvent event;
    return DecodeAndDispatch(instance, HDW_PORT_UART, subField, length, params, event);
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::ProcessEventUartTx(unsigned instance, unsigned subField, unsigned length,
                                                         uint8_t* params)
{
    CUartTxEvent event;
    return DecodeAndDispatch(instance, HDW_PORT_UART, subField, length, params, event);
}
