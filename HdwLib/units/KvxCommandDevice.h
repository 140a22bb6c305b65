#pragma once
// The command/echo/event protocol that every command-protocol unit speaks
// over its byte link, written once for all unit drivers:
//
// - host frame: 0xA5, u16 payload length N, N bytes of command records, CRC-16
//   over the start byte through the last record (low byte first);
// - command record: length (this byte included), code | 0x80, u16 command
//   number, parameters;
// - unit frame: 0xA5, 12-bit length, 12-bit event count E (0 is invalid), E
//   event records (length L of what follows, type byte: type << 3 | sub-field,
//   parameters), CRC-16 over all of it;
// - CRC-16: polynomial 0x1021, initial 0xFFFF, no reflection, no final XOR.
//
// The host queues commands per unit, packs as many as fit (a payload limit
// per transport) into one frame per tick, keeps at most one frame in flight
// and waits for the echo of each of its commands; a receive state machine
// finds the unit's frames in the byte stream, possibly spread over ticks.
//
// Each unit driver derives from CKVX_HdwKvxCommandDevice<its link base> (the
// dual-link base for units reachable over USB-UART and Ethernet, the USB-UART
// base for the others), so that its class carries its own copy of the nested
// types and operations (CKVX_HdwKvxHaldenDevice::CCommand, ::ProcessReception
// ...) while the code exists once.
//
// Locking: everything here runs under the device lock of the instance (the
// tick takes it; client calls that attach commands take it themselves), except
// WaitAllCommandEchoes, which takes and releases it around each look.

#include <HdwLib/core/KvxList.h>
#include <HdwLib/core/KvxString.h>
#include <HdwLib/framework/HdwEvent.h>
#include <HdwLib/framework/HdwTimer.h>
#include <HdwLib/links/HdwFtdiUartBridgedDevice.h>
#include <HdwLib/links/HdwHoeFtdiUartBridgedDevice.h>
#include <HdwLib/bus/HdwArinc429Message.h>
#include <HdwLib/bus/HdwArinc429OutLbloService.h>
#include <HdwLib/bus/HdwArinc429RxPort.h>
#include <HdwLib/bus/HdwArinc429TxPort.h>
#include <HdwLib/bus/HdwCanMessage.h>
#include <HdwLib/bus/HdwCanPort.h>
#include <HdwLib/bus/HdwUartPort.h>
#include <HdwLib/units/KvxEventRoutes.h>

#include <cstdint>
#include <memory>
#include <vector>

template <class TLinkDevice>
class CKVX_HdwKvxCommandDevice : public TLinkDevice {
public:
    static constexpr uint8_t FrameStart = 0xA5;
    static constexpr unsigned EventBufferSize = 0x100000;
    static constexpr unsigned PayloadLimitUart = 4000;
    static constexpr unsigned PayloadLimitEthernet = 1345;
    static constexpr unsigned DefaultEchoTimeoutMs = 500;
    static constexpr unsigned ProbeTimeoutMs = 200;

    // Event type numbers (bits 7..3 of an event record's type byte).
    enum t_EventType : unsigned {
        EventComEcho = 0,
        EventCriticalFailure = 1,
        EventA429Rx = 2,
        EventA429Tx = 3,
        EventStatus = 5,
        EventCanRx = 6,
        EventCanTx = 7,
        EventMilStd1553 = 8,
        EventUartRx = 9,
        EventUartTx = 10,
    };

    // One queued command: its record, header included.
    class CCommand : public CKVX_Object {
    public:
        CCommand() = default;
        CCommand(const CCommand&) = default;
        CCommand(CCommand&&) noexcept = default;
        CCommand& operator=(const CCommand&) = default;
        CCommand& operator=(CCommand&&) noexcept = default;
        ~CCommand() override = default;

        uint8_t Code = 0;
        uint16_t Number = 0;
        uint8_t EchoExpected = 1;
        uint32_t Length = 0;
        std::vector<uint8_t> Bytes;
    };
    class CCommandList : public CKVX_List<CCommand> {
    public:
        using CKVX_List<CCommand>::CKVX_List;
    };

