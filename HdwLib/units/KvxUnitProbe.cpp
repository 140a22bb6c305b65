// The serial probe of the command-protocol units: does a unit of this kind
// answer on that port?
#include <HdwLib/units/KvxCommandUnit.h>
#include <HdwLib/units/internal/KvxWait.h>

#include <HdwLib/framework/HdwTimer.h>

namespace {
// Bytes taken from the link per read while probing.
constexpr unsigned kReadChunk = 4096;
// A unit that answers the probe with every expected kind settles this long
// (no further frame) before it is taken.
constexpr unsigned kProbeSettleMs = 20;
} // namespace

// ---- probing ----------------------------------------------------------------

template <class TOnFrame>
unsigned CKVX_HdwKvxCommandUnit::ReadProbeFrames(CKVX_HdwKvxUnitInstance* inst, TOnFrame&& onFrame)
{
    uint8_t chunk[kReadChunk];
    for (;;) {
        unsigned got = 0;
        if (UnitLinkRead(inst, chunk, kReadChunk, got) != 0)
            return HDW_ERR_LINK;
        // Bytes past the frame that ends the reading are lost: the probe
        // ends there and the link is closed afterwards.
        for (unsigned i = 0; i < got;) {
            unsigned used = 0;
            bool ok = false;
            const auto fed = inst->FeedBytes(chunk + i, got - i, used, ok);
            i += used;
            if (fed == CKVX_HdwKvxUnitEngine::EFeed::Overflow)
                return HDW_ERR_LINK;
            if (fed == CKVX_HdwKvxUnitEngine::EFeed::Frame) {
                const int stop = onFrame(ok);
                if (stop >= 0)
                    return unsigned(stop);
            }
        }
        if (got < kReadChunk)
            return HDW_ERR_PROBE_INCOMPLETE;
    }
}

unsigned CKVX_HdwKvxCommandUnit::ProcessUartEchoReception(CKVX_HdwKvxUnitInstance* inst)
{
    return ReadProbeFrames(inst, [](bool ok) { return ok ? 0 : 1; });
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
// and both echoes are in, a quiet spell of kProbeSettleMs (no further frame)
// accepts; nothing complete by ProbeTimeoutMs refuses.
unsigned CKVX_HdwKvxCommandUnit::ProbeByStatusShape(CKVX_HdwKvxUnitInstance* tmp)
{
    const unsigned expected = (m_Profile.AtxChannels ? 2u : 0u) | (m_Profile.CanChannels ? 4u : 0u);
    const uint8_t request[3] = {0, 1, 1};
    if (AttachSessionCommand(tmp, 1) != 0 || AttachCommand(tmp, 2, request, 3) != 0 || ProcessCommandList(tmp) != 0)
        return HDW_ERR_LINK;
    unsigned seen = 0;
    unsigned result = HDW_ERR_LINK;
    const uint64_t start = CKVX_HdwTimer::GetTickCount();
    uint64_t lastFrame = start;
    hdw::units::WaitUntil(ProbeTimeoutMs + kProbeSettleMs, [&] {
        const unsigned rc = ReadProbeFrames(tmp, [&](bool ok) {
            if (!ok)
                return -1;
            lastFrame = CKVX_HdwTimer::GetTickCount();
            for (uint32_t p : tmp->EventPosList) {
                const uint8_t* rec = tmp->EventBuffer.data() + p;
                const unsigned type = rec[1] >> 3;
                if (type == EventComEcho && rec[0] == 7)
                    tmp->TakeEcho(uint16_t(rec[6] | rec[7] << 8));
                else if (type == EventStatus && rec[0] == 10 && rec[6] < 8)
                    seen |= 1u << rec[6];
            }
            return (seen & ~expected) ? int(HDW_ERR_LINK) : -1;
        });
        if (rc != HDW_ERR_PROBE_INCOMPLETE)
            return true; // refused, or the link failed
        const bool complete = seen == expected && tmp->EchoList.IsEmpty();
        if (complete && CKVX_HdwTimer::GetElapsedTicks(lastFrame) >= kProbeSettleMs) {
            result = 0;
            return true;
        }
        if (CKVX_HdwTimer::GetElapsedTicks(start) >= ProbeTimeoutMs + (complete ? kProbeSettleMs : 0)) {
            result = complete ? 0u : unsigned(HDW_ERR_LINK);
            return true;
        }
        return false;
    });
    return result;
}

unsigned CKVX_HdwKvxCommandUnit::ProbeUnit(CKVX_HdwKvxUnitInstance* tmp)
{
    if (m_Profile.ProbeByStatus)
        return ProbeByStatusShape(tmp);
    // A closing session command is harmless to a running unit, and echoed.
    if (AttachSessionCommand(tmp, 1) != 0 || ProcessCommandList(tmp) != 0)
        return HDW_ERR_LINK;
    unsigned rc = HDW_ERR_PROBE_INCOMPLETE;
    hdw::units::WaitUntil(ProbeTimeoutMs, [&] {
        rc = ProcessUartEchoReception(tmp);
        return rc == 0 || rc == HDW_ERR_LINK;
    });
    return rc == 0 ? 0u : unsigned(HDW_ERR_LINK);
}
