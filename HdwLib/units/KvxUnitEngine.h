#pragma once
// The unit protocol of one unit, without I/O and without a clock: the
// command queue with its echo bookkeeping, the one-frame-in-flight rule and
// the receive state machine that finds the unit's frames in its byte stream.
// The driver feeds it the bytes it read with the time it read them, takes
// the frames it builds and writes them, and asks it about deadlines with
// the time it passes; nothing here reads a clock, sleeps or touches a link.
//
// Frames:
// - host frame: 0xA5, u16 payload length N, N bytes of command records,
//   CRC-16 over the start byte through the last record (low byte first);
// - command record: length (this byte included), code | 0x80, u16 command
//   number, parameters;
// - unit frame: 0xA5, 12-bit length, 12-bit event count E (0 is invalid), E
//   event records (length L of what follows, type byte: type << 3 |
//   sub-field, parameters), CRC-16 over all of it;
// - CRC-16: polynomial 0x1021, initial 0xFFFF, no reflection, no final XOR.
//
// Sessions: Open starts a fresh session (BeginSession). Until the unit has
// echoed what the new session sent, what it still sends of the earlier one
// (late echoes, events) is stale: echoes of no outstanding command are
// dropped and counted instead of failing the tick, and the echo of any
// outstanding command also settles the ones sent before it (a session start
// sent again after its frame was lost).
//
// Not thread-safe: the driver calls it under the device lock of the instance.

#include <HdwLib/core/KvxList.h>
#include <HdwLib/core/KvxObject.h>
#include <HdwLib/core/KvxVector.h>

#include <cstdint>
#include <vector>

class HDWLIB_EXPORT CKVX_HdwKvxUnitEngine {
public:
    static constexpr uint8_t FrameStart = 0xA5;
    static constexpr unsigned EventBufferSize = 0x100000;
    static constexpr unsigned PayloadLimitUart = 4000;
    static constexpr unsigned PayloadLimitEthernet = 1345;
    static constexpr unsigned MaxRecordLength = 255;

    // The receive machine's states.
    enum class ERxState : unsigned {
        Hunting = 0, // looking for a start byte
        LengthLow = 1, // length field, low byte
        LengthHigh = 2, // length field, high 4 bits
        CountLow = 3, // event count, low byte
        CountHigh = 4, // event count, high 4 bits (0: frame dropped)
        RecordLength = 5, // an event record's L (0: frame dropped)
        RecordBody = 6, // an event record's type byte and parameters
        CrcLow = 7,
        CrcHigh = 8,
    };

    // What feeding bytes ended with.
    enum class EFeed : unsigned {
        NeedMore = 0, // every byte taken, no frame complete
        Frame = 1, // a frame is complete (its CRC checked: see FrameOk)
        Overflow = 14, // the event buffer is full: the frame is dropped
    };

    // What an echo did to the echo list.
    enum class EEcho : unsigned {
        Matched = 0, // an outstanding command: removed (with the ones before it while a session starts)
        Stale = 1, // from before the current session: dropped, counted
        OutOfOrder = 14, // not the oldest outstanding one: list unchanged
    };

    // One queued command: its record, header included.
    class HDWLIB_EXPORT CCommand : public CKVX_Object {
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
    class HDWLIB_EXPORT CCommandList : public CKVX_List<CCommand> {
    public:
        using CKVX_List<CCommand>::CKVX_List;
    };

    // A sent command whose echo has not come back yet.
    class HDWLIB_EXPORT CEchoWaiting : public CKVX_Object {
    public:
        CEchoWaiting() = default;
        CEchoWaiting(uint16_t number, uint32_t sendTime) : Number(number), SendTime(sendTime) {}
        CEchoWaiting(const CEchoWaiting&) = default;
        CEchoWaiting& operator=(const CEchoWaiting&) = default;
        ~CEchoWaiting() override = default;
        bool operator==(const CEchoWaiting& o) const { return Number == o.Number && SendTime == o.SendTime; }

        uint16_t Number = 0;
        uint32_t SendTime = 0; // milliseconds, as passed to BuildFrame
    };
    class HDWLIB_EXPORT CCommandEchoList : public CKVX_List<CEchoWaiting> {
    public:
        using CKVX_List<CEchoWaiting>::CKVX_List;
    };
    // Contiguous: a position is appended per record, dozens per frame, and
    // the list is emptied at each frame start without giving its room back.
    class HDWLIB_EXPORT CEventPosList : public CKVX_Vector<uint32_t> {
    public:
        using CKVX_Vector<uint32_t>::CKVX_Vector;
    };
    class HDWLIB_EXPORT CByteList : public CKVX_List<uint8_t> {
    public:
        using CKVX_List<uint8_t>::CKVX_List;
    };

    CKVX_HdwKvxUnitEngine();
    virtual ~CKVX_HdwKvxUnitEngine();
    CKVX_HdwKvxUnitEngine(const CKVX_HdwKvxUnitEngine&) = delete;
    CKVX_HdwKvxUnitEngine& operator=(const CKVX_HdwKvxUnitEngine&) = delete;

