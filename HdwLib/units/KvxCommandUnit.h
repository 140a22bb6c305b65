#pragma once
// What every command-protocol unit driver is made of besides its link base:
// the per-unit protocol state (CKVX_HdwKvxUnitInstance: the engine plus the
// control records of the unit's channels), the command builders, the event
// handlers and the tick. A driver derives from one of the two link adapters
// (CKVX_HdwKvxUsbCommandDevice for USB-only units, CKVX_HdwKvxDualCommandDevice
// for units also reached over Ethernet), each of which is its link base plus
// this class; so the driver's nested names (CKVX_HdwKvxHaldenDevice::CCommand,
// ::CArinc429RxPort, ::ProcessReception ...) come from here.
//
// The link and the clock come from the adapter: reception reads the link
// once per tick and feeds the engine; the time of every deadline is read
// once per tick (GetUnitTime) and passed down.
//
// Locking: everything here runs under the device lock of the instance (the
// tick takes it; client calls that attach commands take it themselves),
// except WaitAllCommandEchoes and the waits of Open and Close, which take and
// release it around each look.

#include <HdwLib/core/KvxList.h>
#include <HdwLib/core/KvxString.h>
#include <HdwLib/framework/HdwDevice.h>
#include <HdwLib/bus/HdwArinc429Message.h>
#include <HdwLib/bus/HdwArinc429OutLbloService.h>
#include <HdwLib/bus/HdwArinc429RxPort.h>
#include <HdwLib/bus/HdwArinc429TxPort.h>
#include <HdwLib/bus/HdwCanMessage.h>
#include <HdwLib/bus/HdwDiscreteInPort.h>
#include <HdwLib/bus/HdwDiscreteOutPort.h>
#include <HdwLib/bus/HdwI2cPort.h>
#include <HdwLib/bus/HdwI2cTransfer.h>
#include <HdwLib/bus/HdwSpiPort.h>
#include <HdwLib/bus/HdwSpiTransfer.h>
#include <HdwLib/bus/HdwUartPort.h>
#include <HdwLib/units/KvxChannelControl.h>
#include <HdwLib/units/KvxEventRoutes.h>
#include <HdwLib/units/KvxUnitClock.h>
#include <HdwLib/units/KvxUnitEngine.h>
#include <HdwLib/units/KvxUnitEvents.h>
#include <HdwLib/units/KvxUnitLink.h>
#include <HdwLib/units/KvxUnitProfile.h>

#include <atomic>
#include <cstdint>
#include <vector>

class CKVX_HdwKvxUartPort;
class CKVX_HdwKvxArinc429TxPort;
class CKVX_HdwKvxArinc429RxPort;
class CKVX_HdwKvxCanPort;
class CKVX_HdwKvxMilStd1553Port;
class CKVX_HdwKvxMilStd1553BcService;
class CKVX_HdwKvxMilStd1553RtService;
class CKVX_HdwKvxUartByteInBufferService;
class CKVX_HdwKvxUartByteOutBufferService;
class CKVX_HdwKvxArinc429InBufferService;
class CKVX_HdwKvxArinc429OutBufferService;
class CKVX_HdwKvxArinc429OutLbloService;
class CKVX_HdwKvxArinc429InLbloService;
class CKVX_HdwKvxArinc429ByteInBufferService;
class CKVX_HdwKvxArinc429ByteOutBufferService;
class CKVX_HdwKvxArinc429TxDataGeneratorService;
class CKVX_HdwKvxCanInBufferService;
class CKVX_HdwKvxCanOutBufferService;
class CKVX_HdwKvxCanByteInBufferService;
class CKVX_HdwKvxCanByteOutBufferService;
class CKVX_HdwKvxSignalService;
class CKVX_HdwKvxDiscreteInPort;
class CKVX_HdwKvxDiscreteOutPort;
class CKVX_HdwKvxDiscreteInService;
class CKVX_HdwKvxDiscreteOutService;
class CKVX_HdwKvxI2cPort;
class CKVX_HdwKvxSpiPort;
class CKVX_HdwKvxI2cMasterService;
class CKVX_HdwKvxSpiMasterService;

// The protocol state of one unit: the engine, the control records of its
// channels and the routes of the frame being dispatched. The adapters'
// CDeviceInstance classes are their link base's instance plus this.
class HDWLIB_EXPORT CKVX_HdwKvxUnitInstance : public CKVX_HdwKvxUnitEngine {
public:
    // `base`: the object-model instance this state belongs to (the adapter's
    // instance, whose other base it is).
    explicit CKVX_HdwKvxUnitInstance(CKVX_HdwDevice::CDeviceInstance& base);
    ~CKVX_HdwKvxUnitInstance() override;

