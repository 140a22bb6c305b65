// The event handlers of the command-protocol units: each decodes its record
// into the event object of its type, names the channel (the sub-field in
// decimal) and offers the event to the open ports of the instance that it
// concerns. Runs on the timer thread under the instance's device lock.
//
// The fixed-size events live on the stack: the receive path of the ARINC 429
// and CAN channels allocates nothing per event. Variable parts (UART bytes,
// 1553 words) are held by the event and freed with it.

#include <HdwLib/units/KvxCommandUnit.h>
#include <HdwLib/units/KvxUnitPorts.h>

#include <array>

namespace kvx_events {

// The channel number as its text ("0" ... "15"; from 10 on the last two
// digits). The texts are built once: naming an event's channel then copies a
// short text instead of building and freeing a string per event.
inline const CKVX_String& ChannelText(unsigned channel)
{
    static const std::array<CKVX_String, 110> texts = [] {
        std::array<CKVX_String, 110> t;
        for (unsigned i = 0; i < 10; ++i) {
            const char text[2] = {char('0' + i), 0};
            t[i] = CKVX_String(text, 1);
        }
        for (unsigned i = 0; i < 100; ++i) {
            const char text[3] = {char('0' + i / 10), char('0' + i % 10), 0};
            t[10 + i] = CKVX_String(text, 2);
        }
        return t;
    }();
    return texts[channel < 10 ? channel : 10 + channel % 100];
}

// Units with more than eight ARINC 429 channels of a direction append one
// byte to their receive (type 2) and transmit (type 3) records: the
// channel's upper bits (channel >> 3), the sub-field holding channel & 7.
// Parameter offset of that byte; a record without it is of bank 0.
constexpr unsigned kA429RxBankOffset = 10;
constexpr unsigned kA429TxBankOffset = 8;

} // namespace kvx_events

// Steps shared by the handlers: name the channel (`subField` here is the
// whole channel number), decode, dispatch to the ports of `portType` on it.
template <class TEvent>
unsigned CKVX_HdwKvxCommandUnit::DecodeAndDispatch(
    unsigned instance, unsigned portType, unsigned subField, unsigned length, uint8_t* params, TEvent& event)
{
    event.SetChannelId(kvx_events::ChannelText(subField));
    // TEvent is the object's own type: no virtual call needed.
    if (const unsigned rc = event.TEvent::ExtractData(params, length))
        return rc;
    return DispatchEvent(instance, portType, subField, &event);
}

unsigned CKVX_HdwKvxCommandUnit::DispatchEvent(
    unsigned instance, unsigned portType, unsigned channel, CKVX_HdwKvxEvent* event)
{
    CKVX_HdwPort* port = nullptr;
    CKVX_HdwKvxUnitInstance* inst = PassInstance(instance);
    if (inst)
        event->UnwrappedTime = inst->RecordUnitTime;
    if (inst)
        if (inst->Routes.Find(inst->GetDeviceInstanceBase().GetPortList(), portType, channel, port))
            return port ? port->ProcessEvent(event) : 0;
    return GetUnitDevice().ProcessEventHandlers(instance, portType, event);
}

// An echo removes its command from the head of the echo list. An echo of
// any other command fails the reception (the unit answers in order), unless
// it is the late echo of an earlier session, which is dropped.
unsigned CKVX_HdwKvxCommandUnit::ProcessEventComEcho(
    unsigned instance, unsigned /*subField*/, unsigned length, uint8_t* params)
{
    CKVX_HdwKvxUnitInstance* inst = PassInstance(instance);
    if (!inst)
        return HDW_ERR_LINK;
    // Consumed here and offered to no port: only its command number is read,
    // with no event object (every command sent comes back as one of these).
    uint16_t number = 0;
    if (const unsigned rc = kvx_events::ExtractEchoedCommand(params, length, number))
        return rc;
    const bool inOrder = inst->TakeEcho(number) != CKVX_HdwKvxUnitEngine::EEcho::OutOfOrder;
    return inOrder ? 0u : unsigned(HDW_ERR_LINK);
}

// A critical failure concerns the whole unit: every open port hears it, so
// that each can set its services to failed.
unsigned CKVX_HdwKvxCommandUnit::ProcessEventCriticalFailure(
    unsigned instance, unsigned subField, unsigned length, uint8_t* params)
{
    CCriticalFailureEvent event;
    event.SetChannelId(kvx_events::ChannelText(subField));
    event.FailureCode = subField;
    if (const unsigned rc = event.ExtractData(params, length))
        return rc;
    if (CKVX_HdwKvxUnitInstance* inst = PassInstance(instance))
        event.UnwrappedTime = inst->RecordUnitTime;
    return GetUnitDevice().ProcessEventHandlers(instance, &event);
}

