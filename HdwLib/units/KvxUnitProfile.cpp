// The unit models, one row each.
#include <HdwLib/units/KvxUnitProfile.h>

#include <initializer_list>

namespace {
constexpr uint32_t kEvents(std::initializer_list<unsigned> types)
{
    uint32_t mask = 0;
    for (unsigned t : types)
        mask |= 1u << t;
    return mask;
}

CKVX_HdwKvxUnitProfile Halden()
{
    CKVX_HdwKvxUnitProfile p;
    p.DeviceCode = 3;
    p.ModelName = "Halden";
    p.UsbDescription = "Kalvionix Halden Link";
    p.UsbVendorId = "5A3C";
    p.UsbProductId = "000A";
    p.UdpPort = 55003;
    p.LinkBaudRate = 6000000;
    p.UartChannels = 2;
    p.AtxChannels = 4;
    p.ArxChannels = 4;
    p.CanChannels = 2;
    p.MilStd1553Channels = 2;
    p.Commands = KvxArinc429Commands | KvxCmdSramWrite | KvxCmdUartTxPush | KvxCmdUartConfig | KvxCmdCanConfig |
        KvxCmdCanPush | KvxCmd1553Config;
    p.Events = kEvents({KvxEventComEcho, KvxEventCriticalFailure, KvxEventA429Rx, KvxEventA429Tx, KvxEventStatus,
        KvxEventCanRx, KvxEventCanTx, KvxEventMilStd1553, KvxEventUartRx, KvxEventUartTx});
    p.EthernetPayloadLimit = 1345;
    return p;
}

CKVX_HdwKvxUnitProfile Bexley()
{
    CKVX_HdwKvxUnitProfile p;
    p.DeviceCode = 4;
    p.ModelName = "Bexley";
    p.UsbDescription = "Kalvionix Bexley Link";
    p.UsbVendorId = "5A3C";
    p.UsbProductId = "0013";
    p.LinkBaudRate = 3000000;
    p.CanChannels = 4;
    p.CanConfigBase = 48;
    p.CanPushBase = 56;
    p.Commands = KvxCanCommands;
    p.Events = kEvents({KvxEventComEcho, KvxEventCanRx, KvxEventCanTx, KvxEventStatus});
    p.ProbeByStatus = true;
    return p;
}

CKVX_HdwKvxUnitProfile Arvane()
{
    CKVX_HdwKvxUnitProfile p;
    p.DeviceCode = 6;
    p.ModelName = "Arvane";
    p.UsbDescription = "Kalvionix Arvane Link";
    p.UsbVendorId = "5A3C";
    p.UsbProductId = "0014";
    p.UdpPort = 55006;
    p.LinkBaudRate = 8000000;
    p.AtxChannels = 8;
    p.ArxChannels = 8;
    p.AtxConfigBase = 64;
    p.ArxConfigBase = 72;
    p.Commands = KvxArinc429Commands;
    p.Events = kEvents({KvxEventComEcho, KvxEventA429Rx, KvxEventA429Tx, KvxEventStatus});
    // Full frames over Ethernet too.
    p.EthernetPayloadLimit = 4000;
    p.ProbeByStatus = true;
    return p;
}

CKVX_HdwKvxUnitProfile HaldenSmall()
{
    CKVX_HdwKvxUnitProfile p;
    p.DeviceCode = 8;
    p.ModelName = "Halden Small";
    p.UsbDescription = "HDS Port";
    p.UsbVendorId = "5A3C";
    p.UsbProductId = "0019";
    p.LinkBaudRate = 6000000;
    p.AtxChannels = 2;
    p.ArxChannels = 2;
    p.CanChannels = 1;
    p.Commands = KvxArinc429Commands | KvxCmdCanConfig | KvxCmdCanPush;
    p.Events = kEvents({KvxEventComEcho, KvxEventA429Rx, KvxEventA429Tx, KvxEventStatus, KvxEventCanRx, KvxEventCanTx});
    p.ProbeByStatus = true;
    return p;
}

CKVX_HdwKvxUnitProfile Pellor()
{
    CKVX_HdwKvxUnitProfile p;
    p.DeviceCode = 10;
    p.ModelName = "Pellor";
    p.UsbDescription = "USB Serial Port";
    p.UsbVendorId = "0403";
    p.UsbProductId = "6010";
    p.UdpPort = 55010;
    p.LinkBaudRate = 8000000;
    p.AtxChannels = 16;
    p.ArxChannels = 16;
    p.AtxConfigBase = 80;
    p.ArxConfigBase = 96;
    p.Commands = KvxArinc429Commands | KvxCmdKeepAlive;
    p.Events = kEvents({KvxEventComEcho, KvxEventCriticalFailure, KvxEventA429Rx, KvxEventA429Tx, KvxEventStatus});
    p.EthernetPayloadLimit = 1345;
    p.KeepAliveIdleMs = 250;
    p.ProbeByStatus = true;
    p.Arinc429LabelInput = true;
    return p;
}

CKVX_HdwKvxUnitProfile Quillan()
{
    CKVX_HdwKvxUnitProfile p;
    p.DeviceCode = 11;
    p.ModelName = "Quillan";
    p.UsbDescription = "USB Serial Port";
    p.UsbVendorId = "0403";
    p.UsbProductId = "6014";
    p.LinkBaudRate = 6000000;
    p.CanChannels = 2;
    p.Commands = KvxCanCommands;
    p.Events = kEvents({KvxEventComEcho, KvxEventCanRx, KvxEventCanTx, KvxEventStatus});
    p.ProbeByStatus = true;
    p.CanByteServices = true;
    return p;
}

CKVX_HdwKvxUnitProfile Mirrow()
{
    CKVX_HdwKvxUnitProfile p;
    p.DeviceCode = 12;
    p.ModelName = "Mirrow";
    p.UsbDescription = "USB Serial Port";
    p.UsbVendorId = "0403";
    p.UsbProductId = "6014";
    p.LinkBaudRate = 8000000;
    p.AtxChannels = 2;
    p.ArxChannels = 2;
    p.Commands = KvxArinc429Commands;
    p.Events = kEvents({KvxEventComEcho, KvxEventA429Rx, KvxEventA429Tx, KvxEventStatus});
    p.ProbeByStatus = true;
    return p;
}

CKVX_HdwKvxUnitProfile Travin()
{
    CKVX_HdwKvxUnitProfile p;
    p.DeviceCode = 5;
    p.ModelName = "Travin";
    p.UsbDescription = "Kalvionix Travin Link";
    p.UsbVendorId = "5A3C";
    p.UsbProductId = "0015";
    p.LinkBaudRate = 3000000;
    p.DiscreteInBanks = 4;
    p.DiscreteOutBanks = 4;
    p.LinesPerBank = 8;
    p.DiscreteInConfigBase = 36;
    p.DiscreteOutConfigBase = 40;
    p.Commands = KvxDiscreteCommands;
    p.Events = kEvents({KvxEventComEcho, KvxEventDiscreteIn, KvxEventDiscreteOut});
    p.ReconnectProbe = KvxCmdSession;
    return p;
}

// Two I2C and two SPI masters; transfers as commands, results as events.
CKVX_HdwKvxUnitProfile Wendal()
{
    CKVX_HdwKvxUnitProfile p;
    p.DeviceCode = 7;
    p.ModelName = "Wendal";
    p.UsbDescription = "Kalvionix Wendal Link";
    p.UsbVendorId = "5A3C";
    p.UsbProductId = "0017";
    p.LinkBaudRate = 6000000;
    p.I2cChannels = 2;
    p.SpiChannels = 2;
    p.Commands = KvxCmdSession | KvxCmdI2cConfig | KvxCmdSpiConfig | KvxCmdI2cTransfer | KvxCmdSpiTransfer;
    p.Events = kEvents({KvxEventComEcho, KvxEventI2cResult, KvxEventSpiResult});
    p.ReconnectProbe = KvxCmdSession;
    return p;
}

const CKVX_HdwKvxUnitProfile kProfiles[] = {
    Halden(), Bexley(), Arvane(), HaldenSmall(), Pellor(), Quillan(), Mirrow(), Travin(), Wendal()};
} // namespace

unsigned CKVX_HdwKvxUnitProfile::ChannelCount(unsigned kind) const
{
    switch (kind) {
    case KvxPortKindUart: return UartChannels;
    case KvxPortKindArinc429Tx: return AtxChannels;
    case KvxPortKindArinc429Rx: return ArxChannels;
    case KvxPortKindCan: return CanChannels;
    case KvxPortKindMilStd1553: return MilStd1553Channels;
    case KvxPortKindDiscreteIn: return DiscreteInBanks;
    case KvxPortKindDiscreteOut: return DiscreteOutBanks;
    case KvxPortKindI2c: return I2cChannels;
    case KvxPortKindSpi: return SpiChannels;
    default: return 0;
    }
}

const CKVX_HdwKvxUnitProfile* CKVX_HdwKvxUnitProfile::Of(unsigned deviceCode)
{
    for (const CKVX_HdwKvxUnitProfile& p : kProfiles)
        if (p.DeviceCode == deviceCode)
            return &p;
    return nullptr;
}