    // Back to a fresh session: the queues, the receive machine and every
    // channel's control record (all channels off).
    virtual void Reset();
    // One control record per channel of each kind of `profile`.
    void SizeChannels(const CKVX_HdwKvxUnitProfile& profile);
    // The object-model instance this state belongs to (its port list, open flag).
    CKVX_HdwDevice::CDeviceInstance& GetDeviceInstanceBase() { return m_Base; }

    // What the unit's link lost, counted since the instance was made.
    class HDWLIB_EXPORT CLossCounters {
    public:
        uint64_t CrcErrors = 0; // frames dropped for a bad CRC
        uint64_t MalformedFrames = 0; // frames dropped for an event count or record length of 0
        uint64_t FailedFrames = 0; // frames lost with their events: dispatch failed or buffer full
        uint64_t StaleEchoes = 0; // echoes of an earlier session, dropped
        uint64_t EchoTimeouts = 0; // echoes that never came within the echo time-out
        uint64_t LostCommands = 0; // commands dropped with a frame the link refused
        // Bad frames in all (CRC, malformed, failed).
        uint64_t BadFrames() const { return CrcErrors + MalformedFrames + FailedFrames; }
        // Echoes lost in all (stale, timed out).
        uint64_t LostEchoes() const { return StaleEchoes + EchoTimeouts; }
    };
    // The counters, read under the device lock.
    CLossCounters GetLossCounters();

    // ---- unit time (each call takes the device lock itself)
    // 64-bit unit microseconds of the latest event, unwrapped; false before
    // the first event.
    bool GetLatestUnitTime(uint64_t& unitUs);
    // 64-bit unit time of a 32-bit event time stamp seen within the last 71
    // minutes (the TimeStamp of a buffered message or signal).
    uint64_t UnwrapUnitTime(uint64_t timeStamp);
    // Host monotonic (steady clock) and wall-clock (since 1970) microseconds
    // of unit time `unitUs`, drift-corrected; false until a reception has
    // paired the clocks.
    bool MapUnitTime(uint64_t unitUs, uint64_t& hostMonotonicUs, uint64_t& wallClockUs);
    // Unit microseconds per host microsecond as fitted (1 until it is).
    double GetUnitClockRate();
    // The host monotonic clock the mapping uses (steady clock, microseconds).
    static uint64_t HostMonotonicMicroseconds();

    // The unit core's clock (caller holds the device lock).
    CKVX_HdwKvxUnitClock Clock;
    // Unwrapped time of the event record being dispatched, and the host
    // time of the reception it came with.
    uint64_t RecordUnitTime = 0;
    uint64_t ReceptionHostUs = 0;
    // The echo whose time-out was counted last.
    CKVX_HdwKvxUnitEngine::CEchoWaiting OverdueCounted{0xFFFF, 0xFFFFFFFF};

    std::vector<CKVX_HdwKvxArinc429TxCtrlStatus> AtxCtrl;
    std::vector<CKVX_HdwKvxArinc429RxCtrlStatus> ArxCtrl;
    std::vector<CKVX_HdwKvxCanCtrlStatus> CanCtrl;
    std::vector<CKVX_HdwKvxUartCtrlStatus> UartCtrl;
    std::vector<CKVX_HdwKvxMilStd1553Config> MilStd1553Ctrl;
    // The port of each (port type, channel) while a frame's events are
    // handed out (ProcessEventPayload).
    CKVX_HdwEventRoutes Routes;
    // Reconnect state and the counts of the unit's outages.
    CKVX_HdwKvxReconnectState Reconnect;

private:
    CKVX_HdwDevice::CDeviceInstance& m_Base;
};

class HDWLIB_EXPORT CKVX_HdwKvxCommandUnit {
public:
    static constexpr uint8_t FrameStart = CKVX_HdwKvxUnitEngine::FrameStart;
    static constexpr unsigned EventBufferSize = CKVX_HdwKvxUnitEngine::EventBufferSize;
    static constexpr unsigned PayloadLimitUart = CKVX_HdwKvxUnitEngine::PayloadLimitUart;
    static constexpr unsigned PayloadLimitEthernet = CKVX_HdwKvxUnitEngine::PayloadLimitEthernet;
    static constexpr unsigned DefaultEchoTimeoutMs = 500;
    static constexpr unsigned ProbeTimeoutMs = 200;

