// The command/echo/event protocol engine shared by every command-protocol
// unit driver, instantiated for both link bases.
#include <HdwLib/units/KvxCommandDevice.h>
#include <HdwLib/units/internal/KvxUnitAccess.h>

#include <cctype>
#include <cstring>
#include <string>
#include <type_traits>

namespace {
// Bytes taken from the link per read while receiving.
constexpr unsigned kReadChunk = 4096;
// Record blocks kept per instance for reuse: one full frame's worth of the
// smallest records.
constexpr size_t kSpareCommandBlocks = 1024;

// Eight bytes per step for the CRC of whole frames: Slice[k][v] is what byte
// v followed by k zero bytes contributes from a zero register, Slice[0]
// being the device's table. A byte-wise walk is one dependent table load
// per byte; this is eight independent ones per eight bytes.
struct CCrc16Slices {
    uint16_t Slice[8][256] = {};
    constexpr CCrc16Slices()
    {
        for (unsigned i = 0; i < 256; ++i) {
            unsigned crc = i << 8;
            for (int b = 0; b < 8; ++b)
                crc = (crc & 0x8000) ? ((crc << 1) ^ 0x1021) : (crc << 1);
            Slice[0][i] = uint16_t(crc);
        }
        for (unsigned k = 1; k < 8; ++k)
            for (unsigned i = 0; i < 256; ++i) {
                const unsigned prev = Slice[k - 1][i];
                Slice[k][i] = uint16_t(Slice[0][prev >> 8] ^ (prev << 8));
            }
    }
};
constexpr CCrc16Slices kCrc16Slices;

// CRC-16 (0x1021, MSB first, start 0xFFFF) over `count` bytes; the tail
// goes byte-wise through the device's 256-entry table.
inline uint16_t Crc16(const uint16_t* table, const uint8_t* bytes, unsigned count)
{
    const auto& t = kCrc16Slices.Slice;
    unsigned crc = 0xFFFF;
    unsigned i = 0;
    for (; i + 8 <= count; i += 8) {
        const uint8_t* b = bytes + i;
        crc = t[7][b[0] ^ (crc >> 8)] ^ t[6][b[1] ^ (crc & 0xFF)] ^ t[5][b[2]] ^ t[4][b[3]] ^ t[3][b[4]] ^
              t[2][b[5]] ^ t[1][b[6]] ^ t[0][b[7]];
    }
    for (; i < count; ++i)
        crc = (table[((crc >> 8) ^ bytes[i]) & 0xFF] ^ (crc << 8)) & 0xFFFF;
    return uint16_t(crc);
}
} // namespace

template <class B>
CKVX_HdwKvxCommandDevice<B>::CKVX_HdwKvxCommandDevice()
{
    BuildCrc16Table();
}

template <class B>
CKVX_HdwKvxCommandDevice<B>::~CKVX_HdwKvxCommandDevice() = default;

// ---- CRC --------------------------------------------------------------------

template <class B>
void CKVX_HdwKvxCommandDevice<B>::BuildCrc16Table()
{
    for (unsigned i = 0; i < 256; ++i) {
        uint16_t crc = uint16_t(i << 8);
        for (int b = 0; b < 8; ++b)
            crc = (crc & 0x8000) ? uint16_t((crc << 1) ^ 0x1021) : uint16_t(crc << 1);
        m_Crc16Table[i] = crc;
    }
}

template <class B>
uint16_t CKVX_HdwKvxCommandDevice<B>::CalcCRC16Word(uint16_t crc, uint8_t byte) const
{
    return uint16_t(m_Crc16Table[((crc >> 8) ^ byte) & 0xFF] ^ uint16_t(crc << 8));
}

template <class B>
uint16_t CKVX_HdwKvxCommandDevice<B>::CalcCRC16(const uint8_t* bytes, unsigned count) const
{
    return Crc16(m_Crc16Table, bytes, count);
}

// ---- instances and links ----------------------------------------------------

template <class B>
typename CKVX_HdwKvxCommandDevice<B>::CDeviceInstance* CKVX_HdwKvxCommandDevice<B>::CreateDeviceInstance()
{
    return hdw::units::WithChannelTables(new CDeviceInstance, m_Profile);
}

