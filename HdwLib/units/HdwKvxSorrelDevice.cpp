#include <HdwLib/units/HdwKvxSorrelDevice.h>
#include <HdwLib/units/internal/KvxReconnectAttempt.h>
#include <HdwLib/units/internal/KvxSorrelChannel.h>

#include <cstring>

namespace sorrel = hdw::units::sorrel;
using Packet = CKVX_HdwHoe::t_HoePacket_Union;

CKVX_HdwKvxSorrelDevice::CDeviceInstance::CDeviceInstance() : m_Channels(new hdw::units::CSorrelChannel[UartCount]) {}

CKVX_HdwKvxSorrelDevice::CDeviceInstance::~CDeviceInstance()
{
    // The attempt thread and the receive thread use the channels: they stop first.
    Reconnect.Attempt->Cancel();
    EthDisconnect();
    delete[] m_Channels;
}

hdw::units::CSorrelChannel* CKVX_HdwKvxSorrelDevice::CDeviceInstance::GetChannel(unsigned channel)
{
    return channel < UartCount ? &m_Channels[channel] : nullptr;
}

unsigned CKVX_HdwKvxSorrelDevice::CDeviceInstance::SendPortPacket(
    unsigned channel, uint32_t code, uint32_t number, const uint8_t* payload, unsigned size)
{
    if (channel >= UartCount || size > CKVX_HdwHoe::MaxPayload)
        return HDW_ERR_ARGUMENT;
    if (!IsEthConnected())
        return HDW_ERR_LINK;
    Packet p;
    std::memset(p.Bytes, 0, CKVX_HdwHoe::HeaderSize);
    if (size)
        std::memcpy(p.Sections.Payload, payload, size);
    CKVX_HdwHoe::SetPacketNumber(p, number);
    CKVX_HdwHoe::SetPayloadLength(p, static_cast<uint16_t>(size));
    // Every port packet has the same header; the builder's code is replaced.
    CKVX_HdwHoe(ClientId).BuildKeepAlivePortPacket(FirstWord, sorrel::PortTypeUart, channel, SecondWord, p);
    CKVX_HdwHoe::SetU32(p, CKVX_HdwHoe::OffCode, code);
    CKVX_HdwHoe::SetU16(p, CKVX_HdwHoe::OffCrc, CKVX_HdwHoe::ComputeCrc(p));
    {
        std::lock_guard<std::mutex> lock(m_Channels[channel].Mutex);
        m_Channels[channel].LastSent = sorrel::Clock::now();
    }
    return SendPacket(p) == 0 ? 0u : static_cast<unsigned>(HDW_ERR_LINK);
}

unsigned CKVX_HdwKvxSorrelDevice::CDeviceInstance::EthProcessPortPacket(Packet& packet, unsigned)
{
    const unsigned channel = CKVX_HdwHoe::GetU16(packet, CKVX_HdwHoe::OffChannel);
    if (CKVX_HdwHoe::GetU16(packet, CKVX_HdwHoe::OffPortType) != sorrel::PortTypeUart || channel >= UartCount)
        return 0;
    hdw::units::CSorrelChannel& ch = m_Channels[channel];
    {
        std::lock_guard<std::mutex> lock(ch.Mutex);
        ch.LastHeard = sorrel::Clock::now();
    }
    const uint32_t code = CKVX_HdwHoe::GetCode(packet);
    if (code == CKVX_HdwHoe::CodeDataBuf)
        TakeData(channel, packet);
    else if (code != CKVX_HdwHoe::CodeKeepAlivePort)
        TakeReply(channel, packet);
    return 0;
}

void CKVX_HdwKvxSorrelDevice::CDeviceInstance::TakeData(unsigned channel, Packet& packet)
{
    hdw::units::CSorrelChannel& ch = m_Channels[channel];
    const uint32_t number = CKVX_HdwHoe::GetPacketNumber(packet);
    const unsigned length = CKVX_HdwHoe::GetPayloadLength(packet);
    bool acknowledge = false;
    {
        std::lock_guard<std::mutex> lock(ch.Mutex);
        if (!ch.Open)
            return; // not acknowledged: the unit has no business sending
        if (ch.RxResetPending) {
            acknowledge = true; // bytes from before the reset: dropped
        } else if (number == ch.RxExpected) {
            ch.RxBytes.insert(ch.RxBytes.end(), packet.Sections.Payload, packet.Sections.Payload + length);
            ++ch.RxExpected;
            acknowledge = true;
        } else if (!sorrel::NotBefore(number, ch.RxExpected)) {
            ++ch.RxDuplicates; // a resend of one already taken
            acknowledge = true;
        }
    }
    // At once, so that the unit's window never waits for a tick.
    if (acknowledge)
        SendPortPacket(channel, CKVX_HdwHoe::CodeDataBufReply, number, nullptr, 0);
}