    // The names the drivers carry.
    using CCommand = CKVX_HdwKvxUnitEngine::CCommand;
    using CCommandList = CKVX_HdwKvxUnitEngine::CCommandList;
    using CEchoWaiting = CKVX_HdwKvxUnitEngine::CEchoWaiting;
    using CCommandEchoList = CKVX_HdwKvxUnitEngine::CCommandEchoList;
    using CEventPosList = CKVX_HdwKvxUnitEngine::CEventPosList;
    using CByteList = CKVX_HdwKvxUnitEngine::CByteList;
    using CUnitProfile = CKVX_HdwKvxUnitProfile;

    using CEvent = CKVX_HdwKvxEvent;
    using CComEchoEvent = CKVX_HdwKvxComEchoEvent;
    using CCriticalFailureEvent = CKVX_HdwKvxCriticalFailureEvent;
    using CArinc429RxEvent = CKVX_HdwKvxArinc429RxEvent;
    using CArinc429TxEvent = CKVX_HdwKvxArinc429TxEvent;
    using CStatusEvent = CKVX_HdwKvxStatusEvent;
    using CCanRxEvent = CKVX_HdwKvxCanRxEvent;
    using CCanTxEvent = CKVX_HdwKvxCanTxEvent;
    using CMilStd1553Event = CKVX_HdwKvxMilStd1553Event;
    using CUartRxEvent = CKVX_HdwKvxUartRxEvent;
    using CUartTxEvent = CKVX_HdwKvxUartTxEvent;
    using CDiscreteInEvent = CKVX_HdwKvxDiscreteInEvent;
    using CDiscreteOutEvent = CKVX_HdwKvxDiscreteOutEvent;
    using CI2cResultEvent = CKVX_HdwKvxI2cResultEvent;
    using CSpiResultEvent = CKVX_HdwKvxSpiResultEvent;

    using CArinc429TxCtrlStatus = CKVX_HdwKvxArinc429TxCtrlStatus;
    using CArinc429RxCtrlStatus = CKVX_HdwKvxArinc429RxCtrlStatus;
    using CCanCtrlStatus = CKVX_HdwKvxCanCtrlStatus;
    using CUartCtrlStatus = CKVX_HdwKvxUartCtrlStatus;
    using CMilStd1553Config = CKVX_HdwKvxMilStd1553Config;

    using CUartPort = CKVX_HdwKvxUartPort;
    using CArinc429TxPort = CKVX_HdwKvxArinc429TxPort;
    using CArinc429RxPort = CKVX_HdwKvxArinc429RxPort;
    using CCanPort = CKVX_HdwKvxCanPort;
    using CMilStd1553Port = CKVX_HdwKvxMilStd1553Port;
    using CUartByteInBufferService = CKVX_HdwKvxUartByteInBufferService;
    using CUartByteOutBufferService = CKVX_HdwKvxUartByteOutBufferService;
    using CArinc429InBufferService = CKVX_HdwKvxArinc429InBufferService;
    using CArinc429OutBufferService = CKVX_HdwKvxArinc429OutBufferService;
    using CArinc429OutLbloService = CKVX_HdwKvxArinc429OutLbloService;
    using CArinc429InLbloService = CKVX_HdwKvxArinc429InLbloService;
    using CArinc429ByteInBufferService = CKVX_HdwKvxArinc429ByteInBufferService;
    using CArinc429ByteOutBufferService = CKVX_HdwKvxArinc429ByteOutBufferService;
    using CArinc429TxDataGeneratorService = CKVX_HdwKvxArinc429TxDataGeneratorService;
    using CCanInBufferService = CKVX_HdwKvxCanInBufferService;
    using CCanOutBufferService = CKVX_HdwKvxCanOutBufferService;
    using CCanByteInBufferService = CKVX_HdwKvxCanByteInBufferService;
    using CCanByteOutBufferService = CKVX_HdwKvxCanByteOutBufferService;
    using CMilStd1553BcService = CKVX_HdwKvxMilStd1553BcService;
    using CMilStd1553SingleRtService = CKVX_HdwKvxMilStd1553RtService;
    using CSignalService = CKVX_HdwKvxSignalService;
    using CDiscreteInPort = CKVX_HdwKvxDiscreteInPort;
    using CDiscreteOutPort = CKVX_HdwKvxDiscreteOutPort;
    using CDiscreteInService = CKVX_HdwKvxDiscreteInService;
    using CDiscreteOutService = CKVX_HdwKvxDiscreteOutService;
    using CI2cPort = CKVX_HdwKvxI2cPort;
    using CSpiPort = CKVX_HdwKvxSpiPort;
    using CI2cMasterService = CKVX_HdwKvxI2cMasterService;
    using CSpiMasterService = CKVX_HdwKvxSpiMasterService;

