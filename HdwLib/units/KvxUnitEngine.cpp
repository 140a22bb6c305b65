// The unit protocol without I/O: command queue, echo bookkeeping and the
// receive machine with its block feed.
#include <HdwLib/units/KvxUnitEngine.h>

#include <HdwLib/core/internal/Crc16Tables.h>
#include <HdwLib/framework/HdwObject.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <utility>

namespace {
// Record blocks kept for reuse: one full frame's worth of the smallest records.
constexpr size_t kSpareCommandBlocks = 1024;

// Copies a record of `n` bytes (0 to 256), writing nothing past `n`.
// Records are mostly 8 to 30 bytes: overlapping word moves beat both a
// library call and the string move the compiler would inline for a size it
// knows to be small.
inline void CopyRecordBytes(uint8_t* dst, const uint8_t* src, unsigned n)
{
    auto move = [&](unsigned at, auto word) {
        std::memcpy(&word, src + at, sizeof word);
        std::memcpy(dst + at, &word, sizeof word);
    };
    struct Block {
        uint64_t Lo, Hi;
    };
    if (n >= 16) {
        for (unsigned at = 0; at + 16 < n; at += 16)
            move(at, Block{});
        move(n - 16, Block{});
    } else if (n >= 8) {
        move(0, uint64_t{});
        move(n - 8, uint64_t{});
    } else if (n >= 4) {
        move(0, uint32_t{});
        move(n - 4, uint32_t{});
    } else {
        for (unsigned k = 0; k < n; ++k)
            dst[k] = src[k];
    }
}
} // namespace

CKVX_HdwKvxUnitEngine::CKVX_HdwKvxUnitEngine() : RawBuffer(EventBufferSize + 16), EventBuffer(EventBufferSize)
{
    // A full frame of the busiest unit holds a few hundred records.
    EventPosList.Items().reserve(1024);
}

CKVX_HdwKvxUnitEngine::~CKVX_HdwKvxUnitEngine() = default;

void CKVX_HdwKvxUnitEngine::ResetRxFields()
{
    RxState = ERxState::Hunting;
    RawIndex = 0;
    LengthField = 0;
    EventCount = 0;
    EventsCompleted = 0;
    EventBytes = 0;
    EventLength = 0;
    WritePos = 0;
    ReceivedCrc = 0;
}

void CKVX_HdwKvxUnitEngine::ResetRxState()
{
    ResetRxFields();
}

void CKVX_HdwKvxUnitEngine::ResetQueues()
{
    CommandList.DeleteAll();
    EchoList.DeleteAll();
    m_Unread.clear();
    m_FrameCommands = 0;
}

// ---- CRC --------------------------------------------------------------------

uint16_t CKVX_HdwKvxUnitEngine::Crc16(const uint8_t* bytes, unsigned count)
{
    return hdw::crc::Crc16Update(0xFFFF, bytes, count);
}

const uint16_t* CKVX_HdwKvxUnitEngine::Crc16Table()
{
    return hdw::crc::kTable1021;
}

// ---- commands ---------------------------------------------------------------

uint16_t CKVX_HdwKvxUnitEngine::GetLastCommandNum()
{
    return CommandCounter++;
}

unsigned CKVX_HdwKvxUnitEngine::AttachCommand(uint8_t code, const uint8_t* params, unsigned paramCount)
{
    if (paramCount > MaxRecordLength - 4)
        return HDW_ERR_ARGUMENT;
    // Built in place at the list's end: one command per word or frame sent,
    // so no temporary is built, moved and destroyed.
    CCommand& cmd = CommandList.Items().emplace_back();
    cmd.Code = code;
    cmd.Number = GetLastCommandNum();
    cmd.EchoExpected = 1;
    cmd.Length = paramCount + 4;
    if (!m_SpareBlocks.empty()) {
        cmd.Bytes = std::move(m_SpareBlocks.back());
        m_SpareBlocks.pop_back();
    }
    cmd.Bytes.resize(cmd.Length);
    cmd.Bytes[0] = uint8_t(cmd.Length);
    cmd.Bytes[1] = uint8_t(code | 0x80);
    cmd.Bytes[2] = uint8_t(cmd.Number & 0xFF);
    cmd.Bytes[3] = uint8_t(cmd.Number >> 8);
    CopyRecordBytes(cmd.Bytes.data() + 4, params, paramCount);
    return 0;
}