void CKVX_HdwKvxSorrelDevice::CDeviceInstance::TakeReply(unsigned channel, Packet& packet)
{
    hdw::units::CSorrelChannel& ch = m_Channels[channel];
    const uint32_t code = CKVX_HdwHoe::GetCode(packet);
    const unsigned index = code - 0xA0000000u;
    if (index >= sizeof ch.Replies / sizeof ch.Replies[0])
        return;
    const unsigned length = CKVX_HdwHoe::GetPayloadLength(packet);
    const uint8_t* payload = packet.Sections.Payload;
    {
        std::lock_guard<std::mutex> lock(ch.Mutex);
        if (code == CKVX_HdwHoe::CodeDataBufReply) {
            const uint32_t number = CKVX_HdwHoe::GetPacketNumber(packet);
            if (length >= 4 && (!ch.AckSeen || sorrel::NotBefore(number, ch.AckNumber))) {
                ch.AckSeen = true;
                ch.AckNumber = number;
                ch.AckFree = sorrel::GetU32(payload);
            }
            return;
        }
        const bool done = length >= 4 && sorrel::GetU32(payload) == 0;
        if (code == CKVX_HdwHoe::CodeOpenPortReply && done) {
            // Both numberings start again; what the unit sends from now on is of this opening.
            ch.Open = true;
            ch.RxExpected = 0;
            ch.RxResetPending = false;
            ch.RxBytes.clear();
            ch.AckSeen = false;
        }
        if (code == CKVX_HdwHoe::CodeRstRxReply && ch.RxResetPending && done && length >= 12) {
            ch.RxExpected = sorrel::GetU32(payload + 8);
            ch.RxResetPending = false;
            ch.RxBytes.clear();
        }
        ch.Replies[index].Got = true;
        ch.Replies[index].Payload.assign(payload, payload + length);
    }
    ch.Changed.notify_all();
}

CKVX_HdwKvxSorrelDevice::CKVX_HdwKvxSorrelDevice()
{
    m_DeviceCode = DeviceCode;
    m_Manufacturer = "Kalvionix Engineering";
    m_ModelName = "Sorrel";
    m_Description = "Sorrel: six UARTs over Ethernet";
    m_HoeUdpPort = UdpPort;
}

CKVX_HdwKvxSorrelDevice::~CKVX_HdwKvxSorrelDevice() = default;

CKVX_HdwHoeDevice::CDeviceInstance* CKVX_HdwKvxSorrelDevice::CreateDeviceInstance()
{
    return new CDeviceInstance;
}

unsigned CKVX_HdwKvxSorrelDevice::CreateInstancePorts(unsigned instance)
{
    for (unsigned ch = 0; ch < UartCount; ++ch) {
        CKVX_String id;
        id.Format("%u", ch);
        CKVX_String description;
        description.Format("UART %u", ch);
        AddPortDescriptor(instance, new CUartPort(this, instance, id), ch, description);
    }
    return 0;
}

unsigned CKVX_HdwKvxSorrelDevice::HdwTimerStartDeviceIntanceHandler(unsigned instance, uint64_t)
{
    // Called by the tick with the device lock held.
    auto* sorrelInst = dynamic_cast<CDeviceInstance*>(GetDeviceInstance(instance));
    if (sorrelInst && ReconnectEnabled())
        WatchLink(*sorrelInst);
    if (CKVX_HdwDevice::CDeviceInstance* inst = GetDeviceInstance(instance))
        for (CKVX_HdwPort* port : inst->GetPortList())
            if (auto* uart = dynamic_cast<CUartPort*>(port))
                uart->MoveReceived();
    return 0;
}

unsigned CKVX_HdwKvxSorrelDevice::HdwTimerEndDeviceIntanceHandler(unsigned instance, uint64_t ticks)
{
    // The signal services show the whole tick's posts at once, as the tick's last act.
    if (CKVX_HdwDevice::CDeviceInstance* inst = GetDeviceInstance(instance))
        for (CKVX_HdwPort* port : inst->GetPortList())
            if (auto* uart = dynamic_cast<CUartPort*>(port))
                uart->PublishSignals();
    return CKVX_HdwHoeDevice::HdwTimerEndDeviceIntanceHandler(instance, ticks);
}