    enum t_EventType : unsigned {
        EventComEcho = KvxEventComEcho,
        EventCriticalFailure = KvxEventCriticalFailure,
        EventA429Rx = KvxEventA429Rx,
        EventA429Tx = KvxEventA429Tx,
        EventStatus = KvxEventStatus,
        EventCanRx = KvxEventCanRx,
        EventCanTx = KvxEventCanTx,
        EventMilStd1553 = KvxEventMilStd1553,
        EventUartRx = KvxEventUartRx,
        EventUartTx = KvxEventUartTx,
        EventDiscreteIn = KvxEventDiscreteIn,
        EventDiscreteOut = KvxEventDiscreteOut,
        EventI2cResult = KvxEventI2cResult,
        EventSpiResult = KvxEventSpiResult,
    };
    enum t_PortKind : unsigned {
        PortKindUart = KvxPortKindUart,
        PortKindArinc429Tx = KvxPortKindArinc429Tx,
        PortKindArinc429Rx = KvxPortKindArinc429Rx,
        PortKindCan = KvxPortKindCan,
        PortKindNone = KvxPortKindNone,
        PortKindMilStd1553 = KvxPortKindMilStd1553,
        PortKindDiscreteIn = KvxPortKindDiscreteIn,
        PortKindDiscreteOut = KvxPortKindDiscreteOut,
        PortKindI2c = KvxPortKindI2c,
        PortKindSpi = KvxPortKindSpi,
    };
    enum t_CommandKind : uint32_t {
        CmdSession = KvxCmdSession,
        CmdStatusRequest = KvxCmdStatusRequest,
        CmdSramWrite = KvxCmdSramWrite,
        CmdKeepAlive = KvxCmdKeepAlive,
        CmdAtxCtxCtrl = KvxCmdAtxCtxCtrl,
        CmdAtxCtxData = KvxCmdAtxCtxData,
        CmdAtxPush = KvxCmdAtxPush,
        CmdAtxCtxReset = KvxCmdAtxCtxReset,
        CmdAtxConfig = KvxCmdAtxConfig,
        CmdArxConfig = KvxCmdArxConfig,
        CmdUartTxPush = KvxCmdUartTxPush,
        CmdUartConfig = KvxCmdUartConfig,
        CmdCanConfig = KvxCmdCanConfig,
        CmdCanPush = KvxCmdCanPush,
        Cmd1553Config = KvxCmd1553Config,
        CmdDiscreteInConfig = KvxCmdDiscreteInConfig,
        CmdDiscreteOutConfig = KvxCmdDiscreteOutConfig,
        CmdDiscreteOutWrite = KvxCmdDiscreteOutWrite,
        CmdDiscreteOutPulse = KvxCmdDiscreteOutPulse,
        CmdDiscreteRead = KvxCmdDiscreteRead,
        CmdI2cConfig = KvxCmdI2cConfig,
        CmdSpiConfig = KvxCmdSpiConfig,
        CmdI2cTransfer = KvxCmdI2cTransfer,
        CmdSpiTransfer = KvxCmdSpiTransfer,
    };

    explicit CKVX_HdwKvxCommandUnit(const CKVX_HdwKvxUnitProfile& profile);
    virtual ~CKVX_HdwKvxCommandUnit();
    CKVX_HdwKvxCommandUnit(const CKVX_HdwKvxCommandUnit&) = delete;
    CKVX_HdwKvxCommandUnit& operator=(const CKVX_HdwKvxCommandUnit&) = delete;

    const CKVX_HdwKvxUnitProfile& GetUnitProfile() const { return m_Profile; }

    // ---- what the adapter provides (its link base and the object model)
    // The device this unit is (the adapter itself).
    virtual CKVX_HdwDevice& GetUnitDevice() = 0;
    // The link base's Open and Close of an instance.
    virtual unsigned UnitLinkOpen(unsigned instance) = 0;
    virtual unsigned UnitLinkClose(unsigned instance) = 0;
    // The protocol state of instance `instance`; null when there is none.
    virtual CKVX_HdwKvxUnitInstance* GetUnitInstance(unsigned instance) = 0;
    // The byte link of an instance over whichever transport it uses.
    virtual unsigned UnitLinkWrite(CKVX_HdwKvxUnitInstance* instance, uint8_t* data, unsigned count) = 0;
    virtual unsigned UnitLinkRead(
        CKVX_HdwKvxUnitInstance* instance, uint8_t* buffer, unsigned maxBytes, unsigned& bytesRead) = 0;
    virtual bool IsEthernetInstance(CKVX_HdwKvxUnitInstance* instance) = 0;
    // Closes an instance's link after a failed open.
    virtual void UnitLinkAbandon(CKVX_HdwKvxUnitInstance* instance) = 0;
    // Adds a port of a new instance to the device's descriptors.
    virtual void UnitAddPort(
        unsigned instance, CKVX_HdwPort* port, unsigned channel, const CKVX_String& description) = 0;
    // The probe used by enumeration, on a temporary instance on `portName`:
    // 0 when a unit of this kind answers there.
    virtual unsigned CheckUartLink(const CKVX_String& portName) = 0;
    // Milliseconds of the unit's deadlines (echo time-out, keep-alive),
    // read once per tick; the system tick count unless a test steps it.
    virtual uint64_t GetUnitTime();