    // A sent command whose echo has not come back yet.
    class CEchoWaiting : public CKVX_Object {
    public:
        CEchoWaiting() = default;
        CEchoWaiting(uint16_t number, uint32_t sendTime) : Number(number), SendTime(sendTime) {}
        CEchoWaiting(const CEchoWaiting&) = default;
        CEchoWaiting& operator=(const CEchoWaiting&) = default;
        ~CEchoWaiting() override = default;
        bool operator==(const CEchoWaiting& o) const { return Number == o.Number && SendTime == o.SendTime; }

        uint16_t Number = 0;
        uint32_t SendTime = 0; // low 32 bits of CKVX_HdwTimer::GetTickCount()
    };
    class CCommandEchoList : public CKVX_List<CEchoWaiting> {
    public:
        using CKVX_List<CEchoWaiting>::CKVX_List;
    };
    class CEventPosList : public CKVX_List<uint32_t> {
    public:
        using CKVX_List<uint32_t>::CKVX_List;
    };
    class CByteList : public CKVX_List<uint8_t> {
    public:
        using CKVX_List<uint8_t>::CKVX_List;
    };

    // Base of the unit's event objects: the unit's 32-bit time stamp (first
    // four parameter bytes) widened to 64 bits; the channel id is the record's
    // sub-field in decimal.
    class CEvent : public CKVX_HdwEvent {
    public:
        CEvent() { m_EventCode = EventNotDecoded; }
        ~CEvent() override = default;
        // Fills the object from the record's parameters; `length` is the
        // record's L (type byte plus parameters). 0, or 11 when malformed.
        virtual unsigned ExtractData(const uint8_t* params, unsigned length)
        {
            if (length < 5)
                return 11;
            ExtractTimeStamp(params);
            return 0;
        }
        void ExtractTimeStamp(const uint8_t* params)
        {
            TimeStamp = uint64_t(params[0]) | uint64_t(params[1]) << 8 | uint64_t(params[2]) << 16 |
                        uint64_t(params[3]) << 24;
        }
        uint64_t TimeStamp = 0;
    };

    // Echo of a command (type 0): L = 7, the echoed command number at 4..5.
    class CComEchoEvent : public CEvent {
    public:
        CComEchoEvent() { this->m_EventCode = EventComEcho; }
        unsigned ExtractData(const uint8_t* params, unsigned length) override
        {
            if (length != 7)
                return 11;
            this->ExtractTimeStamp(params);
            CommandNumber = uint16_t(params[4] | params[5] << 8);
            return 0;
        }
        uint16_t CommandNumber = 0;
    };

    // ---- What differs between the units (each driver fills it in its constructor).
    // Command kinds, for the profile's mask of commands a unit accepts.
    enum t_CommandKind : unsigned {
        CmdSession = 1u << 0,
        CmdStatusRequest = 1u << 1,
        CmdSramWrite = 1u << 2,
        CmdKeepAlive = 1u << 3,
        CmdAtxCtxCtrl = 1u << 4,
        CmdAtxCtxData = 1u << 5,
        CmdAtxPush = 1u << 6,
        CmdAtxCtxReset = 1u << 7,
        CmdAtxConfig = 1u << 8,
        CmdArxConfig = 1u << 9,
        CmdUartTxPush = 1u << 10,
        CmdUartConfig = 1u << 11,
        CmdCanConfig = 1u << 12,
        CmdCanPush = 1u << 13,
        Cmd1553Config = 1u << 14,
    };
    // The command sets of the ARINC 429 units and of the CAN units.
    static constexpr uint32_t Arinc429Commands = CmdSession | CmdStatusRequest | CmdAtxCtxCtrl | CmdAtxCtxData |
                                                 CmdAtxPush | CmdAtxCtxReset | CmdAtxConfig | CmdArxConfig;
    static constexpr uint32_t CanCommands = CmdSession | CmdStatusRequest | CmdCanConfig | CmdCanPush;
    class CUnitProfile : public CKVX_Object {
    public:
        // Channels per kind.
        unsigned UartChannels = 0;
        unsigned AtxChannels = 0;
        unsigned ArxChannels = 0;
        unsigned CanChannels = 0;
        unsigned MilStd1553Channels = 0;
        // Base codes of the per-channel commands (code = base + channel).
        uint8_t AtxConfigBase = 20;
        uint8_t ArxConfigBase = 24;
        uint8_t UartConfigBase = 34;
        uint8_t CanConfigBase = 48;
        uint8_t CanPushBase = 50;
        uint8_t MilStd1553ConfigBase = 52;
        // Commands the unit accepts (t_CommandKind bits); a builder asked for
        // any other answers 2 and attaches nothing.
        uint32_t Commands = 0;
        // Event types the unit sends (bit per type); a record of any other
        // type ends the frame's processing with 11.
        uint32_t Events = 1u << EventComEcho;
        // Payload limit over Ethernet (1345, or 4000 for a unit that takes full frames there too).
        unsigned EthernetPayloadLimit = PayloadLimitEthernet;
        // Keep-alive (code 4): sent when the instance has sent nothing for
        // this long (ms); 0: never.
        unsigned KeepAliveIdleMs = 0;
        // The serial probe also asks for a status answer and recognises the
        // unit by its shape (see ProbeWithInstance).
        bool ProbeByStatus = false;
        // The ARINC 429 receivers offer label-oriented input (service type 6).
        bool Arinc429LabelInput = false;
        // CAN ports take the byte-stream services (types 2 and 3).
        bool CanByteServices = false;
    };
    const CUnitProfile& GetUnitProfile() const { return m_Profile; }

