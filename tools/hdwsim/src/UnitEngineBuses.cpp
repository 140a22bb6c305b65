// The emulated unit's ARINC 429, CAN and UART channels: words and frames
// delivered to the host, the label tables and UART pushes.
#include "UnitEngineImpl.h"

#include <algorithm>

namespace hdwsim {

void UnitEngine::Impl::A429Deliver(unsigned ch, uint32_t word, uint64_t atNs)
{
    // A unit with more than eight channels of a direction appends the
    // channel's upper bits (ch >> 3) to the record; the sub-field keeps ch & 7.
    uint8_t params[11];
    le::Put32(params, Clock(atNs));
    le::Put32(params + 4, word);
    params[8] = static_cast<uint8_t>(ch >> 3);
    Event(EventA429Tx, ch, params, Model.Arinc429TxChannels > 8 ? 9 : 8);
    ++Count.A429Transmitted[ch];

    // Transmitter k is wired to receiver k.
    if (ch >= Model.Arinc429RxChannels)
        return;
    const A429Rx& r = Rx[ch];
    const unsigned label = word & 0xFF;
    if (!r.Enabled)
        ++Count.A429RxDisabled[ch];
    else if (r.LowSpeed == Tx[ch].HighSpeed)
        ++Count.A429SpeedMismatch[ch];
    else if (!(r.Filter[label >> 3] & (1u << (label & 7))))
        ++Count.A429FilterDropped[ch];
    else if (A429WireLosses[ch] > 0) {
        --A429WireLosses[ch];
        ++Count.A429WireLost[ch];
    } else {
        if (A429ParityFaults > 0) {
            --A429ParityFaults;
            le::Put32(params + 4, word ^ 0x80000000u);
        }
        le::Put16(params + 8, 0);
        params[10] = static_cast<uint8_t>(ch >> 3);
        Event(EventA429Rx, ch, params, Model.Arinc429RxChannels > 8 ? 11 : 10);
        ++Count.A429Received[ch];
    }
}

bool UnitEngine::Impl::A429LabelCommand(unsigned code, const uint8_t* rec, size_t len, uint64_t nowNs)
{
    const unsigned ch = rec[4];
    if (len !=
            (code == CodeA429LabelCtrl           ? 14u
                    : code == CodeA429LabelReset ? 5u
                                                 : 10u) ||
        ch >= Model.Arinc429TxChannels)
        return false;
    A429Tx& t = Tx[ch];
    if (code == CodeA429LabelReset) {
        t.Labels.fill(A429Label{});
        t.LabelsDefined = 0;
        ++Count.A429LabelResets[ch];
        return true;
    }
    A429Label& l = t.Labels[rec[5]];
    if (code == CodeA429LabelCtrl) {
        const uint32_t ctrl = le::Get32(rec + 6);
        if (!l.Defined)
            ++t.LabelsDefined;
        l.Defined = true;
        l.PeriodNs = ((ctrl & 0x3FF) + 1) * NsPerMs;
        l.Enabled = (ctrl & (1u << 10)) != 0;
        l.Once = (ctrl & (1u << 11)) != 0;
        l.Repeat = le::Get16(rec + 12);
        l.Sent = 0;
        l.OncePending = false;
        l.NextNs = nowNs + le::Get16(rec + 10) * NsPerMs;
        ++Count.A429LabelCtrls[ch];
        return true;
    }
    // Label data: the word the label carries from now on.
    if (!l.HasData)
        l.NextNs = std::max(l.NextNs, nowNs);
    l.Word = le::Get32(rec + 6);
    l.HasData = true;
    l.OncePending = l.Once;
    ++Count.A429LabelData[ch];
    return true;
}

void UnitEngine::Impl::A429SendLabels(unsigned ch, uint64_t nowNs)
{
    A429Tx& t = Tx[ch];
    if (!t.Enabled || t.LabelsDefined == 0)
        return;
    // Everything due by now, sent in time order (label order on a tie).
    std::vector<std::pair<uint64_t, uint32_t>> due;
    for (A429Label& l : t.Labels) {
        if (!l.Defined || !l.Enabled || !l.HasData)
            continue;
        if (l.Once) {
            if (l.OncePending)
                due.emplace_back(nowNs, l.Word);
            l.OncePending = false;
            continue;
        }
        for (; l.Cyclic() && l.NextNs <= nowNs; l.NextNs += l.PeriodNs, ++l.Sent)
            due.emplace_back(l.NextNs, l.Word);
    }
    std::stable_sort(due.begin(), due.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    for (const auto& [at, word] : due) {
        A429Deliver(ch, word, at);
        ++Count.A429LabelWords[ch];
    }
}

uint64_t UnitEngine::Impl::A429NextLabelNs(unsigned ch) const
{
    const A429Tx& t = Tx[ch];
    uint64_t next = Never;
    if (!t.Enabled || t.LabelsDefined == 0)
        return next;
    for (const A429Label& l : t.Labels) {
        if (l.Defined && l.Enabled && l.HasData && l.Once && l.OncePending)
            return 0;
        if (l.Cyclic())
            next = std::min(next, l.NextNs);
    }
    return next;
}

void UnitEngine::Impl::CanDeliver(unsigned ch, const std::array<uint8_t, CanFrameSize>& frame, uint64_t atNs)
{
    uint8_t params[4 + CanFrameSize];
    le::Put32(params, Clock(atNs));
    std::copy(frame.begin(), frame.end(), params + 4);
    Event(EventCanTx, ch, params, sizeof params);
    ++Count.CanTransmitted[ch];

    // Channels 0 and 1 (2 and 3, ...) share one bus; a unit's only channel
    // hears its own frames (self-reception), so it can be looped back too.
    const unsigned peer = Model.CanChannels == 1 ? ch : ch ^ 1;
    if (peer >= Model.CanChannels)
        return;
    if (!Can[peer].Started) {
        ++Count.CanRxNotStarted[peer];
        return;
    }
    Event(EventCanRx, peer, params, sizeof params);
    ++Count.CanReceived[peer];
}

void UnitEngine::Impl::UartPush(unsigned ch, const uint8_t* rec, size_t len, uint64_t nowNs)
{
    const size_t n = len - 9;
    uint8_t tx[10];
    le::Put32(tx, Clock(nowNs));
    std::copy(rec + 5, rec + 9, tx + 4); // the chunk counter of the record
    le::Put16(tx + 8, static_cast<uint32_t>(n));
    Event(EventUartTx, ch, tx, sizeof tx);
    Count.UartTransmitted[ch] += n;

    // UART 0 and 1 are cross-wired.
    const unsigned peer = ch ^ 1;
    if (peer >= Model.UartChannels)
        return;
    if (!Uart[peer].Enabled) {
        Count.UartRxDisabled[peer] += n;
        return;
    }
    uint8_t rx[5 + 255];
    le::Put32(rx, Clock(nowNs));
    rx[4] = 0; // receiver status: no error
    std::copy(rec + 9, rec + len, rx + 5);
    Event(EventUartRx, peer, rx, 5 + n);
    Count.UartReceived[peer] += n;
}

} // namespace hdwsim