unsigned CKVX_HdwKvxCommandUnit::ProcessEventA429Rx(
    unsigned instance, unsigned subField, unsigned length, uint8_t* params)
{
    CArinc429RxEvent event;
    if (m_Profile.ArxChannels > 8)
        subField += 8u * kvx_events::ParamByte(params, length, kvx_events::kA429RxBankOffset);
    return DecodeAndDispatch(instance, HDW_PORT_ARINC429_RX, subField, length, params, event);
}

unsigned CKVX_HdwKvxCommandUnit::ProcessEventA429Tx(
    unsigned instance, unsigned subField, unsigned length, uint8_t* params)
{
    CArinc429TxEvent event;
    if (m_Profile.AtxChannels > 8)
        subField += 8u * kvx_events::ParamByte(params, length, kvx_events::kA429TxBankOffset);
    return DecodeAndDispatch(instance, HDW_PORT_ARINC429_TX, subField, length, params, event);
}

// Kind 1 goes to the ARINC 429 transmitter of the channel, kind 2 to the CAN
// channel; both first update that channel's status record. Other kinds are
// accepted and reach no port.
unsigned CKVX_HdwKvxCommandUnit::ProcessEventStatus(
    unsigned instance, unsigned subField, unsigned length, uint8_t* params)
{
    CKVX_HdwKvxUnitInstance* inst = PassInstance(instance);
    if (!inst)
        return HDW_ERR_LINK;
    CStatusEvent event;
    event.SetChannelId(kvx_events::ChannelText(subField));
    if (const unsigned rc = event.ExtractData(params, length))
        return rc;
    if (event.Kind == 1) {
        if (subField < inst->AtxCtrl.size())
            inst->AtxCtrl[subField].FifoWaiting = event.StatusWord;
        return DispatchEvent(instance, HDW_PORT_ARINC429_TX, subField, &event);
    }
    if (event.Kind == 2) {
        if (subField < inst->CanCtrl.size()) {
            CCanCtrlStatus& c = inst->CanCtrl[subField];
            c.FaultState = event.StatusWord & 0xFF;
            c.TxWaiting = (event.StatusWord >> 8) & 0xFF;
            c.ErrReg0 = uint8_t(event.StatusWord >> 16);
            c.ErrReg1 = uint8_t(event.StatusWord >> 24);
        }
        return DispatchEvent(instance, HDW_PORT_CAN, subField, &event);
    }
    return 0;
}

unsigned CKVX_HdwKvxCommandUnit::ProcessEventCanRx(
    unsigned instance, unsigned subField, unsigned length, uint8_t* params)
{
    CCanRxEvent event;
    return DecodeAndDispatch(instance, HDW_PORT_CAN, subField, length, params, event);
}

unsigned CKVX_HdwKvxCommandUnit::ProcessEventCanTx(
    unsigned instance, unsigned subField, unsigned length, uint8_t* params)
{
    CCanTxEvent event;
    return DecodeAndDispatch(instance, HDW_PORT_CAN, subField, length, params, event);
}

unsigned CKVX_HdwKvxCommandUnit::ProcessEventMilStd1553(
    unsigned instance, unsigned subField, unsigned length, uint8_t* params)
{
    CMilStd1553Event event;
    return DecodeAndDispatch(instance, HDW_PORT_MILSTD1553, subField, length, params, event);
}

unsigned CKVX_HdwKvxCommandUnit::ProcessEventUartRx(
    unsigned instance, unsigned subField, unsigned length, uint8_t* params)
{
    CUartRxEvent event;
    return DecodeAndDispatch(instance, HDW_PORT_UART, subField, length, params, event);
}

unsigned CKVX_HdwKvxCommandUnit::ProcessEventUartTx(
    unsigned instance, unsigned subField, unsigned length, uint8_t* params)
{
    CUartTxEvent event;
    return DecodeAndDispatch(instance, HDW_PORT_UART, subField, length, params, event);
}

unsigned CKVX_HdwKvxCommandUnit::ProcessEventDiscreteIn(
    unsigned instance, unsigned subField, unsigned length, uint8_t* params)
{
    CDiscreteInEvent event;
    return DecodeAndDispatch(instance, HDW_PORT_DISCRETE_IN, subField, length, params, event);
}

unsigned CKVX_HdwKvxCommandUnit::ProcessEventDiscreteOut(
    unsigned instance, unsigned subField, unsigned length, uint8_t* params)
{
    CDiscreteOutEvent event;
    return DecodeAndDispatch(instance, HDW_PORT_DISCRETE_OUT, subField, length, params, event);
}

unsigned CKVX_HdwKvxCommandUnit::ProcessEventI2cResult(
    unsigned instance, unsigned subField, unsigned length, uint8_t* params)
{
    CI2cResultEvent event;
    return DecodeAndDispatch(instance, HDW_PORT_I2C, subField, length, params, event);
}

unsigned CKVX_HdwKvxCommandUnit::ProcessEventSpiResult(
    unsigned instance, unsigned subField, unsigned length, uint8_t* params)
{
    CSpiResultEvent event;
    return DecodeAndDispatch(instance, HDW_PORT_SPI, subField, length, params, event);
}