    // ---- Per-channel control and status records, kept by the instance; the
    // configuration commands read them, the events and services update them.
    //
    // Bytes of the configuration records taken from them (offsets in the
    // command record; a field is sent as its byte value unless a bit is named):
    // - ARINC 429 transmit (code AtxConfigBase + channel): byte 4 bit 0
    //   Enabled, bit 1 Option1, bit 5 Option5, bit 6 Option6; byte 7
    //   Setting7; bytes 12..14 Settings12; byte 15 bit 0 Option15.
    //   FifoWaiting is status only.
    // - ARINC 429 receive (code ArxConfigBase + channel): no per-channel
    //   bytes; enable and label flags come with the call.
    // - CAN (code CanConfigBase + channel): byte 4 Enabled (bit 0 starts the
    //   controller), 5 ModeFlagA, 6 ModeFlagB, 7..10 FilterA, 11..18 FilterB,
    //   19 PrescalerIndex, 20 Segment1, 21 Segment2. The rest is status only.
    // - UART (code UartConfigBase + channel): byte 4 bit 0 Enabled, bit 5
    //   Option5; byte 8 Setting8. ChunkCounter numbers the transmit records.
    // - MIL-STD-1553 (code MilStd1553ConfigBase + channel): bytes 4..12 are
    //   Bytes[0..8].
    // Status events update them before they are dispatched: kind 1 sets
    // AtxCtrl[channel].FifoWaiting, kind 2 sets CanCtrl[channel].FaultState,
    // TxWaiting, ErrReg0 and ErrReg1 from the status word.
    class CArinc429TxCtrlStatus : public CKVX_Object {
    public:
        uint8_t Enabled = 0;
        uint8_t Option1 = 1;       // flags bit 1
        uint8_t Option5 = 0;       // flags bit 5
        uint8_t Option6 = 0;       // flags bit 6
        uint8_t Setting7 = 0;      // byte 7
        uint8_t Settings12[3] = {}; // bytes 12..14
        uint8_t Option15 = 0;      // byte 15 bit 0
        uint32_t FifoWaiting = 0;  // words waiting in the unit's FIFO (status kind 1)
    };
    class CArinc429RxCtrlStatus : public CKVX_Object {
    public:
        uint8_t Enabled = 0;
        uint8_t LabelFlags[256] = {}; // 1: the unit passes that label
        bool HasFilter = false;       // false: all labels pass
    };
    class CCanCtrlStatus : public CKVX_Object {
    public:
        uint8_t Enabled = 0;
        uint8_t ModeFlagA = 1;
        uint8_t ModeFlagB = 1;
        // Acceptance filters, most significant byte first: group A for
        // standard identifiers (code 2 bytes, mask 2 bytes), group B for
        // extended ones (code 4 bytes, mask 4 bytes).
        uint8_t FilterA[4] = {};
        uint8_t FilterB[8] = {};
        // Bit timing from ExtractCanTimingParameters.
        uint8_t PrescalerIndex = 0;
        uint8_t Segment1 = 0;
        uint8_t Segment2 = 0;
        uint32_t FaultState = 3;  // status kind 2, bits 0-7
        uint32_t TxWaiting = 0;   // bits 8-15
        uint8_t ErrReg0 = 0;
        uint8_t ErrReg1 = 0;
    };
    class CUartCtrlStatus : public CKVX_Object {
    public:
        uint8_t Enabled = 0;
        uint8_t Option5 = 0;
        uint8_t Setting8 = 0;
        uint32_t ChunkCounter = 0; // per transmit record
    };
    class CMilStd1553Config : public CKVX_Object {
    public:
        uint8_t Bytes[9] = {}; // configuration bytes 4..12
    };