template <class B>
typename CKVX_HdwKvxCommandDevice<B>::CDeviceInstance* CKVX_HdwKvxCommandDevice<B>::GetProtocolInstance(
    unsigned instance)
{
    return static_cast<CDeviceInstance*>(this->GetDeviceInstance(instance));
}

template <class B>
bool CKVX_HdwKvxCommandDevice<B>::IsEthernetInstance(CDeviceInstance* instance) const
{
    if constexpr (std::is_base_of_v<CKVX_HdwHoeFtdiUartBridgedDevice, B>)
        return instance && instance->EthernetMode != 0;
    else
        return false;
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::DoLinkWrite(CDeviceInstance* instance, uint8_t* data, unsigned count)
{
    if constexpr (std::is_base_of_v<CKVX_HdwHoeFtdiUartBridgedDevice, B>) {
        // A frame larger than one HOE packet (a unit that takes 4000-byte
        // frames over Ethernet) goes out in consecutive packets: the unit
        // reads its link as a byte stream. Should a packet be lost, the
        // frame fails its CRC and the echo time-out reports it.
        if (IsEthernetInstance(instance) && count > CKVX_HdwHoe::MaxPayload) {
            for (unsigned done = 0; done < count;) {
                const unsigned n = std::min(count - done, CKVX_HdwHoe::MaxPayload);
                if (const unsigned rc = this->LinkWrite(instance, data + done, n))
                    return rc;
                done += n;
            }
            return 0;
        }
        return this->LinkWrite(instance, data, count);
    } else {
        return this->Com_Write(instance, data, count);
    }
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::DoLinkRead(CDeviceInstance* instance, uint8_t* buffer, unsigned maxBytes,
                                                 unsigned& bytesRead)
{
    if constexpr (std::is_base_of_v<CKVX_HdwHoeFtdiUartBridgedDevice, B>)
        return this->LinkRead(instance, buffer, maxBytes, bytesRead);
    else
        return this->Com_Read(instance, buffer, maxBytes, bytesRead);
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::DoLinkGetReadBufferBytes(CDeviceInstance* instance, unsigned& count)
{
    if constexpr (std::is_base_of_v<CKVX_HdwHoeFtdiUartBridgedDevice, B>)
        return this->LinkGetReadBufferBytes(instance, count);
    else
        return this->Com_GetReadBufferBytes(instance, count);
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::GetPayloadLimit(CDeviceInstance* instance)
{
    return IsEthernetInstance(instance) ? m_Profile.EthernetPayloadLimit : PayloadLimitUart;
}

// ---- commands ---------------------------------------------------------------

template <class B>
uint16_t CKVX_HdwKvxCommandDevice<B>::GetLastCommandNum(CDeviceInstance* instance)
{
    return instance->CommandCounter++;
}

template <class B>
uint16_t CKVX_HdwKvxCommandDevice<B>::GetLastCommandNum(unsigned instance)
{
    CDeviceInstance* inst = GetProtocolInstance(instance);
    return inst ? GetLastCommandNum(inst) : 0;
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::AttachCommand(CDeviceInstance* instance, uint8_t code, const uint8_t* params,
                                                    unsigned paramCount)
{
    if (!instance || paramCount + 4 > 255)
        return 2;
    CCommand cmd;
    cmd.Code = code;
    cmd.Number = GetLastCommandNum(instance);
    cmd.EchoExpected = 1;
    cmd.Length = paramCount + 4;
    if (!instance->SpareCommandBytes.empty()) {
        cmd.Bytes = std::move(instance->SpareCommandBytes.back());
        instance->SpareCommandBytes.pop_back();
    }
    cmd.Bytes.resize(cmd.Length);
    cmd.Bytes[0] = uint8_t(cmd.Length);
    cmd.Bytes[1] = uint8_t(code | 0x80);
    cmd.Bytes[2] = uint8_t(cmd.Number & 0xFF);
    cmd.Bytes[3] = uint8_t(cmd.Number >> 8);
    if (paramCount)
        std::memcpy(cmd.Bytes.data() + 4, params, paramCount);
    instance->CommandList += std::move(cmd);
    return 0;
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::AttachCommand(unsigned instance, uint8_t code, const uint8_t* params,
                                                    unsigned paramCount)
{
    return AttachCommand(GetProtocolInstance(instance), code, params, paramCount);
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::AttachSessionCommand(CDeviceInstance* instance, unsigned char close)
{
    uint8_t p[3];
    p[0] = uint8_t((close ? 0 : 1) | ((m_LinkSelector & 3) << 4));
    uint16_t watchdog = 0;
    if (m_SessionWatchdog)
        watchdog = uint16_t(0x8000 | std::min(m_SessionWatchdog / 10, 1023u));
    p[1] = uint8_t(watchdog & 0xFF);
    p[2] = uint8_t(watchdog >> 8);
    return AttachCommand(instance, 1, p, 3);
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::AttachSessionCommand(unsigned instance, unsigned char close)
{
    return AttachSessionCommand(GetProtocolInstance(instance), close);
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::AttachStatusRequestCommand(unsigned instance, unsigned channel, unsigned kind)
{
    uint8_t p[3] = {0, 0, 0};
    // A unit with more than two CAN channels reads byte 6 bit n as CAN
    // channel n: its transmit state (kind 3) is part of the kind-2 answer.
    if (kind == 3 && m_Profile.CanChannels > 2)
        kind = 2;
    // The request has one bit per channel for eight channels; a channel
    // beyond that cannot be asked for.
    if ((kind == 1 || kind == 2) && channel >= 8)
        return 2;
    if (kind == 3 && channel + 2 >= 8)
        return 2;
    if (kind == 1)
        p[1] = uint8_t(1u << channel);
    else if (kind == 2)
        p[2] = uint8_t(1u << channel);
    else if (kind == 3)
        p[2] = uint8_t(1u << (channel + 2));
    return AttachCommand(GetProtocolInstance(instance), 2, p, 3);
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::ProcessCommandList(CDeviceInstance* inst)
{
    if (!inst)
        return 2;
    if (inst->CommandList.IsEmpty())
        return 0;
    // One frame in flight per unit.
    if (!inst->EchoList.IsEmpty())
        return 0;
    const unsigned limit = GetPayloadLimit(inst);
    unsigned payload = 0;
    unsigned count = 0;
    for (const CCommand& c : inst->CommandList) {
        if (payload + c.Length > limit)
            break;
        payload += c.Length;
        ++count;
    }
    if (count == 0)
        return 0;
    std::vector<uint8_t>& frame = inst->TxFrame;
    frame.resize(payload + 5);
    frame[0] = FrameStart;
    frame[1] = uint8_t(payload & 0xFF);
    frame[2] = uint8_t(payload >> 8);
    unsigned pos = 3;
    const uint32_t now = uint32_t(CKVX_HdwTimer::GetTickCount());
    unsigned n = 0;
    for (const CCommand& c : inst->CommandList) {
        if (n++ == count)
            break;
        std::memcpy(frame.data() + pos, c.Bytes.data(), c.Length);
        pos += c.Length;
        inst->EchoList += CEchoWaiting(c.Number, now);
    }
    const uint16_t crc = CalcCRC16(frame.data(), payload + 3);
    frame[payload + 3] = uint8_t(crc & 0xFF);
    frame[payload + 4] = uint8_t(crc >> 8);
    inst->BytesSent += payload;
    inst->LastSendTime = now;
    if (DoLinkWrite(inst, frame.data(), unsigned(frame.size())) != 0) {
        inst->CommandList.DeleteAll();
        return 14;
    }
    for (unsigned i = 0; i < count; ++i) {
        if (inst->SpareCommandBytes.size() < kSpareCommandBlocks)
            inst->SpareCommandBytes.push_back(std::move(inst->CommandList.GetFirst()->Bytes));
        inst->CommandList.PopFront();
    }
    return 0;
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::ProcessCommandList(unsigned instance)
{
    return ProcessCommandList(GetProtocolInstance(instance));
}

// ---- reception --------------------------------------------------------------

namespace {
// Copies a record of `n` bytes (1 to 256), writing nothing past `n`.
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

// One byte through the receive machine; FeedByte's work, kept here so that
// the block feed below runs it inline.
template <class D>
inline unsigned RxStep(typename D::CDeviceInstance* inst, uint8_t byte, bool& frameOk, const uint16_t* crcTable)
{
    // A reset (end of a frame, a discarded frame) puts the raw index back to
    // 0, so the next byte lands in slot 0: a start byte there begins a good
    // frame, a stray byte there spoils the CRC of the frame that follows it.
    if (inst->RawIndex < inst->RawBuffer.size())
        inst->RawBuffer[inst->RawIndex] = byte;
    switch (inst->RxState) {
    case 0:
        inst->ResetRxState();
        if (byte == D::FrameStart) {
            inst->EventPosList.DeleteAll();
            // The buffer is all zero at each frame start; only what the last
            // frame wrote needs clearing.
            std::memset(inst->EventBuffer.data(), 0, std::min<size_t>(inst->EventBufferUsed + 1, D::EventBufferSize));
            inst->EventBufferUsed = 0;
            inst->RxState = 1;
        }
        inst->RawIndex = 1;
        return 0;
    case 1:
        inst->LengthField = byte;
        inst->RxState = 2;
        break;
    case 2:
        inst->LengthField |= unsigned(byte & 0x0F) << 8;
        inst->RxState = 3;
        break;
    case 3:
        inst->EventCount = byte;
        inst->RxState = 4;
        break;
    case 4:
        inst->EventCount |= unsigned(byte & 0x0F) << 8;
        if (inst->EventCount == 0) {
            inst->ResetRxState();
            return 0;
        }
        inst->RxState = 5;
        break;
    case 5:
        if (byte == 0) {
            inst->ResetRxState();
            return 0;
        }
        inst->EventPosList += uint32_t(inst->WritePos);
        if (inst->WritePos >= D::EventBufferSize) {
            inst->ResetRxState();
            return 14;
        }
        inst->EventBuffer[inst->WritePos] = byte;
        inst->EventBufferUsed = std::max(inst->EventBufferUsed, inst->WritePos);
        inst->EventLength = byte;
        ++inst->WritePos;
        inst->EventBytes = 1;
        inst->RxState = 6;
        break;
    case 6:
        if (inst->WritePos >= D::EventBufferSize) {
            inst->ResetRxState();
            return 14;
        }
        inst->EventBuffer[inst->WritePos] = byte;
        inst->EventBufferUsed = std::max(inst->EventBufferUsed, inst->WritePos);
        if (inst->EventBytes >= inst->EventLength) {
            if (++inst->EventsCompleted == inst->EventCount) {
                inst->RxState = 7;
            } else {
                ++inst->WritePos;
                inst->EventBytes = 0;
                inst->RxState = 5;
            }
        } else {
            ++inst->WritePos;
            ++inst->EventBytes;
        }
        break;
    case 7:
        inst->ReceivedCrc = byte;
        inst->RxState = 8;
        break;
    case 8: {
        inst->ReceivedCrc |= unsigned(byte) << 8;
        // The CRC covers everything before the two CRC bytes.
        const unsigned covered = inst->RawIndex >= 1 ? inst->RawIndex - 1 : 0;
        const uint16_t crc =
            Crc16(crcTable, inst->RawBuffer.data(), std::min<unsigned>(covered, unsigned(inst->RawBuffer.size())));
        frameOk = crc == inst->ReceivedCrc;
        if (!frameOk)
            ++inst->CrcErrors;
        inst->ResetRxState();
        return 1;
    }
    default:
        inst->RxState = 0;
        return 0;
    }
    ++inst->RawIndex;
    return 0;
}
} // namespace

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::FeedByte(CDeviceInstance* inst, uint8_t byte, bool& frameOk)
{
    return RxStep<CKVX_HdwKvxCommandDevice<B>>(inst, byte, frameOk, m_Crc16Table);
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::FeedBytes(CDeviceInstance* inst, const uint8_t* data, unsigned count,
                                                unsigned& used, bool& frameOk)
{
    unsigned i = 0;
    while (i < count) {
        // A whole record (length byte and body) in the block, with room for
        // it in both buffers: take it in one step. The state afterwards is
        // the one the byte-by-byte steps leave.
        if (inst->RxState == 5 && data[i] != 0) {
            const unsigned length = data[i];
            const unsigned n = length + 1;
            const unsigned pos = inst->WritePos;
            if (n <= count - i && pos + n <= EventBufferSize && inst->RawIndex + n <= inst->RawBuffer.size()) {
                inst->EventPosList += uint32_t(pos);
                CopyRecordBytes(inst->RawBuffer.data() + inst->RawIndex, data + i, n);
                CopyRecordBytes(inst->EventBuffer.data() + pos, data + i, n);
                inst->EventBufferUsed = std::max(inst->EventBufferUsed, pos + length);
                inst->EventLength = length;
                inst->RawIndex += n;
                i += n;
                if (++inst->EventsCompleted == inst->EventCount) {
                    // Stays on the record's last byte, as the last step does.
                    inst->WritePos = pos + length;
                    inst->EventBytes = length;
                    inst->RxState = 7;
                } else {
                    inst->WritePos = pos + n;
                    inst->EventBytes = 0;
                }
                continue;
            }
        }
        // Inside an event body every byte but the last only lands in the raw
        // and event buffers and advances the counts: copy those as a block.
        if (inst->RxState == 6 && inst->EventBytes < inst->EventLength) {
            const unsigned n = std::min(count - i, inst->EventLength - inst->EventBytes);
            if (inst->WritePos + n <= EventBufferSize && inst->RawIndex + n <= inst->RawBuffer.size()) {
                std::memcpy(inst->RawBuffer.data() + inst->RawIndex, data + i, n);
                std::memcpy(inst->EventBuffer.data() + inst->WritePos, data + i, n);
                inst->WritePos += n;
                inst->EventBufferUsed = std::max(inst->EventBufferUsed, inst->WritePos - 1);
                inst->EventBytes += n;
                inst->RawIndex += n;
                i += n;
                continue;
            }
        }
        if (const unsigned rc = RxStep<CKVX_HdwKvxCommandDevice<B>>(inst, data[i++], frameOk, m_Crc16Table)) {
            used = i;
            return rc;
        }
    }
    used = i;
    return 0;
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::ReceiveBytes(unsigned instance, CDeviceInstance* inst, const uint8_t* data,
                                                   unsigned count)
{
    while (count > 0) {
        unsigned used = 0;
        bool ok = false;
        const unsigned rc = FeedBytes(inst, data, count, used, ok);
        if (rc == 14)
            return 14;
        if (rc == 1 && ok && ProcessEventPayload(instance) != 0) {
            inst->ResetRxState();
            return 14;
        }
        data += used;
        count -= used;
    }
    return 0;
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::ProcessReception(unsigned instance)
{
    CDeviceInstance* inst = GetProtocolInstance(instance);
    if (!inst)
        return 14;
    // Everything queued, a chunk at a time, without asking for the count
    // first: a read that does not fill the chunk has taken all there was, so
    // a busy tick costs one read call and an idle one a single empty read.
    uint8_t chunk[kReadChunk];
    for (;;) {
        unsigned got = 0;
        if (DoLinkRead(inst, chunk, kReadChunk, got) != 0)
            return 14;
        if (got > 0 && ReceiveBytes(instance, inst, chunk, got) != 0)
            return 14;
        if (got < kReadChunk)
            return 0;
    }
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::ProcessEventPayload(unsigned instance)
{
    CDeviceInstance* inst = GetProtocolInstance(instance);
    if (!inst)
        return 14;
    // The caller holds the device lock: the port list stays as it is for
    // the whole pass, and each event finds its port in the routes.
    inst->Routes.Build(inst->GetPortList());
    unsigned rc = 0;
    for (uint32_t p : inst->EventPosList) {
        const unsigned length = inst->EventBuffer[p];
        const unsigned typeByte = inst->EventBuffer[p + 1];
        rc = ProcessEventRecord(instance, typeByte >> 3, typeByte & 7, length, inst->EventBuffer.data() + p + 2);
        if (rc)
            break;
    }
    inst->Routes.Clear();
    return rc;
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::ProcessEventRecord(unsigned instance, unsigned type, unsigned subField,
                                                         unsigned length, uint8_t* params)
{
    // A type this unit does not send is an error like an unknown one.
    if (type >= 32 || !(m_Profile.Events & (1u << type)))
        return 11;
    switch (type) {
    case EventComEcho: return ProcessEventComEcho(instance, subField, length, params);
    case EventCriticalFailure: return ProcessEventCriticalFailure(instance, subField, length, params);
    case EventA429Rx: return ProcessEventA429Rx(instance, subField, length, params);
    case EventA429Tx: return ProcessEventA429Tx(instance, subField, length, params);
    case EventStatus: return ProcessEventStatus(instance, subField, length, params);
    case EventCanRx: return ProcessEventCanRx(instance, subField, length, params);
    case EventCanTx: return ProcessEventCanTx(instance, subField, length, params);
    case EventMilStd1553: return ProcessEventMilStd1553(instance, subField, length, params);
    case EventUartRx: return ProcessEventUartRx(instance, subField, length, params);
    case EventUartTx: return ProcessEventUartTx(instance, subField, length, params);
    default: return 11;
    }
}

// ---- waiting, probing -------------------------------------------------------

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::WaitAllCommandEchoes(unsigned instance, unsigned timeoutMs)
{
    CDeviceInstance* inst = GetProtocolInstance(instance);
    if (!inst)
        return 14;
    const uint64_t start = CKVX_HdwTimer::GetTickCount();
    while (CKVX_HdwTimer::GetElapsedTicks(start) < timeoutMs) {
        this->DeviceLock(instance);
        const bool empty = inst->EchoList.IsEmpty();
        this->DeviceUnlock(instance);
        if (empty)
            return 0;
        CKVX_HdwTimer::MsSleep(1);
    }
    this->DeviceLock(instance);
    const bool empty = inst->EchoList.IsEmpty();
    this->DeviceUnlock(instance);
    return empty ? 0 : 14;
}

template <class B>
template <class TOnFrame>
unsigned CKVX_HdwKvxCommandDevice<B>::ReadSerialFrames(CDeviceInstance* inst, TOnFrame&& onFrame)
{
    unsigned waiting = 0;
    if (this->Com_GetReadBufferBytes(inst, waiting) != 0)
        return 14;
    uint8_t chunk[kReadChunk];
    while (waiting > 0) {
        unsigned got = 0;
        // Bytes past the frame that ends the reading are lost: the probe
        // ends there and the link is closed afterwards.
        if (this->Com_Read(inst, chunk, std::min(waiting, kReadChunk), got) != 0)
            return 14;
        if (got == 0)
            break;
        waiting -= std::min(waiting, got);
        for (unsigned i = 0; i < got;) {
            unsigned used = 0;
            bool ok = false;
            const unsigned rc = FeedBytes(inst, chunk + i, got - i, used, ok);
            i += used;
            if (rc == 14)
                return 14;
            if (rc == 1) {
                const int stop = onFrame(ok);
                if (stop >= 0)
                    return unsigned(stop);
            }
        }
    }
    return 22;
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::ProcessUartEchoReception(CDeviceInstance* inst)
{
    return ReadSerialFrames(inst, [](bool ok) { return ok ? 0 : 1; });
}

// Recognising a unit by the shape of its status answer. Units of different
// kinds may share their USB identity (vendor and product strings and
// description), so an echo alone does not tell them apart. The probe then
// sends, in one frame, the closing session command and one status request
// asking for ARINC 429 transmitter 0 (kind 1) and CAN channel 0 (kind 2).
// Both commands belong to every unit's command set and change nothing, and a
// unit ignores request bits of channels it does not have; so whatever kind
// of unit is on the line, it reads them correctly and answers with a
// kind-1 event when it has ARINC 429 transmitters and a kind-2 event when it
// has CAN channels. The port is this kind of unit when exactly the kinds it
// expects come: an unexpected kind refuses at once; once every expected kind
// and both echoes are in, a quiet spell of ProbeSettleMs (no further frame)
// accepts; nothing complete by ProbeTimeoutMs refuses.
namespace {
constexpr unsigned ProbeSettleMs = 20;
} // namespace

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::ProbeByStatusShape(CDeviceInstance* tmp)
{
    const unsigned expected = (m_Profile.AtxChannels ? 2u : 0u) | (m_Profile.CanChannels ? 4u : 0u);
    const uint8_t request[3] = {0, 1, 1};
    if (AttachSessionCommand(tmp, 1) != 0 || AttachCommand(tmp, 2, request, 3) != 0 || ProcessCommandList(tmp) != 0)
        return 14;
    unsigned seen = 0;
    const uint64_t start = CKVX_HdwTimer::GetTickCount();
    uint64_t lastFrame = start;
    for (;;) {
        const unsigned rc = ReadSerialFrames(tmp, [&](bool ok) {
            if (!ok)
                return -1;
            lastFrame = CKVX_HdwTimer::GetTickCount();
            for (uint32_t p : tmp->EventPosList) {
                const uint8_t* rec = tmp->EventBuffer.data() + p;
                const unsigned type = rec[1] >> 3;
                if (type == EventComEcho && rec[0] == 7) {
                    const uint16_t number = uint16_t(rec[6] | rec[7] << 8);
                    CEchoWaiting* oldest = tmp->EchoList.GetFirst();
                    if (oldest && oldest->Number == number)
                        tmp->EchoList.PopFront();
                } else if (type == EventStatus && rec[0] == 10 && rec[6] < 8) {
                    seen |= 1u << rec[6];
                }
            }
            return (seen & ~expected) ? 14 : -1;
        });
        if (rc != 22)
            return 14;
        const bool complete = seen == expected && tmp->EchoList.IsEmpty();
        if (complete && CKVX_HdwTimer::GetElapsedTicks(lastFrame) >= ProbeSettleMs)
            return 0;
        if (CKVX_HdwTimer::GetElapsedTicks(start) >= ProbeTimeoutMs + (complete ? ProbeSettleMs : 0))
            return complete ? 0 : 14;
        CKVX_HdwTimer::MsSleep(1);
    }
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::ProbeWithInstance(CDeviceInstance* tmp)
{
    tmp->Reset();
    if (this->Com_Open(tmp) != 0)
        return 14;
    unsigned result = 14;
    if (m_Profile.ProbeByStatus) {
        result = ProbeByStatusShape(tmp);
    } else if (AttachSessionCommand(tmp, 1) == 0 && ProcessCommandList(tmp) == 0) {
        // A closing session command is harmless to a running unit, and echoed.
        // The probe's instance is not in Ethernet mode: the frame goes out on the serial link.
        const uint64_t start = CKVX_HdwTimer::GetTickCount();
        for (;;) {
            const unsigned rc = ProcessUartEchoReception(tmp);
            if (rc == 0) {
                result = 0;
                break;
            }
            if (rc == 14 || CKVX_HdwTimer::GetElapsedTicks(start) >= ProbeTimeoutMs)
                break;
            CKVX_HdwTimer::MsSleep(1);
        }
    }
    this->Com_Close(tmp);
    tmp->Reset();
    return result;
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::ProbeUartLink(CKVX_HdwFtdiUartBridgedDevice::CDeviceInstance* tmp,
                                                    const CKVX_String& portName)
{
    auto* inst = dynamic_cast<CDeviceInstance*>(tmp);
    if (!inst)
        return 14;
    inst->PortName = portName;
    return ProbeWithInstance(inst);
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::CheckUartLink(const CKVX_String& portName)
{
    std::unique_ptr<CDeviceInstance> tmp(CreateDeviceInstance());
    tmp->PortName = portName;
    return ProbeWithInstance(tmp.get());
}

// ---- open, close, tick ------------------------------------------------------

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::Open(unsigned instance)
{
    CDeviceInstance* inst = GetProtocolInstance(instance);
    if (!inst)
        return 14;
    if (inst->IsOpen())
        return 0;
    if (B::Open(instance) != 0)
        return 14;
    this->DeviceLock(instance);
    inst->Reset();
    // Close, then open: the unit always starts a fresh session.
    AttachSessionCommand(inst, 1);
    AttachSessionCommand(inst, 0);
    const unsigned sent = ProcessCommandList(inst);
    this->DeviceUnlock(instance);
    // The echoes get the device's echo time-out (DefaultEchoTimeoutMs unless
    // the application set another), as every later command does.
    if (sent != 0 || WaitAllCommandEchoes(instance, m_EchoTimeout) != 0) {
        // Closed under the lock first: the tick reads the link of an open
        // instance. The link itself closes outside it, as in Close.
        this->DeviceLock(instance);
        inst->Reset();
        inst->SetOpen(false);
        this->DeviceUnlock(instance);
        if constexpr (std::is_base_of_v<CKVX_HdwHoeFtdiUartBridgedDevice, B>)
            this->LinkClose(inst);
        else
            this->Com_Close(inst);
        return 14;
    }
    return 0;
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::OnClosing(unsigned instance)
{
    CDeviceInstance* inst = GetProtocolInstance(instance);
    if (!inst)
        return 2;
    this->DeviceLock(instance);
    // The unit may still wait for an echo of ours: the close goes out regardless.
    inst->EchoList.DeleteAll();
    inst->CommandList.DeleteAll();
    AttachSessionCommand(inst, 1);
    ProcessCommandList(inst);
    inst->CommandList.DeleteAll();
    inst->EchoList.DeleteAll();
    this->DeviceUnlock(instance);
    return 0;
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::Close(unsigned instance)
{
    CDeviceInstance* inst = GetProtocolInstance(instance);
    if (!inst || !inst->IsOpen() || !this->CanClose(instance))
        return 0;
    OnClosing(instance);
    return B::Close(instance);
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::HdwTimerStartDeviceIntanceHandler(unsigned instance, uint64_t)
{
    if (ProcessReception(instance) != 0)
        return 14;
    CDeviceInstance* inst = GetProtocolInstance(instance);
    CEchoWaiting* oldest = inst->EchoList.GetFirst();
    if (!oldest)
        return 0;
    const uint32_t now = uint32_t(CKVX_HdwTimer::GetTickCount());
    return (now - oldest->SendTime) < m_EchoTimeout ? 0u : 14u;
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::HdwTimerEndDeviceIntanceHandler(unsigned instance, uint64_t)
{
    CDeviceInstance* inst = GetProtocolInstance(instance);
    // A unit that watches its host hears from it at least every
    // KeepAliveIdleMs: when a tick has nothing to send and nothing is in
    // flight, the keep-alive fills the silence.
    if (inst && m_Profile.KeepAliveIdleMs && inst->CommandList.IsEmpty() && inst->EchoList.IsEmpty() &&
        uint32_t(CKVX_HdwTimer::GetTickCount()) - inst->LastSendTime >= m_Profile.KeepAliveIdleMs)
        AttachKeepAliveCommand(instance);
    const unsigned rc = ProcessCommandList(instance) != 0 ? 14u : 0u;
    // The signal services make their descriptors readable for the whole
    // tick at once, as the tick's last act.
    if (inst)
        for (CKVX_HdwPort* port : inst->GetPortList())
            for (CKVX_HdwService* service : port->GetServiceList())
                if (service->GetServiceType() == HDW_SERVICE_SIGNAL)
                    static_cast<CKVX_HdwSignalService*>(service)->PublishReadiness();
    return rc;
}

// The unit's commands, events, ports and services.
#include <HdwLib/units/internal/KvxCommands.inl>
#include <HdwLib/units/internal/KvxEvents.inl>
#include <HdwLib/units/internal/KvxPortsServices.inl>

// ---- what the unit classes share -------------------------------------------

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::ProfileChannelCount(unsigned kind) const
{
    switch (kind) {
    case 0: return m_Profile.UartChannels;
    case 1: return m_Profile.AtxChannels;
    case 2: return m_Profile.ArxChannels;
    case 3: return m_Profile.CanChannels;
    case 5: return m_Profile.MilStd1553Channels;
    default: return 0;
    }
}

template <class B>
CKVX_HdwPort* CKVX_HdwKvxCommandDevice<B>::CreateProfilePort(unsigned kind, CKVX_HdwObject* parent, unsigned index,
                                                             const CKVX_String& name)
{
    if (hdw::units::ChannelNumber(name) >= ProfileChannelCount(kind))
        return nullptr;
    switch (kind) {
    case 0: return new CUartPort(parent, index, name);
    case 1: return new CArinc429TxPort(parent, index, name);
    case 2: return new CArinc429RxPort(parent, index, name);
    case 3: return new CCanPort(parent, index, name);
    case 5: return new CMilStd1553Port(parent, index, name);
    default: return nullptr;
    }
}

template <class B>
unsigned CKVX_HdwKvxCommandDevice<B>::HardwareIdNumber(const CKVX_List<CKVX_String>& ids)
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

template class CKVX_HdwKvxCommandDevice<CKVX_HdwFtdiUartBridgedDevice>;
template class CKVX_HdwKvxCommandDevice<CKVX_HdwHoeFtdiUartBridgedDevice>;