unsigned CKVX_HdwKvxUnitEngine::GetQueuedPayload() const
{
    unsigned payload = 0;
    for (const CCommand& c : CommandList)
        payload += c.Length;
    return payload;
}

bool CKVX_HdwKvxUnitEngine::IsCommandPending(uint16_t number) const
{
    for (const CCommand& c : CommandList)
        if (c.Number == number)
            return true;
    for (const CEchoWaiting& e : EchoList)
        if (e.Number == number)
            return true;
    return false;
}

// ---- sending ----------------------------------------------------------------

const std::vector<uint8_t>* CKVX_HdwKvxUnitEngine::BuildFrame(unsigned payloadLimit, uint32_t nowMs)
{
    m_FrameCommands = 0;
    // One frame in flight per unit.
    if (CommandList.IsEmpty() || !EchoList.IsEmpty())
        return nullptr;
    unsigned payload = 0;
    unsigned count = 0;
    for (const CCommand& c : CommandList) {
        if (payload + c.Length > payloadLimit)
            break;
        payload += c.Length;
        ++count;
    }
    if (count == 0)
        return nullptr;
    std::vector<uint8_t>& frame = m_TxFrame;
    frame.resize(payload + 5);
    frame[0] = FrameStart;
    frame[1] = uint8_t(payload & 0xFF);
    frame[2] = uint8_t(payload >> 8);
    unsigned pos = 3;
    unsigned n = 0;
    for (const CCommand& c : CommandList) {
        if (n++ == count)
            break;
        std::memcpy(frame.data() + pos, c.Bytes.data(), c.Length);
        pos += c.Length;
        EchoList.Items().emplace_back(c.Number, nowMs);
    }
    const uint16_t crc = Crc16(frame.data(), payload + 3);
    frame[payload + 3] = uint8_t(crc & 0xFF);
    frame[payload + 4] = uint8_t(crc >> 8);
    BytesSent += payload;
    LastSendTime = nowMs;
    m_FrameCommands = count;
    return &frame;
}

void CKVX_HdwKvxUnitEngine::FrameSent()
{
    for (unsigned i = 0; i < m_FrameCommands && !CommandList.IsEmpty(); ++i) {
        if (m_SpareBlocks.size() < kSpareCommandBlocks)
            m_SpareBlocks.push_back(std::move(CommandList.GetFirst()->Bytes));
        CommandList.PopFront();
    }
    m_FrameCommands = 0;
}

void CKVX_HdwKvxUnitEngine::FrameFailed()
{
    // Nothing is retried. The frame's echoes stay listed: the echo time-out
    // reports the unit as not answering.
    LostCommands += uint32_t(CommandList.GetLength());
    CommandList.DeleteAll();
    m_FrameCommands = 0;
}

// ---- echoes -----------------------------------------------------------------

CKVX_HdwKvxUnitEngine::EEcho CKVX_HdwKvxUnitEngine::TakeEcho(uint16_t number)
{
    CEchoWaiting* oldest = EchoList.GetFirst();
    if (oldest && oldest->Number == number) {
        EchoList.PopFront();
        if (EchoList.IsEmpty())
            m_SessionConfirmed = true;
        return EEcho::Matched;
    }
    if (m_SessionConfirmed)
        return EEcho::OutOfOrder;
    // A session start sent more than once: the echo of a later sending
    // answers for the earlier ones, whose frame was lost.
    auto& items = EchoList.Items();
    for (auto it = items.begin(); it != items.end(); ++it) {
        if (it->Number != number)
            continue;
        items.erase(items.begin(), std::next(it));
        EchoList.ToStart();
        if (items.empty())
            m_SessionConfirmed = true;
        return EEcho::Matched;
    }
    ++StaleEchoes;
    return EEcho::Stale;
}

bool CKVX_HdwKvxUnitEngine::IsEchoOverdue(uint32_t nowMs, unsigned timeoutMs) const
{
    const CEchoWaiting* oldest = EchoList.IsEmpty() ? nullptr : &*EchoList.begin();
    return oldest && uint32_t(nowMs - oldest->SendTime) >= timeoutMs;
}