    // ---- Event objects of the unit's event types.
    class CCriticalFailureEvent;
    class CArinc429RxEvent;
    class CArinc429TxEvent;
    class CStatusEvent;
    class CCanRxEvent;
    class CCanTxEvent;
    class CMilStd1553Event;
    class CUartRxEvent;
    class CUartTxEvent;

    // ---- Ports and services (the unit's nested classes over the generic ones).
    class CUartPort;
    class CArinc429TxPort;
    class CArinc429RxPort;
    class CCanPort;
    class CUartByteInBufferService;
    class CUartByteOutBufferService;
    class CArinc429InBufferService;
    class CArinc429OutBufferService;
    class CCanInBufferService;
    class CCanOutBufferService;
    class CSignalService;
    class CArinc429OutLbloService;
    class CArinc429InLbloService;
    class CCanByteInBufferService;
    class CCanByteOutBufferService;
    class CMilStd1553Port;

    // Per unit: the link state of the base plus the command queue, the echo
    // list and the receive state machine.
    class CDeviceInstance : public TLinkDevice::CDeviceInstance {
    public:
        CDeviceInstance() : RawBuffer(EventBufferSize + 16), EventBuffer(EventBufferSize) {}
        ~CDeviceInstance() override = default;

        // Back to a fresh session: besides the protocol state, every channel
        // of the unit is off again.
        virtual void Reset()
        {
            ResetRxState();
            CommandList.DeleteAll();
            EchoList.DeleteAll();
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
        virtual void ResetRxState()
        {
            RxState = 0;
            RawIndex = 0;
            LengthField = 0;
            EventCount = 0;
            EventsCompleted = 0;
            EventBytes = 0;
            EventLength = 0;
            WritePos = 0;
            ReceivedCrc = 0;
        }

        CCommandList CommandList;
        CCommandEchoList EchoList;
        // Receive state machine.
        unsigned RxState = 0;
        unsigned RawIndex = 0;
        unsigned LengthField = 0;
        unsigned EventCount = 0;
        unsigned EventsCompleted = 0;
        unsigned EventBytes = 0;
        unsigned WritePos = 0;
        unsigned EventLength = 0;
        unsigned ReceivedCrc = 0;
        std::vector<uint8_t> RawBuffer;
        std::vector<uint8_t> EventBuffer;
        CEventPosList EventPosList;
        // Highest event-buffer position written since the buffer was last cleared.
        unsigned EventBufferUsed = 0;
        uint16_t CommandCounter = 0;
        uint32_t BytesSent = 0;
        // Tick count (ms, low 32 bits) of the last frame sent.
        uint32_t LastSendTime = 0;
        // Frames dropped for a bad CRC (for diagnostics).
        uint32_t CrcErrors = 0;
        // Control and status of each channel, sized from the unit profile.
        std::vector<CArinc429TxCtrlStatus> AtxCtrl;
        std::vector<CArinc429RxCtrlStatus> ArxCtrl;
        std::vector<CCanCtrlStatus> CanCtrl;
        std::vector<CUartCtrlStatus> UartCtrl;
        std::vector<CMilStd1553Config> MilStd1553Ctrl;
        // Record blocks of sent commands, kept for the next ones to attach:
        // a busy output attaches thousands of commands a second, and reusing
        // their blocks takes the heap off the tick's path.
        std::vector<std::vector<uint8_t>> SpareCommandBytes;
        // The frame being sent, kept so that its block is reused.
        std::vector<uint8_t> TxFrame;
        // The port of each (port type, channel) while a frame's events are
        // handed out (ProcessEventPayload).
        CKVX_HdwEventRoutes Routes;
    };