    // ---- virtual operations added here, in interface order
    // Payload limit of one frame for this instance (1345 over Ethernet, 4000 otherwise).
    virtual unsigned GetPayloadLimit(CKVX_HdwKvxUnitInstance* instance);
    // Takes one event record of a received frame.
    virtual unsigned ProcessEventRecord(
        unsigned instance, unsigned type, unsigned subField, unsigned length, uint8_t* params);
    // Before the link closes: what is queued goes out, then the closing
    // session command.
    virtual unsigned OnClosing(unsigned instance);

    // CRC (the library's one 0x1021 table).
    void BuildCrc16Table();
    uint16_t CalcCRC16Word(uint16_t crc, uint8_t byte) const;
    uint16_t CalcCRC16(const uint8_t* bytes, unsigned count) const;

    // Command numbers 0, 1, 2 ... wrapping at 65535.
    uint16_t GetLastCommandNum(unsigned instance);
    uint16_t GetLastCommandNum(CKVX_HdwKvxUnitInstance* instance);

    // Appends one command record (header built here) to the instance's list.
    // 2 without an instance or for a record longer than 255 bytes.
    unsigned AttachCommand(CKVX_HdwKvxUnitInstance* instance, uint8_t code, const uint8_t* params, unsigned paramCount);
    unsigned AttachCommand(unsigned instance, uint8_t code, const uint8_t* params, unsigned paramCount);
    unsigned AttachSessionCommand(unsigned instance, unsigned char close);
    unsigned AttachSessionCommand(CKVX_HdwKvxUnitInstance* instance, unsigned char close);
    unsigned AttachStatusRequestCommand(unsigned instance, unsigned channel, unsigned kind);

    // Command builders: each appends its record(s) to the instance's command
    // list (sent by the next ProcessCommandList). 2, attaching nothing, for a
    // parameter the unit cannot represent, a channel it does not have or a
    // command it does not take; the push builders attach nothing and answer 0
    // for no items.
    unsigned AttachKeepAliveCommand(unsigned instance);
    unsigned AttachSramWriteCommand(
        unsigned instance, unsigned channel, uint32_t startAddress, const uint16_t* words, unsigned count);
    // Code 16: one label's transmit control (2 for a period outside 1..1024).
    unsigned AttachAtxCtxCtrlCommand(
        unsigned instance, unsigned channel, const CKVX_HdwArinc429OutLbloService::CLabelCtrl& ctrl);
    unsigned AttachAtxCtxDataCommand(unsigned instance, unsigned channel, const CKVX_HdwArinc429Message& message);
    unsigned AttachAtxPushCommand(
        unsigned instance, unsigned channel, const CKVX_HdwArinc429Message* messages, unsigned count);
    unsigned AttachAtxCtxResetCommand(unsigned instance, unsigned channel);
    // From the port's parameters and the instance's AtxCtrl[channel].
    unsigned AttachAtxConfigCommand(
        unsigned instance, unsigned channel, const CKVX_HdwArinc429TxPort::CParameters& params);
    // From the port's parameters and a table of 256 label flags (null: all zero).
    unsigned AttachArxConfigCommand(unsigned instance, unsigned channel,
        const CKVX_HdwArinc429RxPort::CParameters& params, bool enable, const uint8_t* labelFlags);
    unsigned AttachUartTxPushCommand(unsigned instance, unsigned channel, const uint8_t* data, unsigned count);
    unsigned AttachUartConfigCommand(unsigned instance, unsigned channel, const CKVX_HdwUartPort::CParameters& params);
    // From the instance's CanCtrl[channel].
    unsigned AttachCanConfigCommand(unsigned instance, unsigned channel);
    unsigned AttachCanPushCommand(
        unsigned instance, unsigned channel, const CKVX_HdwCanMessage* messages, unsigned count);
    // From the instance's MilStd1553Ctrl[channel].
    unsigned Attach1553ConfigCommand(unsigned instance, unsigned channel);
    // Discrete banks (KvxDiscreteCommands.cpp): code base + bank, reporting
    // on or off, from the port's parameters.
    unsigned AttachDiscreteInConfigCommand(
        unsigned instance, unsigned bank, const CKVX_HdwDiscreteInPort::CParameters& params, bool enable);
    // Code base + bank: the bank driven (InitialState) or off.
    unsigned AttachDiscreteOutConfigCommand(
        unsigned instance, unsigned bank, const CKVX_HdwDiscreteOutPort::CParameters& params, bool enable);
    // Operations of the output write (code 44).
    enum t_DiscreteWrite : unsigned { DiscreteWrite = 0, DiscreteSet = 1, DiscreteClear = 2, DiscreteToggle = 3 };
    unsigned AttachDiscreteOutWriteCommand(
        unsigned instance, unsigned bank, unsigned operation, uint32_t mask, uint32_t value);
    // Code 45: lines in mask inverted for lengthUs (10..10,000,000).
    unsigned AttachDiscreteOutPulseCommand(unsigned instance, unsigned bank, uint32_t mask, uint32_t lengthUs);
    // Code 46: one event per bank asked (bit k = bank k), inputs first.
    unsigned AttachDiscreteReadCommand(unsigned instance, uint8_t inBanks, uint8_t outBanks);
    // I2C and SPI masters (KvxI2cSpiCommands.cpp): configuration from the
    // port's parameters with the master on or off; one transfer record each
    // (2 above 240 bytes, or for what the record cannot carry).
    unsigned AttachI2cConfigCommand(
        unsigned instance, unsigned channel, const CKVX_HdwI2cPort::CParameters& params, bool enable);
    // `divider`: SCK = 30 MHz / (divider + 1).
    unsigned AttachSpiConfigCommand(
        unsigned instance, unsigned channel, const CKVX_HdwSpiPort::CParameters& params, uint16_t divider, bool enable);
    unsigned AttachI2cTransferCommand(
        unsigned instance, unsigned channel, uint32_t wireTag, const CKVX_HdwI2cTransfer& transfer);
    unsigned AttachSpiTransferCommand(
        unsigned instance, unsigned channel, uint32_t wireTag, uint8_t chipSelect, const CKVX_HdwSpiTransfer& transfer);

