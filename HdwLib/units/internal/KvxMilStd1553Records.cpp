#include <HdwLib/units/internal/KvxMilStd1553Records.h>

#include <algorithm>

namespace hdw::units::mil1553 {

namespace {

// Descriptor word 0.
constexpr uint16_t CtrlBusB = 1u << 0;
constexpr uint16_t CtrlRetry = 1u << 1;
constexpr uint16_t CtrlRetryOtherBus = 1u << 2;
constexpr uint16_t CtrlRtToRt = 1u << 3;
constexpr uint16_t CtrlModeCode = 1u << 4;
constexpr uint16_t CtrlBroadcast = 1u << 5;

// Table entry word 0.
constexpr uint16_t EntryLegal = 1u << 0;
constexpr uint16_t EntryReport = 1u << 1;
constexpr uint16_t EntryBroadcastLegal = 1u << 2;

constexpr unsigned DescriptorWords = 8;

uint16_t ControlWord(const CKVX_HdwMilStd1553Message& m)
{
    uint16_t c = uint16_t(m.GapUs) << 8;
    if (m.Bus)
        c |= CtrlBusB;
    if (m.Retry != CKVX_HdwMilStd1553Message::RetryNone)
        c |= CtrlRetry;
    if (m.Retry == CKVX_HdwMilStd1553Message::RetryOtherBus)
        c |= CtrlRetryOtherBus;
    if (m.RtToRt)
        c |= CtrlRtToRt;
    if (m.IsModeCode())
        c |= CtrlModeCode;
    if (m.IsBroadcast())
        c |= CtrlBroadcast;
    return c;
}

} // namespace

void Compact(SramImage& image)
{
    std::stable_sort(
        image.begin(), image.end(), [](const SSramBlock& a, const SSramBlock& b) { return a.Address < b.Address; });
    SramImage out;
    for (SSramBlock& b : image) {
        if (!out.empty() && out.back().Address + out.back().Words.size() == b.Address)
            out.back().Words.insert(out.back().Words.end(), b.Words.begin(), b.Words.end());
        else
            out.push_back(std::move(b));
    }
    image = std::move(out);
}

void AddMessage(SramImage& image, unsigned descriptor, const CKVX_HdwMilStd1553Message& m, uint16_t id)
{
    const uint32_t buffer = BufferAddress(descriptor);
    image.push_back({DescriptorWords * descriptor,
        {ControlWord(m), m.GetCommandWord(), m.GetCommandWord2(), uint16_t(buffer), id, 0, 0, 0}});
    if (!m.Data.empty())
        image.push_back({buffer, m.Data});
}

SramImage MajorFrameImage(const CKVX_HdwMilStd1553MajorFrame& frame, unsigned half)
{
    const unsigned first = FirstDescriptor(half);
    SramImage image;
    for (unsigned i = 0; i < frame.Messages.size(); ++i)
        AddMessage(image, first + i, frame.Messages[i], uint16_t((half ? TableBId : 0) | i));
    Compact(image);
    // The table last, once the descriptors it names are in place.
    SSramBlock table{uint32_t(TablePage(half)) << 8, {uint16_t(frame.MinorFrames.size())}};
    for (const CKVX_HdwMilStd1553MinorFrame& minor : frame.MinorFrames) {
        table.Words.push_back(uint16_t(minor.PeriodUs / 10));
        table.Words.push_back(uint16_t(minor.Messages.size()));
        for (uint16_t i : minor.Messages)
            table.Words.push_back(uint16_t(first + i));
    }
    image.push_back(std::move(table));
    return image;
}

std::vector<uint16_t> RtTables(const CKVX_HdwMilStd1553RemoteTerminal& rt)
{
    std::vector<uint16_t> w(RtTableWords, 0);
    for (unsigned s = 0; s < 32; ++s) {
        const auto& rx = rt.Receive[s];
        const auto& tx = rt.Transmit[s];
        uint16_t rxEntry = 0, txEntry = 0;
        if (rx.Legal)
            rxEntry = EntryLegal | EntryReport | (rx.BroadcastLegal ? EntryBroadcastLegal : 0);
        if (tx.Legal)
            txEntry = EntryLegal | (tx.Report ? EntryReport : 0);
        w[2 * s] = rxEntry;
        w[2 * s + 1] = uint16_t(BufferBase + 32 * s);
        w[2 * (32 + s)] = txEntry;
        w[2 * (32 + s) + 1] = uint16_t(RtTransmitBufferBase + 32 * s);
        const auto& mc = rt.ModeCodes[s];
        w[RtModeCodeTable + 2 * s] = uint16_t((mc.Legal ? EntryLegal : 0) | (mc.Report ? EntryReport : 0));
        w[RtModeCodeTable + 2 * s + 1] = mc.DataWord;
    }
    return w;
}

std::vector<uint16_t> RtBuffers(const CKVX_HdwMilStd1553RemoteTerminal& rt)
{
    std::vector<uint16_t> w(RtBufferWords, 0);
    for (unsigned s = 0; s < 32; ++s) {
        const auto& data = rt.Transmit[s].Data;
        for (unsigned i = 0; i < data.size() && i < 32; ++i)
            w[RtTransmitBufferBase - BufferBase + 32 * s + i] = data[i];
    }
    return w;
}

void MessageFromAccess(const CKVX_HdwKvxMilStd1553Event& e, CKVX_HdwMilStd1553Message& m)
{
    const uint16_t c1 = e.CommandWord1, c2 = e.CommandWord2;
    m.TerminalAddress = uint8_t(c1 >> 11);
    m.Transmit = uint8_t((c1 >> 10) & 1);
    m.Subaddress = uint8_t((c1 >> 5) & 0x1F);
    m.WordCount = uint8_t(c1 & 0x1F);
    m.RtToRt = (e.TransferFlags & CKVX_HdwMilStd1553Message::FlagRtToRt) ? 1 : 0;
    m.TxTerminalAddress = m.RtToRt ? uint8_t(c2 >> 11) : 0;
    m.TxSubaddress = m.RtToRt ? uint8_t((c2 >> 5) & 0x1F) : 0;
    m.Data = e.Data;
    m.StatusWord1 = e.StatusWord1;
    m.StatusWord2 = e.StatusWord2;
    m.Flags = e.TransferFlags;
    m.TimeStamp = e.TimeStamp;
    m.Bus = (e.Field1 & AccessBusB) ? 1 : 0;
}

void ApplyTransfer(const CKVX_HdwKvxMilStd1553Event& e, CKVX_HdwMilStd1553Message& m)
{
    m.Data = e.Data;
    m.StatusWord1 = e.StatusWord1;
    m.StatusWord2 = e.StatusWord2;
    m.Flags = e.TransferFlags;
    m.TimeStamp = e.TimeStamp;
    m.TransferId = e.TransferId;
}

} // namespace hdw::units::mil1553