    CKVX_HdwKvxCommandDevice();
    ~CKVX_HdwKvxCommandDevice() override;

    // Overrides of the link base.
    unsigned Open(unsigned instance) override;
    unsigned Close(unsigned instance) override;
    unsigned HdwTimerStartDeviceIntanceHandler(unsigned instance, uint64_t ticks) override;
    unsigned HdwTimerEndDeviceIntanceHandler(unsigned instance, uint64_t ticks) override;
    CDeviceInstance* CreateDeviceInstance() override;
    unsigned ProbeUartLink(typename CKVX_HdwFtdiUartBridgedDevice::CDeviceInstance* tmp,
                           const CKVX_String& portName) override;

    // Virtual operations added here, in interface order.
    // Payload limit of one frame for this instance (1345 over Ethernet, 4000 otherwise).
    virtual unsigned GetPayloadLimit(CDeviceInstance* instance);
    // Takes one event record of a received frame; the base knows the echo only.
    virtual unsigned ProcessEventRecord(unsigned instance, unsigned type, unsigned subField, unsigned length,
                                        uint8_t* params);
    // Under the device lock, before the closing session command is sent.
    virtual unsigned OnClosing(unsigned instance);

    // CRC.
    void BuildCrc16Table();
    uint16_t CalcCRC16Word(uint16_t crc, uint8_t byte) const;
    uint16_t CalcCRC16(const uint8_t* bytes, unsigned count) const;

    // Command numbers 0, 1, 2 ... wrapping at 65535.
    uint16_t GetLastCommandNum(unsigned instance);
    uint16_t GetLastCommandNum(CDeviceInstance* instance);

    // Appends one command record (header built here) to the instance's list.
    // 2 without an instance or for a record longer than 255 bytes.
    unsigned AttachCommand(CDeviceInstance* instance, uint8_t code, const uint8_t* params, unsigned paramCount);
    unsigned AttachCommand(unsigned instance, uint8_t code, const uint8_t* params, unsigned paramCount);
    unsigned AttachSessionCommand(unsigned instance, unsigned char close);
    unsigned AttachSessionCommand(CDeviceInstance* instance, unsigned char close);
    unsigned AttachStatusRequestCommand(unsigned instance, unsigned channel, unsigned kind);

    // Command builders: each appends its record(s) to the instance's command
    // list (sent by the next ProcessCommandList). 2, attaching nothing, for a
    // parameter the unit cannot represent, a channel it does not have or a
    // command it does not take; the push builders attach nothing and answer 0
    // for no items.
    unsigned AttachKeepAliveCommand(unsigned instance);
    unsigned AttachSramWriteCommand(unsigned instance, unsigned channel, uint32_t startAddress, const uint16_t* words,
                                    unsigned count);
    // Code 16: one label's transmit control (2 for a period outside 1..1024).
    unsigned AttachAtxCtxCtrlCommand(unsigned instance, unsigned channel,
                                     const CKVX_HdwArinc429OutLbloService::CLabelCtrl& ctrl);
    unsigned AttachAtxCtxDataCommand(unsigned instance, unsigned channel, const CKVX_HdwArinc429Message& message);
    unsigned AttachAtxPushCommand(unsigned instance, unsigned channel, const CKVX_HdwArinc429Message* messages,
                                  unsigned count);
    unsigned AttachAtxCtxResetCommand(unsigned instance, unsigned channel);
    // From the port's parameters and the instance's AtxCtrl[channel].
    unsigned AttachAtxConfigCommand(unsigned instance, unsigned channel,
                                    const CKVX_HdwArinc429TxPort::CParameters& params);
    // From the port's parameters and a table of 256 label flags (null: all zero).
    unsigned AttachArxConfigCommand(unsigned instance, unsigned channel,
                                    const CKVX_HdwArinc429RxPort::CParameters& params, bool enable,
                                    const uint8_t* labelFlags);
    unsigned AttachUartTxPushCommand(unsigned instance, unsigned channel, const uint8_t* data, unsigned count);
    unsigned AttachUartConfigCommand(unsigned instance, unsigned channel, const CKVX_HdwUartPort::CParameters& params);
    // From the instance's CanCtrl[channel].
    unsigned AttachCanConfigCommand(unsigned instance, unsigned channel);
    unsigned AttachCanPushCommand(unsigned instance, unsigned channel, const CKVX_HdwCanMessage* messages,
                                  unsigned count);
    // From the instance's MilStd1553Ctrl[channel].
    unsigned Attach1553ConfigCommand(unsigned instance, unsigned channel);

