#pragma once
// The byte output of the byte services (the units' UART bytes, the byte
// streams over CAN and ARINC 429): the application's bytes wait, in order,
// until the driver pushes them. Write is written once here for all of them.
//
// Lock rule: the queue only under the service's lock (the device lock for
// the units' services); QueueBytes takes it once per call.

#include <HdwLib/bus/internal/ByteInput.h>
#include <HdwLib/bus/internal/RunState.h>

#include <cstdint>
#include <deque>

namespace hdw::bus {

// Write of a byte output: HDW_ERR_ARGUMENT for an option other than 0, then
// the run state's answer, 0 for no bytes, HDW_ERR_ARGUMENT for no array and
// for bytes that do not fit the free part of `bound` (0: no bound), in which
// case nothing is queued and they are added to `unplaced`; otherwise the
// bytes are queued.
inline unsigned QueueBytes(CKVX_HdwService& service, CByteQueue& queue, const unsigned char* bytes, unsigned count,
    unsigned option, uint32_t bound, uint64_t& unplaced)
{
    if (option != 0)
        return HDW_ERR_ARGUMENT;
    if (const unsigned rc = RunState(service.GetStatus()))
        return rc;
    if (count == 0)
        return 0;
    if (!bytes)
        return HDW_ERR_ARGUMENT;
    CKVX_HdwServiceLock lock(service);
    if (bound != 0 && uint64_t(queue.size()) + count > bound) {
        unplaced += count;
        return HDW_ERR_ARGUMENT;
    }
    queue.insert(queue.end(), bytes, bytes + count);
    return 0;
}

// Bytes carried by the frames or words in flight (one count each).
inline uint64_t BytesInFlight(const std::deque<uint8_t>& carried)
{
    uint64_t n = 0;
    for (uint8_t c : carried)
        n += c;
    return n;
}

} // namespace hdw::bus