// ---- reception --------------------------------------------------------------

inline CKVX_HdwKvxUnitEngine::EFeed CKVX_HdwKvxUnitEngine::RxStep(uint8_t byte, bool& frameOk)
{
    // A reset (end of a frame, a discarded frame) puts the raw index back to
    // 0, so the next byte lands in slot 0: a start byte there begins a good
    // frame, a stray byte there spoils the CRC of the frame that follows it.
    if (RawIndex < RawBuffer.size())
        RawBuffer[RawIndex] = byte;
    switch (RxState) {
    case ERxState::Hunting:
        ResetRxFields();
        if (byte == FrameStart) {
            EventPosList.DeleteAll();
            // The buffer is all zero at each frame start; only what the last
            // frame wrote needs clearing.
            std::memset(EventBuffer.data(), 0, std::min<size_t>(EventBufferUsed + 1, EventBufferSize));
            EventBufferUsed = 0;
            RxState = ERxState::LengthLow;
        }
        RawIndex = 1;
        return EFeed::NeedMore;
    case ERxState::LengthLow:
        LengthField = byte;
        RxState = ERxState::LengthHigh;
        break;
    case ERxState::LengthHigh:
        LengthField |= unsigned(byte & 0x0F) << 8;
        RxState = ERxState::CountLow;
        break;
    case ERxState::CountLow:
        EventCount = byte;
        RxState = ERxState::CountHigh;
        break;
    case ERxState::CountHigh:
        EventCount |= unsigned(byte & 0x0F) << 8;
        if (EventCount == 0) {
            ++MalformedFrames;
            ResetRxFields();
            return EFeed::NeedMore;
        }
        RxState = ERxState::RecordLength;
        break;
    case ERxState::RecordLength:
        if (byte == 0) {
            ++MalformedFrames;
            ResetRxFields();
            return EFeed::NeedMore;
        }
        EventPosList += uint32_t(WritePos);
        if (WritePos >= EventBufferSize) {
            ResetRxFields();
            return EFeed::Overflow;
        }
        EventBuffer[WritePos] = byte;
        EventBufferUsed = std::max(EventBufferUsed, WritePos);
        EventLength = byte;
        ++WritePos;
        EventBytes = 1;
        RxState = ERxState::RecordBody;
        break;
    case ERxState::RecordBody:
        if (WritePos >= EventBufferSize) {
            ResetRxFields();
            return EFeed::Overflow;
        }
        EventBuffer[WritePos] = byte;
        EventBufferUsed = std::max(EventBufferUsed, WritePos);
        if (EventBytes >= EventLength) {
            if (++EventsCompleted == EventCount) {
                RxState = ERxState::CrcLow;
            } else {
                ++WritePos;
                EventBytes = 0;
                RxState = ERxState::RecordLength;
            }
        } else {
            ++WritePos;
            ++EventBytes;
        }
        break;
    case ERxState::CrcLow:
        ReceivedCrc = byte;
        RxState = ERxState::CrcHigh;
        break;
    case ERxState::CrcHigh: {
        ReceivedCrc |= unsigned(byte) << 8;
        // The CRC covers everything before the two CRC bytes.
        const unsigned covered = RawIndex >= 1 ? RawIndex - 1 : 0;
        const uint16_t crc = Crc16(RawBuffer.data(), std::min<unsigned>(covered, unsigned(RawBuffer.size())));
        frameOk = crc == ReceivedCrc;
        if (!frameOk)
            ++CrcErrors;
        ResetRxFields();
        return EFeed::Frame;
    }
    default: RxState = ERxState::Hunting; return EFeed::NeedMore;
    }
    ++RawIndex;
    return EFeed::NeedMore;
}

CKVX_HdwKvxUnitEngine::EFeed CKVX_HdwKvxUnitEngine::FeedByte(uint8_t byte, bool& frameOk)
{
    return RxStep(byte, frameOk);
}