    // Rate conversions (0, or 2 when the rate cannot be represented).
    static unsigned ExtractArinc429TxBaudRateParameters(unsigned rate, unsigned char& highSpeed,
                                                        unsigned short& highDivider, unsigned short& lowDivider);
    static unsigned ExtractCanTimingParameters(unsigned rate, double samplePoint, unsigned char& prescalerIndex,
                                               unsigned char& segment1, unsigned char& segment2);
    static unsigned ExtractUartBaudRateParameters(unsigned rate, unsigned char& oversamplingIndex,
                                                  unsigned short& divider);
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

    unsigned ProcessCommandList(unsigned instance);
    unsigned ProcessCommandList(CDeviceInstance* instance);
    unsigned ProcessReception(unsigned instance);
    unsigned ProcessEventPayload(unsigned instance);
    unsigned ProcessEventComEcho(unsigned instance, unsigned subField, unsigned length, uint8_t* params);
    unsigned WaitAllCommandEchoes(unsigned instance, unsigned timeoutMs);
    unsigned ProcessUartEchoReception(CDeviceInstance* instance);
    unsigned CheckUartLink(const CKVX_String& portName);

    // ---- Shared by the unit classes, each of which is mostly its profile.
    // Port kinds of the channel maps: 0 UART, 1 ARINC 429 transmit, 2 ARINC
    // 429 receive, 3 CAN, 4 none, 5 MIL-STD-1553.
    unsigned ProfileChannelCount(unsigned kind) const;
    // The nested port class of `kind`; null for kinds without one.
    CKVX_HdwPort* CreateProfilePort(unsigned kind, CKVX_HdwObject* parent, unsigned index, const CKVX_String& name);
    // One port per channel, in channel-map order, each made by `create(kind,
    // parent, index, name)` (the unit's CreatePort) and named by its channel
    // number within its kind.
    template <class TCreate>
    unsigned CreateProfilePorts(unsigned instance, TCreate&& create)
    {
        static const char* const kNames[] = {"UART", "ARINC 429 TX", "ARINC 429 RX", "CAN", "", "MIL-STD-1553"};
        for (unsigned kind = 0; kind <= 5; ++kind) {
            for (unsigned ch = 0; ch < ProfileChannelCount(kind); ++ch) {
                CKVX_String id;
                id.Format("%u", ch);
                CKVX_HdwPort* port = create(kind, this, instance, id);
                if (!port)
                    continue;
                CKVX_String description;
                description.Format("%s %u", kNames[kind], ch);
                this->AddPortDescriptor(instance, port, ch, description);
            }
        }
        return 0;
    }
    // The unit's number on its bus from the hardware identifier strings:
    // with exactly two strings, the last two characters of the second
    // (upper-cased, blanks trimmed) as a decimal number; 0 otherwise.
    static unsigned HardwareIdNumber(const CKVX_List<CKVX_String>& ids);

    CDeviceInstance* GetProtocolInstance(unsigned instance);
    bool IsEthernetInstance(CDeviceInstance* instance) const;

