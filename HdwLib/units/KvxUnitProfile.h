#pragma once
// What differs between the command-protocol units, one row per unit model:
// identity, links, channels per kind, command codes and sets, the event
// types the unit sends, payload limits and how the serial probe tells the
// unit apart. The drivers are their row plus the link base they need.

#include <HdwLib/core/KvxObject.h>

#include <cstdint>

// Event type numbers (bits 7..3 of an event record's type byte).
enum t_KvxEventType : unsigned {
    KvxEventComEcho = 0,
    KvxEventCriticalFailure = 1,
    KvxEventA429Rx = 2,
    KvxEventA429Tx = 3,
    KvxEventStatus = 5,
    KvxEventCanRx = 6,
    KvxEventCanTx = 7,
    KvxEventMilStd1553 = 8,
    KvxEventUartRx = 9,
    KvxEventUartTx = 10,
    KvxEventDiscreteIn = 11,
    KvxEventDiscreteOut = 12,
    KvxEventI2cResult = 13,
    KvxEventSpiResult = 14,
};

// Port kinds of the channel maps.
enum t_KvxPortKind : unsigned {
    KvxPortKindUart = 0,
    KvxPortKindArinc429Tx = 1,
    KvxPortKindArinc429Rx = 2,
    KvxPortKindCan = 3,
    KvxPortKindNone = 4,
    KvxPortKindMilStd1553 = 5,
    KvxPortKindDiscreteIn = 6,
    KvxPortKindDiscreteOut = 7,
    KvxPortKindI2c = 8,
    KvxPortKindSpi = 9,
    KvxPortKindCount = 10,
};

// Command kinds, for a unit's mask of the commands it accepts.
enum t_KvxCommandKind : uint32_t {
    KvxCmdSession = 1u << 0,
    KvxCmdStatusRequest = 1u << 1,
    KvxCmdSramWrite = 1u << 2,
    KvxCmdKeepAlive = 1u << 3,
    KvxCmdAtxCtxCtrl = 1u << 4,
    KvxCmdAtxCtxData = 1u << 5,
    KvxCmdAtxPush = 1u << 6,
    KvxCmdAtxCtxReset = 1u << 7,
    KvxCmdAtxConfig = 1u << 8,
    KvxCmdArxConfig = 1u << 9,
    KvxCmdUartTxPush = 1u << 10,
    KvxCmdUartConfig = 1u << 11,
    KvxCmdCanConfig = 1u << 12,
    KvxCmdCanPush = 1u << 13,
    KvxCmd1553Config = 1u << 14,
    KvxCmdDiscreteInConfig = 1u << 15,
    KvxCmdDiscreteOutConfig = 1u << 16,
    KvxCmdDiscreteOutWrite = 1u << 17,
    KvxCmdDiscreteOutPulse = 1u << 18,
    KvxCmdDiscreteRead = 1u << 19,
    KvxCmdI2cConfig = 1u << 20,
    KvxCmdSpiConfig = 1u << 21,
    KvxCmdI2cTransfer = 1u << 22,
    KvxCmdSpiTransfer = 1u << 23,
};

class HDWLIB_EXPORT CKVX_HdwKvxUnitProfile : public CKVX_Object {
public:
    // Identity and links.
    unsigned DeviceCode = 0;
    const char* Manufacturer = "Kalvionix Engineering";
    const char* ModelName = "";
    const char* UsbDescription = "";
    const char* UsbVendorId = "";
    const char* UsbProductId = "";
    unsigned short UdpPort = 0; // 0: no Ethernet link
    unsigned LinkBaudRate = 6000000; // bit/s over the USB-UART bridge, 8 data bits
    unsigned LinkTimeoutMs = 500;
    unsigned EchoTimeoutMs = 500;
    // Channels per kind.
    unsigned UartChannels = 0;
    unsigned AtxChannels = 0;
    unsigned ArxChannels = 0;
    unsigned CanChannels = 0;
    unsigned MilStd1553Channels = 0;
    unsigned DiscreteInBanks = 0;
    unsigned DiscreteOutBanks = 0;
    unsigned LinesPerBank = 8; // lines of each discrete bank (1..32)
    unsigned I2cChannels = 0;
    unsigned SpiChannels = 0;
    // Base codes of the per-channel commands (code = base + channel).
    uint8_t AtxConfigBase = 20;
    uint8_t ArxConfigBase = 24;
    uint8_t UartConfigBase = 34;
    uint8_t CanConfigBase = 48;
    uint8_t CanPushBase = 50;
    uint8_t MilStd1553ConfigBase = 52;
    uint8_t DiscreteInConfigBase = 36;
    uint8_t DiscreteOutConfigBase = 40;
    uint8_t I2cConfigBase = 112;
    uint8_t SpiConfigBase = 114;
    uint8_t I2cTransferCode = 116;
    uint8_t SpiTransferCode = 117;
    // Commands the unit accepts (t_KvxCommandKind bits); a builder asked for
    // any other answers 2 and attaches nothing.
    uint32_t Commands = 0;
    // Event types the unit sends (bit per type); a record of any other type
    // ends the frame's processing with 11.
    uint32_t Events = 1u << KvxEventComEcho;
    // Payload limit over Ethernet (1345, or 4000 for a unit that takes full
    // frames there too).
    unsigned EthernetPayloadLimit = 1345;
    // Keep-alive (code 4): sent when the instance has sent nothing for this
    // long (ms); 0: never.
    unsigned KeepAliveIdleMs = 0;
    // The serial probe also asks for a status answer and recognises the unit
    // by its shape (units that share their USB identity).
    bool ProbeByStatus = false;
    // The command an idle unit is sent with the manager's reconnect on, so
    // that its echo shows it is still there: KvxCmdStatusRequest (an empty
    // request) or KvxCmdSession (a closing session command, harmless to a
    // running unit) for a unit without the status request.
    uint32_t ReconnectProbe = KvxCmdStatusRequest;
    // The ARINC 429 receivers offer label-oriented input (service type 6).
    bool Arinc429LabelInput = false;
    // CAN ports take the byte-stream services (types 2 and 3).
    bool CanByteServices = false;

    // Channels of port kind `kind` (0 for kind 4 and unknown kinds).
    unsigned ChannelCount(unsigned kind) const;

    // The row of unit model `deviceCode` (3 Halden, 4 Bexley, 6 Arvane, 8
    // Halden Small, 10 Pellor, 11 Quillan, 12 Mirrow, 5 Travin, 7 Wendal);
    // null for another code.
    static const CKVX_HdwKvxUnitProfile* Of(unsigned deviceCode);
};

// The command sets of the ARINC 429 units and of the CAN units.
inline constexpr uint32_t KvxArinc429Commands = KvxCmdSession | KvxCmdStatusRequest | KvxCmdAtxCtxCtrl |
    KvxCmdAtxCtxData | KvxCmdAtxPush | KvxCmdAtxCtxReset | KvxCmdAtxConfig | KvxCmdArxConfig;
inline constexpr uint32_t KvxCanCommands = KvxCmdSession | KvxCmdStatusRequest | KvxCmdCanConfig | KvxCmdCanPush;
// The command set of the discrete I/O units.
inline constexpr uint32_t KvxDiscreteCommands = KvxCmdSession | KvxCmdDiscreteInConfig | KvxCmdDiscreteOutConfig |
    KvxCmdDiscreteOutWrite | KvxCmdDiscreteOutPulse | KvxCmdDiscreteRead;
