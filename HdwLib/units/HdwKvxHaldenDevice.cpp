#include <HdwLib/units/HdwKvxHaldenDevice.h>

#include <cctype>
#include <string>

CKVX_HdwKvxHaldenDevice::CDeviceInstance::CDeviceInstance() = default;
CKVX_HdwKvxHaldenDevice::CDeviceInstance::~CDeviceInstance() = default;

void CKVX_HdwKvxHaldenDevice::CDeviceInstance::Reset()
{
    CUnitBase::CDeviceInstance::Reset();
    // The unit starts each session with every channel off and empty FIFOs.
    for (auto& c : AtxCtrl)
        c = CArinc429TxCtrlStatus();
    for (auto& c : ArxCtrl)
        c = CArinc429RxCtrlStatus();
    for (auto& c : CanCtrl)
        c = CCanCtrlStatus();
    for (auto& c : UartCtrl)
        c = CUartCtrlStatus();
    for (auto& c : MilStd1553Ctrl)
        c = CMilStd1553Config();
}

void CKVX_HdwKvxHaldenDevice::CDeviceInstance::ResetRxState()
{
    CUnitBase::CDeviceInstance::ResetRxState();
}

CKVX_HdwKvxHaldenDevice::CKVX_HdwKvxHaldenDevice()
{
    m_DeviceCode = 3;
    m_Manufacturer = "Kalvionix Engineering";
    m_ModelName = "Halden";
    m_Description = "Kalvionix Halden Link";
    m_UsbDescription = "Kalvionix Halden Link";
    m_UsbVendorId = "5A3C";
    m_UsbProductId = "000A";
    m_HoeUdpPort = 55003;
    m_LinkParameters.BaudRate = 6000000;
    m_LinkParameters.DataBits = 8;
    m_LinkTimeout = 500;
    SetEchoTimeout(500);

    m_Profile.UartChannels = 2;
    m_Profile.AtxChannels = 4;
    m_Profile.ArxChannels = 4;
    m_Profile.CanChannels = 2;
    m_Profile.MilStd1553Channels = 2;
    m_Profile.Commands = CmdSession | CmdStatusRequest | CmdSramWrite | CmdAtxCtxCtrl | CmdAtxCtxData | CmdAtxPush |
                         CmdAtxCtxReset | CmdAtxConfig | CmdArxConfig | CmdUartTxPush | CmdUartConfig |
                         CmdCanConfig | CmdCanPush | Cmd1553Config;
    m_Profile.Events = (1u << EventComEcho) | (1u << EventCriticalFailure) | (1u << EventA429Rx) |
                       (1u << EventA429Tx) | (1u << EventStatus) | (1u << EventCanRx) | (1u << EventCanTx) |
                       (1u << EventMilStd1553) | (1u << EventUartRx) | (1u << EventUartTx);
    m_Profile.EthernetPayloadLimit = PayloadLimitEthernet;
}

CKVX_HdwKvxHaldenDevice::~CKVX_HdwKvxHaldenDevice()
{
    // Ports go while this class's part of the device still exists.
    DestroyPorts();
    DestroyDeviceList();
}

CKVX_HdwKvxHaldenDevice::CDeviceInstance* CKVX_HdwKvxHaldenDevice::CreateDeviceInstance()
{
    auto* inst = new CDeviceInstance;
    inst->AtxCtrl.resize(m_Profile.AtxChannels);
    inst->ArxCtrl.resize(m_Profile.ArxChannels);
    inst->CanCtrl.resize(m_Profile.CanChannels);
    inst->UartCtrl.resize(m_Profile.UartChannels);
    inst->MilStd1553Ctrl.resize(m_Profile.MilStd1553Channels);
    return inst;
}

unsigned CKVX_HdwKvxHaldenDevice::GetChannelCount(unsigned kind) const
{
    switch (kind) {
    case PortKindUart: return m_Profile.UartChannels;
    case PortKindArinc429Tx: return m_Profile.AtxChannels;
    case PortKindArinc429Rx: return m_Profile.ArxChannels;
    case PortKindCan: return m_Profile.CanChannels;
    case PortKindMilStd1553: return m_Profile.MilStd1553Channels;
    default: return 0;
    }
}

CKVX_HdwPort* CKVX_HdwKvxHaldenDevice::CreatePort(unsigned kind, CKVX_HdwObject* parent, unsigned index,
                                                  const CKVX_String& name)
{
    switch (kind) {
    case PortKindUart: return new CUartPort(parent, index, name);
    case PortKindArinc429Tx: return new CArinc429TxPort(parent, index, name);
    case PortKindArinc429Rx: return new CArinc429RxPort(parent, index, name);
    case PortKindCan: return new CCanPort(parent, index, name);
    default:
        // Kind 4 has no port; the MIL-STD-1553 port class comes with its services.
        return nullptr;
    }
}

unsigned CKVX_HdwKvxHaldenDevice::CreateInstancePorts(unsigned instance)
{
    static const char* const kNames[] = {"UART", "ARINC 429 TX", "ARINC 429 RX", "CAN", "", "MIL-STD-1553"};
    for (unsigned kind = PortKindUart; kind <= PortKindMilStd1553; ++kind) {
        for (unsigned ch = 0; ch < GetChannelCount(kind); ++ch) {
            CKVX_String id;
            id.Format("%u", ch);
            CKVX_HdwPort* port = CreatePort(kind, this, instance, id);
            if (!port)
                continue;
            CKVX_String description;
            description.Format("%s %u", kNames[kind], ch);
            AddPortDescriptor(instance, port, ch, description);
        }
    }
    return 0;
}

unsigned CKVX_HdwKvxHaldenDevice::ProcessHardwareID(const CKVX_List<CKVX_String>& ids)
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