    // Rate conversions (0, or 2 when the rate cannot be represented).
    static unsigned ExtractArinc429TxBaudRateParameters(
        unsigned rate, unsigned char& highSpeed, unsigned short& highDivider, unsigned short& lowDivider);
    static unsigned ExtractCanTimingParameters(unsigned rate, double samplePoint, unsigned char& prescalerIndex,
        unsigned char& segment1, unsigned char& segment2);
    static unsigned ExtractUartBaudRateParameters(
        unsigned rate, unsigned char& oversamplingIndex, unsigned short& divider);
    // The ARINC 429 word of a command or event record, and back.
    static uint32_t PackArinc429Word(const CKVX_HdwArinc429Message& message);
    static void UnpackArinc429Word(uint32_t word, CKVX_HdwArinc429Message& message);

    // Event handlers, one per event type: decode the record into its event
    // object and offer it to the instance's open ports (ProcessEventHandlers).
    unsigned ProcessEventCriticalFailure(unsigned instance, unsigned subField, unsigned length, uint8_t* params);
    unsigned ProcessEventA429Rx(unsigned instance, unsigned subField, unsigned length, uint8_t* params);
    unsigned ProcessEventA429Tx(unsigned instance, unsigned subField, unsigned length, uint8_t* params);
    unsigned ProcessEventStatus(unsigned instance, unsigned subField, unsigned length, uint8_t* params);
    unsigned ProcessEventCanRx(unsigned instance, unsigned subField, unsigned length, uint8_t* params);
    unsigned ProcessEventCanTx(unsigned instance, unsigned subField, unsigned length, uint8_t* params);
    unsigned ProcessEventMilStd1553(unsigned instance, unsigned subField, unsigned length, uint8_t* params);
    unsigned ProcessEventUartRx(unsigned instance, unsigned subField, unsigned length, uint8_t* params);
    unsigned ProcessEventUartTx(unsigned instance, unsigned subField, unsigned length, uint8_t* params);
    unsigned ProcessEventDiscreteIn(unsigned instance, unsigned subField, unsigned length, uint8_t* params);
    unsigned ProcessEventDiscreteOut(unsigned instance, unsigned subField, unsigned length, uint8_t* params);
    unsigned ProcessEventI2cResult(unsigned instance, unsigned subField, unsigned length, uint8_t* params);
    unsigned ProcessEventSpiResult(unsigned instance, unsigned subField, unsigned length, uint8_t* params);

