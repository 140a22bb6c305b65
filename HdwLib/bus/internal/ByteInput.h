#pragma once
// The byte input of the byte services (the units' UART bytes, the byte
// streams over CAN and ARINC 429, the PC's serial lines): received bytes
// wait, oldest first, for the application's Read; when more than the bound
// wait (0: no bound) the oldest are dropped and counted. Read and the count
// of waiting bytes are written once here for all of them.
//
// Lock rule: the bytes only under the service's lock (the device lock for
// the units' services); ReadBytes and CountBytes take it once per call.

#include <HdwLib/bus/internal/RunState.h>
#include <HdwLib/framework/HdwObject.h>
#include <HdwLib/framework/HdwService.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <deque>

namespace hdw::bus {

using CByteQueue = std::deque<uint8_t>;

// Appends `count` bytes; beyond `bound` the oldest go, counted in `dropped`.
inline void AppendBytes(CByteQueue& queue, const uint8_t* data, size_t count, uint32_t bound, uint64_t& dropped)
{
    queue.insert(queue.end(), data, data + count);
    if (bound != 0 && queue.size() > bound) {
        const size_t excess = queue.size() - bound;
        queue.erase(queue.begin(), queue.begin() + std::ptrdiff_t(excess));
        dropped += excess;
    }
}

// Moves up to `maxCount` bytes from the head into `out`; how many.
inline unsigned TakeBytes(CByteQueue& queue, uint8_t* out, unsigned maxCount)
{
    const size_t n = std::min<size_t>(maxCount, queue.size());
    std::copy_n(queue.begin(), n, out);
    queue.erase(queue.begin(), queue.begin() + std::ptrdiff_t(n));
    return unsigned(n);
}

// Inputs that keep each received frame's or word's bytes together with its
// time stamp hold them as chunks: a type with Time, First, Count and Data,
// where bytes First..Count-1 of Data are still unread.

// Moves up to `maxCount` bytes from the head into `out`, and their chunks'
// times into `times` (may be null); how many. `size` counts the unread bytes.
template <class TChunk>
unsigned TakeChunks(std::deque<TChunk>& chunks, uint64_t& size, uint8_t* out, uint64_t* times, unsigned maxCount)
{
    unsigned n = 0;
    while (n < maxCount && !chunks.empty()) {
        TChunk& c = chunks.front();
        const unsigned take = std::min<unsigned>(maxCount - n, unsigned(c.Count - c.First));
        std::copy_n(c.Data + c.First, take, out + n);
        if (times)
            std::fill_n(times + n, take, c.Time);
        n += take;
        c.First = uint8_t(c.First + take);
        if (c.First == c.Count)
            chunks.pop_front();
    }
    size -= n;
    return n;
}

// Beyond `bound` unread bytes (0: no bound) the oldest go, counted in `dropped`.
template <class TChunk>
void DropOldestChunks(std::deque<TChunk>& chunks, uint64_t& size, uint32_t bound, uint64_t& dropped)
{
    while (bound != 0 && size > bound) {
        TChunk& head = chunks.front();
        const unsigned drop = unsigned(std::min<uint64_t>(size - bound, unsigned(head.Count - head.First)));
        head.First = uint8_t(head.First + drop);
        size -= drop;
        dropped += drop;
        if (head.First == head.Count)
            chunks.pop_front();
    }
}

// Read of a byte input: readCount 0, then HDW_ERR_SERVICE_NOT_RUNNING
// stopped, HDW_ERR_SERVICE failed, 0 for no count, HDW_ERR_ARGUMENT for no
// array; otherwise take(bytes, maxCount) (how many it moved) under one
// device lock.
template <class TTake>
unsigned ReadBytes(CKVX_HdwService& service, unsigned char* bytes, unsigned maxCount, unsigned& readCount, TTake&& take)
{
    readCount = 0;
    if (const unsigned rc = RunState(service.GetStatus()))
        return rc;
    if (maxCount == 0)
        return 0;
    if (!bytes)
        return HDW_ERR_ARGUMENT;
    CKVX_HdwServiceLock lock(service);
    readCount = take(bytes, maxCount);
    return 0;
}

inline unsigned ReadBytes(
    CKVX_HdwService& service, CByteQueue& queue, unsigned char* bytes, unsigned maxCount, unsigned& readCount)
{
    return ReadBytes(service, bytes, maxCount, readCount,
        [&queue](unsigned char* out, unsigned max) { return TakeBytes(queue, out, max); });
}

// Bytes waiting: count 0, then the run state's answer, else `size()` under
// the device lock.
template <class TSize>
unsigned CountBytes(CKVX_HdwService& service, unsigned& count, TSize&& size)
{
    count = 0;
    if (const unsigned rc = RunState(service.GetStatus()))
        return rc;
    CKVX_HdwServiceLock lock(service);
    count = unsigned(size());
    return 0;
}

} // namespace hdw::bus
