#pragma once
// FIFO helpers shared by the receive services. The caller holds the lock
// that protects the list.

#include <HdwLib/bus/internal/RunState.h>
#include <HdwLib/core/KvxList.h>
#include <HdwLib/framework/HdwObject.h>
#include <HdwLib/framework/HdwService.h>

#include <cstdint>
#include <iterator>
#include <utility>

namespace hdw::bus {

// Appends at the tail. With a non-zero bound a full list first loses its
// oldest entry, counted in `dropped`.
template <typename T>
void AppendBounded(CKVX_List<T>& list, const T& item, unsigned bound, uint64_t& dropped)
{
    if (bound != 0 && list.GetLength() >= bound) {
        list.PopFront();
        ++dropped;
    }
    list += item;
}

// Moves up to `maxCount` entries from the head into `out`, oldest first;
// returns how many.
template <typename T>
unsigned TakeFromHead(CKVX_List<T>& list, T* out, unsigned maxCount)
{
    auto& items = list.Items();
    auto it = items.begin();
    unsigned n = 0;
    for (; n < maxCount && it != items.end(); ++n, ++it)
        out[n] = *it;
    if (n == 0)
        return 0;
    if (it == items.end())
        list.DeleteAll();
    else {
        items.erase(items.begin(), it);
        list.ToStart(); // the cursor may have pointed into the erased range
    }
    return n;
}

// Read of a receive service: 29 stopped, 15 failed, 2 no array for a
// non-zero count; otherwise up to maxCount entries under one device lock.
template <typename T>
unsigned ReadFromService(CKVX_HdwService& service, CKVX_List<T>& list, T* out, unsigned maxCount, unsigned& readCount)
{
    readCount = 0;
    if (const unsigned rc = RunState(service.GetStatus()))
        return rc;
    if (maxCount == 0)
        return 0;
    if (!out)
        return HDW_ERR_ARGUMENT;
    CKVX_HdwServiceLock lock(service);
    readCount = TakeFromHead(list, out, maxCount);
    return 0;
}

// Number of waiting entries: count 0, then 29 / 15, else the length under
// the device lock.
template <typename T>
unsigned CountInService(CKVX_HdwService& service, const CKVX_List<T>& list, unsigned& count)
{
    count = 0;
    if (const unsigned rc = RunState(service.GetStatus()))
        return rc;
    CKVX_HdwServiceLock lock(service);
    count = list.GetLength();
    return 0;
}

} // namespace hdw::bus