    // Sends the next frame of queued commands when none is in flight.
    unsigned ProcessCommandList(unsigned instance);
    unsigned ProcessCommandList(CKVX_HdwKvxUnitInstance* instance);
    // Reads what waits on the link and dispatches every complete frame.
    unsigned ProcessReception(unsigned instance);
    unsigned ProcessEventPayload(unsigned instance);
    unsigned ProcessEventComEcho(unsigned instance, unsigned subField, unsigned length, uint8_t* params);
    unsigned WaitAllCommandEchoes(unsigned instance, unsigned timeoutMs);
    unsigned ProcessUartEchoReception(CKVX_HdwKvxUnitInstance* instance);

    // ---- the adapters' overrides of the link base, written once
    // Open of an instance (0 when it is open already): the link, then a
    // fresh session. Close of an instance when no port of it is open: what
    // is queued, the closing session command, then the link.
    unsigned OpenUnit(unsigned instance);
    unsigned CloseUnit(unsigned instance);
    // The rest of Open once the link base has opened the link: a fresh
    // session (close, then open), its echoes awaited; 14, with the link
    // closed again, when the unit does not answer.
    unsigned OpenSession(unsigned instance);
    unsigned UnitTickStart(unsigned instance);
    unsigned UnitTickEnd(unsigned instance);
    // The serial probe on a temporary instance whose link is set; the
    // adapter opens and closes the link around it.
    unsigned ProbeUnit(CKVX_HdwKvxUnitInstance* tmp);

    // ---- what the drivers share
    unsigned ProfileChannelCount(unsigned kind) const { return m_Profile.ChannelCount(kind); }
    // The port class of `kind`; null for kinds without one.
    CKVX_HdwPort* CreateProfilePort(unsigned kind, CKVX_HdwObject* parent, unsigned index, const CKVX_String& name);
    // One port per channel, in channel-map order, made by CreatePort and
    // named by its channel number within its kind.
    unsigned CreateProfilePorts(unsigned instance);
    // The port class of `kind` for channel id `name` of instance `index`;
    // null for kind 4, the I2C and SPI kinds and the kinds the unit lacks.
    virtual CKVX_HdwPort* CreatePort(unsigned kind, CKVX_HdwObject* parent, unsigned index, const CKVX_String& name);
    // The unit's number on its bus from the hardware identifier strings
    // (HardwareIdNumber).
    virtual unsigned ProcessHardwareID(const CKVX_List<CKVX_String>& ids);
    // After a lost unit's link opened again: 0 when the same unit is behind
    // it, 14 when another one is. Base: 0 (a serial link's identity is its
    // device name).
    virtual unsigned UnitLinkVerify(unsigned instance);
    // Channels of port kind `kind` on this unit.
    unsigned GetChannelCount(unsigned kind) const { return m_Profile.ChannelCount(kind); }
    // The unit's number on its bus from the hardware identifier strings:
    // with exactly two strings, the last two characters of the second
    // (upper-cased, blanks trimmed) as a decimal number; 0 otherwise.
    static unsigned HardwareIdNumber(const CKVX_List<CKVX_String>& ids);

    // Both may change while the timer runs: the tick reads them as they are.
    unsigned GetEchoTimeout() const { return m_EchoTimeout.load(std::memory_order_relaxed); }
    void SetEchoTimeout(unsigned ms) { m_EchoTimeout.store(ms, std::memory_order_relaxed); }
    unsigned GetSessionWatchdog() const { return m_SessionWatchdog.load(std::memory_order_relaxed); }
    void SetSessionWatchdog(unsigned ms) { m_SessionWatchdog.store(ms, std::memory_order_relaxed); }

