#pragma once
// The lists of completed transfers that the MIL-STD-1553 services keep until
// the application reads them. The caller holds the device lock, except for
// ReadTransfers, which takes it.

#include <HdwLib/bus/HdwMilStd1553Message.h>
#include <HdwLib/bus/internal/RunState.h>
#include <HdwLib/framework/HdwService.h>

#include <cstdint>
#include <deque>

namespace hdw::bus {

using Mil1553TransferList = std::deque<CKVX_HdwMilStd1553Message>;

// Appends at the tail; with a non-zero bound a full list first loses its
// oldest entry, counted in `lost`.
inline void AppendTransfer(
    Mil1553TransferList& list, CKVX_HdwMilStd1553Message&& message, unsigned bound, uint64_t& lost)
{
    if (bound != 0 && list.size() >= bound) {
        list.pop_front();
        ++lost;
    }
    list.push_back(std::move(message));
}

// Read of a 1553 service: 29 stopped, 15 failed; otherwise moves up to
// maxCount transfers, oldest first, to the end of `buffer`.
inline unsigned ReadTransfers(CKVX_HdwService& service, Mil1553TransferList& list, CKVX_HdwMilStd1553Buffer& buffer,
    unsigned maxCount, unsigned& readCount)
{
    readCount = 0;
    if (const unsigned rc = RunState(service.GetStatus()))
        return rc;
    CKVX_HdwServiceLock lock(service);
    while (readCount < maxCount && !list.empty()) {
        buffer.Add(std::move(list.front()));
        list.pop_front();
        ++readCount;
    }
    return 0;
}

} // namespace hdw::bus