    // Receive machine back to hunting (the frame in progress is dropped).
    virtual void ResetRxState();
    // Empties the command and echo lists and the unread input; keeps the
    // command counter (numbers never repeat soon after a re-open) and the
    // counters.
    void ResetQueues();

    // ---- commands
    // The next command number: 0, 1, 2 ... wrapping from 65535 to 0.
    uint16_t GetLastCommandNum();
    // Appends a record built from `code` and `params`; 0, or 2 for a record
    // longer than MaxRecordLength (nothing attached).
    unsigned AttachCommand(uint8_t code, const uint8_t* params, unsigned paramCount);
    // Payload bytes of the queued commands.
    unsigned GetQueuedPayload() const;
    // The number the last attached command got.
    uint16_t GetLastAttachedNumber() const { return uint16_t(CommandCounter - 1); }
    // True while command `number` is queued or waits for its echo.
    bool IsCommandPending(uint16_t number) const;

    // ---- sending
    // The next host frame, or null when nothing may go now (nothing queued,
    // or an echo is still outstanding). It packs queued commands from the
    // head while their total stays within `payloadLimit` (a command is never
    // split) and moves them to the echo list stamped `nowMs`. The frame stays
    // valid until the next call; the caller writes it and then calls
    // FrameSent or FrameFailed.
    const std::vector<uint8_t>* BuildFrame(unsigned payloadLimit, uint32_t nowMs);
    // The frame went out: its commands leave the command list.
    void FrameSent();
    // The frame could not be written: every queued command is dropped.
    void FrameFailed();

    // ---- echoes
    // Starts a fresh session: until the echo list is empty again, echoes of
    // no outstanding command are stale.
    void BeginSession() { m_SessionConfirmed = false; }
    bool IsSessionConfirmed() const { return m_SessionConfirmed; }
    // The echo of command `number` came back.
    EEcho TakeEcho(uint16_t number);
    // True when the oldest outstanding echo has waited `timeoutMs` or more at `nowMs`.
    bool IsEchoOverdue(uint32_t nowMs, unsigned timeoutMs) const;

    // ---- receiving
    // One byte through the machine, exactly as the protocol describes it
    // (the reference the block feed is checked against).
    EFeed FeedByte(uint8_t byte, bool& frameOk);
    // The same machine over a run of bytes, records copied in blocks. Stops
    // after a complete frame (Frame, `frameOk` telling the CRC check) or at
    // the end of the run (NeedMore); `used` tells how many bytes it took.
    EFeed FeedBytes(const uint8_t* data, unsigned count, unsigned& used, bool& frameOk);
    // Bytes read from the link but not fed yet: when the dispatch of a frame
    // fails, the rest of that read waits here for the next reception.
    void KeepUnread(const uint8_t* data, unsigned count);
    std::vector<uint8_t>& GetUnread() { return m_Unread; }

    // ---- CRC (one table for the whole library: CKVX_Crc's)
    static uint16_t Crc16(const uint8_t* bytes, unsigned count);
    static const uint16_t* Crc16Table();

    // ---- state (public: the driver's instance and the tests read it)
    CCommandList CommandList;
    CCommandEchoList EchoList;
    ERxState RxState = ERxState::Hunting;
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
    // Command payload bytes sent.
    uint32_t BytesSent = 0;
    // Time (ms) of the last frame sent.
    uint32_t LastSendTime = 0;
    // Counters for diagnostics: frames dropped for a bad CRC, stale echoes
    // dropped after a session start, frames that failed their dispatch.
    uint32_t CrcErrors = 0;
    uint32_t StaleEchoes = 0;
    uint32_t FailedFrames = 0;
    // Frames the receive machine dropped for an event count or a record
    // length of 0; commands dropped with a frame the link refused; echoes
    // that did not come within the echo time-out (each counted once).
    uint32_t MalformedFrames = 0;
    uint32_t LostCommands = 0;
    uint32_t EchoTimeouts = 0;

private:
    void ResetRxFields();
    // One byte through the machine: FeedByte's work, defined inline next to
    // FeedBytes so that the block feed runs it without a call.
    EFeed RxStep(uint8_t byte, bool& frameOk);
    // A frame that lies whole at the start of `data`, taken in one pass with
    // the end state the byte steps would leave; returns the bytes it took, or
    // 0 when the frame is cut short or malformed (the byte steps take it then).
    unsigned TakeWholeFrame(const uint8_t* data, unsigned count, bool& frameOk);
    // The record blocks of sent commands, reused by the next ones: a busy
    // output attaches thousands of commands a second.
    std::vector<std::vector<uint8_t>> m_SpareBlocks;
    std::vector<uint8_t> m_TxFrame;
    unsigned m_FrameCommands = 0; // commands in the frame built last
    bool m_SessionConfirmed = true;
    std::vector<uint8_t> m_Unread;
};