    unsigned GetEchoTimeout() const { return m_EchoTimeout; }
    void SetEchoTimeout(unsigned ms) { m_EchoTimeout = ms; }
    unsigned GetSessionWatchdog() const { return m_SessionWatchdog; }
    void SetSessionWatchdog(unsigned ms) { m_SessionWatchdog = ms; }

protected:
    // The byte link of an instance over whichever transport it uses.
    unsigned DoLinkWrite(CDeviceInstance* instance, uint8_t* data, unsigned count);
    unsigned DoLinkRead(CDeviceInstance* instance, uint8_t* buffer, unsigned maxBytes, unsigned& bytesRead);
    unsigned DoLinkGetReadBufferBytes(CDeviceInstance* instance, unsigned& count);
    // Feeds one received byte to the state machine. Returns 0 while nothing
    // is complete, and for a complete frame: 1 with `frameOk` telling the CRC check.
    unsigned FeedByte(CDeviceInstance* inst, uint8_t byte, bool& frameOk);
    // The same machine over a run of bytes, event bodies copied in blocks.
    // Stops after a complete frame (1, `frameOk` as above) or at the end of
    // the run (0); `used` tells how many bytes were taken. 14 on an overflow.
    unsigned FeedBytes(CDeviceInstance* inst, const uint8_t* data, unsigned count, unsigned& used, bool& frameOk);
    // Feeds a run of received bytes and dispatches every frame that passes
    // its CRC: 0, or 14 on an overflow or a failed event handler.
    unsigned ReceiveBytes(unsigned instance, CDeviceInstance* inst, const uint8_t* data, unsigned count);
    unsigned ProbeWithInstance(CDeviceInstance* tmp);
    // Reads what waits on the serial link into the receive state machine and
    // calls onFrame(crc ok) for each complete frame; a result >= 0 of it ends
    // the reading with that value. 22 when the bytes ran out, 14 on a link failure.
    template <class TOnFrame>
    unsigned ReadSerialFrames(CDeviceInstance* inst, TOnFrame&& onFrame);
    // The probe of a unit whose USB identity other kinds share (CUnitProfile::ProbeByStatus).
    unsigned ProbeByStatusShape(CDeviceInstance* tmp);
    // The common steps of the event handlers: channel text, ExtractData, then
    // ProcessEventHandlers for the ports of `portType` on that channel.
    template <class TEvent>
    unsigned DecodeAndDispatch(unsigned instance, unsigned portType, unsigned subField, unsigned length,
                               uint8_t* params, TEvent& event);
    // ProcessEventHandlers for the ports of `portType` on `channel` (the
    // number the event's channel text was made from), through the routes
    // of the receive pass when it has them.
    unsigned DispatchEvent(unsigned instance, unsigned portType, unsigned channel, CKVX_HdwEvent* event);

    uint16_t m_Crc16Table[256] = {};
    unsigned m_EchoTimeout = DefaultEchoTimeoutMs;
    unsigned m_SessionWatchdog = 0;
    // 2-bit link selector written into the session command.
    unsigned m_LinkSelector = 0;
    CUnitProfile m_Profile;
};

#include <HdwLib/units/KvxCommandEvents.h>
#include <HdwLib/units/KvxCommandPorts.h>
#include <HdwLib/units/KvxLabelServices.h>
#include <HdwLib/units/KvxByteAndMilPorts.h>

// Both instances are compiled into the library (KvxCommandDevice.cpp). A
// program that links a DLL through auto-import (its build defines
// HDWLIB_AUTO_IMPORT) instantiates them itself instead: the DLL exports their
// out-of-line members, but GCC exports no inline member of a template
// instance, nor any member of a class nested in one that lacks its own export
// mark (the events, the profile, the lists), so the program has to compile
// those.
#ifndef HDWLIB_AUTO_IMPORT
extern template class HDWLIB_EXPORT CKVX_HdwKvxCommandDevice<CKVX_HdwFtdiUartBridgedDevice>;
extern template class HDWLIB_EXPORT CKVX_HdwKvxCommandDevice<CKVX_HdwHoeFtdiUartBridgedDevice>;
#endif