    // ---- reconnect (KvxUnitLink.cpp)
    // The manager's Reconnect parameter.
    bool IsReconnectEnabled() const;
    // Where instance `instance`'s link stands and its counts: 0, or 2 for
    // no such instance.
    unsigned GetUnitLinkStatus(unsigned instance, CKVX_HdwKvxUnitLinkStatus& status);
    // Called by the tick before its passes, without any lock: starts an
    // attempt to open the link of each lost unit whose back-off has passed,
    // and starts a fresh session on each link an attempt has opened.
    void ReconnectLostUnits();
    // Waits for every running attempt to end (the device's destructor).
    void CancelReconnectAttempts();

protected:
    // A failure of the tick on instance `instance` (lock held): with
    // reconnect on and ports open, the unit is taken as lost (true) and the
    // tick goes on without aborting its services.
    bool TakeOverLoss(unsigned instance, CKVX_HdwKvxUnitInstance* inst, uint64_t nowMs);
    // True when the unit is lost; its retrying is then held off until
    // OpenLostUnit has run.
    bool HoldLostUnit(unsigned instance, CKVX_HdwKvxUnitInstance* inst);
    // Open by hand of a lost unit: a link opened anew (the old one may still
    // hold the vanished device) and a fresh session; when it answers, the
    // ports kept open are configured again and the unit is back, otherwise
    // the retrying goes on.
    unsigned OpenLostUnit(unsigned instance, CKVX_HdwKvxUnitInstance* inst);
    // The last port of a lost unit closed: retrying stops and its link is let go.
    void EndOutage(unsigned instance, CKVX_HdwKvxUnitInstance* inst);
    // On the attempt's thread: the old link let go, the same one opened
    // again and checked to be the same unit; 0 when it is.
    unsigned AttemptLink(unsigned instance, CKVX_HdwKvxUnitInstance* inst);
    // In the tick, with the attempt's result: a fresh session on the opened
    // link, or the next attempt after the back-off.
    void FinishAttempt(unsigned instance, CKVX_HdwKvxUnitInstance* inst, unsigned rc);
    // The application's turn (gate held): a running attempt is waited for
    // and its result dropped; the unit is lost again, its link closed.
    void CancelAttempt(unsigned instance, CKVX_HdwKvxUnitInstance* inst);
    // The tick's start while the fresh session after a loss awaits its echo.
    unsigned ResyncTick(unsigned instance, CKVX_HdwKvxUnitInstance* inst, uint64_t nowMs);
    // The session is back: every open channel's configuration again.
    void RestoreUnit(unsigned instance, CKVX_HdwKvxUnitInstance* inst, uint64_t nowMs);
    // An attempt that did not bring the unit back (lock held): counted, the
    // unit lost again with its link closed, the next attempt after the
    // back-off, doubled first when `backOff`.
    void ScheduleNextAttempt(CKVX_HdwKvxUnitInstance* inst, uint64_t nowMs, bool backOff);
    // Sends a closing and an opening session command in one frame; echoes
    // awaited from an earlier sending stay awaited.
    unsigned SendSessionStart(CKVX_HdwKvxUnitInstance* inst);
    // Builds the next frame and writes it, stamping its echoes `nowMs`.
    unsigned SendNextFrame(CKVX_HdwKvxUnitInstance* inst, uint64_t nowMs);
    // Feeds a run of received bytes and dispatches every frame that passes
    // its CRC: 0, or 14 on an overflow or a failed event handler; then the
    // bytes after the failed frame wait in the instance's unread input.
    unsigned ReceiveBytes(unsigned instance, CKVX_HdwKvxUnitInstance* inst, const uint8_t* data, unsigned count);
    // ProcessReception's reads and frames, the routes table left to it.
    unsigned ReadAndReceive(unsigned instance, CKVX_HdwKvxUnitInstance* inst);
    // Reads what waits on the serial link into the receive machine and calls
    // onFrame(crc ok) for each complete frame; a result >= 0 of it ends the
    // reading with that value. 22 when the bytes ran out, 14 on a link failure.
    template <class TOnFrame>
    unsigned ReadProbeFrames(CKVX_HdwKvxUnitInstance* inst, TOnFrame&& onFrame);
    unsigned ProbeByStatusShape(CKVX_HdwKvxUnitInstance* tmp);
    // The common steps of the event handlers: channel text, ExtractData, then
    // ProcessEventHandlers for the ports of `portType` on that channel.
    template <class TEvent>
    unsigned DecodeAndDispatch(
        unsigned instance, unsigned portType, unsigned subField, unsigned length, uint8_t* params, TEvent& event);
    unsigned DispatchEvent(unsigned instance, unsigned portType, unsigned channel, CKVX_HdwKvxEvent* event);
    // The instance whose events ProcessEventPayload is dispatching, without
    // the virtual lookup per event; any other one is looked up.
    CKVX_HdwKvxUnitInstance* PassInstance(unsigned instance)
    {
        return instance == m_PassIndex ? m_PassInstance : GetUnitInstance(instance);
    }

    uint16_t m_Crc16Table[256] = {};
    std::atomic<unsigned> m_EchoTimeout{DefaultEchoTimeoutMs};
    std::atomic<unsigned> m_SessionWatchdog{0};
    // 2-bit link selector written into the session command.
    unsigned m_LinkSelector = 0;
    CKVX_HdwKvxUnitProfile m_Profile;
    // Set for the length of one ProcessEventPayload pass (device lock held).
    unsigned m_PassIndex = ~0u;
    CKVX_HdwKvxUnitInstance* m_PassInstance = nullptr;
    // Set during ProcessReception: its frames share one routes table.
    bool m_RoutesKept = false;
};