CKVX_HdwKvxUnitEngine::EFeed CKVX_HdwKvxUnitEngine::FeedBytes(
    const uint8_t* data, unsigned count, unsigned& used, bool& frameOk)
{
    unsigned i = 0;
    while (i < count) {
        // A start byte where the machine hunts with nothing kept: most reads
        // hold several whole frames. (After stray bytes the start byte lands
        // in the wrong slot and spoils the CRC: that goes byte by byte.)
        if (RxState == ERxState::Hunting && RawIndex == 0 && data[i] == FrameStart) {
            if (const unsigned n = TakeWholeFrame(data + i, count - i, frameOk)) {
                used = i + n;
                return EFeed::Frame;
            }
        }
        // A whole record (length byte and body) in the block, with room for
        // it in both buffers: take it in one step. The state afterwards is
        // the one the byte-by-byte steps leave.
        if (RxState == ERxState::RecordLength && data[i] != 0) {
            const unsigned length = data[i];
            const unsigned n = length + 1;
            const unsigned pos = WritePos;
            if (n <= count - i && pos + n <= EventBufferSize && RawIndex + n <= RawBuffer.size()) {
                EventPosList += uint32_t(pos);
                CopyRecordBytes(RawBuffer.data() + RawIndex, data + i, n);
                CopyRecordBytes(EventBuffer.data() + pos, data + i, n);
                EventBufferUsed = std::max(EventBufferUsed, pos + length);
                EventLength = length;
                RawIndex += n;
                i += n;
                if (++EventsCompleted == EventCount) {
                    // Stays on the record's last byte, as the last step does.
                    WritePos = pos + length;
                    EventBytes = length;
                    RxState = ERxState::CrcLow;
                } else {
                    WritePos = pos + n;
                    EventBytes = 0;
                }
                continue;
            }
        }
        // Inside an event body every byte but the last only lands in the raw
        // and event buffers and advances the counts: copy those as a block.
        if (RxState == ERxState::RecordBody && EventBytes < EventLength) {
            const unsigned n = std::min(count - i, EventLength - EventBytes);
            if (WritePos + n <= EventBufferSize && RawIndex + n <= RawBuffer.size()) {
                std::memcpy(RawBuffer.data() + RawIndex, data + i, n);
                std::memcpy(EventBuffer.data() + WritePos, data + i, n);
                WritePos += n;
                EventBufferUsed = std::max(EventBufferUsed, WritePos - 1);
                EventBytes += n;
                RawIndex += n;
                i += n;
                continue;
            }
        }
        const EFeed rc = RxStep(data[i++], frameOk);
        if (rc != EFeed::NeedMore) {
            used = i;
            return rc;
        }
    }
    used = i;
    return EFeed::NeedMore;
}

unsigned CKVX_HdwKvxUnitEngine::TakeWholeFrame(const uint8_t* data, unsigned count, bool& frameOk)
{
    constexpr unsigned kHeader = 5; // start byte, length field, event count
    if (count < kHeader)
        return 0;
    const unsigned events = data[3] | unsigned(data[4] & 0x0F) << 8;
    if (events == 0)
        return 0;
    // Walk the records by their lengths, as the machine does: the length
    // field is not trusted. Positions are relative to the event buffer.
    EventPosList.DeleteAll();
    unsigned end = kHeader;
    for (unsigned k = 0; k < events; ++k) {
        if (end >= count || data[end] == 0)
            return 0;
        EventPosList += uint32_t(end - kHeader);
        end += data[end] + 1u;
    }
    const unsigned payload = end - kHeader;
    if (end + 2 > count || payload > EventBufferSize || end + 2 > RawBuffer.size())
        return 0;
    // The buffer is all zero at each frame start: the payload overwrites the
    // head of what the last frame wrote, the rest is cleared.
    std::memcpy(EventBuffer.data(), data + kHeader, payload);
    const size_t lastUsed = std::min<size_t>(EventBufferUsed + 1, EventBufferSize);
    if (lastUsed > payload)
        std::memset(EventBuffer.data() + payload, 0, lastUsed - payload);
    EventBufferUsed = payload - 1;
    // Nothing reads the raw buffer past RawIndex, which ends at 0: the CRC
    // is taken where the bytes lie.
    const unsigned received = data[end] | unsigned(data[end + 1]) << 8;
    frameOk = Crc16(data, end) == received;
    if (!frameOk)
        ++CrcErrors;
    ResetRxFields();
    return end + 2;
}

void CKVX_HdwKvxUnitEngine::KeepUnread(const uint8_t* data, unsigned count)
{
    m_Unread.insert(m_Unread.end(), data, data + count);
}
