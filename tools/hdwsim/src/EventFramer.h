#pragma once
// Collects the unit's event records and packs them into unit frames:
// start byte 0xA5, a 12-bit length (event bytes), a 12-bit event count, the
// records, and the CRC over all of it, low byte first. Finished frames wait
// in an output queue with the time at which they may leave; the injected
// faults that act on whole frames (bad CRC, stray bytes, delay) are applied
// here.

#include <hdwsim/Counters.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <vector>

namespace hdwsim {

class EventFramer {
public:
    // Stray bytes waiting before the next frame are capped so that a frame
    // with its stray bytes still fits one HOE packet.
    static constexpr size_t MaxStrayBytes = 64;

    explicit EventFramer(size_t maxFrameBytes);

    // Appends one event record: L, type byte, then `params` (L = 1 + size).
    void AddEvent(unsigned type, unsigned subField, const uint8_t* params, size_t size);
    // Turns the collected records into frames that may leave at `readyNs`.
    void Flush(uint64_t readyNs, Counters& counters);

    size_t Take(uint64_t nowNs, size_t maxBytes, std::vector<uint8_t>& out, Counters& counters);
    uint64_t NextReadyNs() const;
    void Discard(Counters& counters);

    void CorruptNextCrc(unsigned frames) { m_CorruptFrames += frames; }
    void InsertStray(const std::vector<uint8_t>& bytes);
    void SetDelayNs(uint64_t ns) { m_DelayNs = ns; }
    // Event records of this type and sub-field not yet taken by the link.
    uint32_t Waiting(unsigned type, unsigned subField) const { return m_Waiting[TypeByte(type, subField)]; }

private:
    struct Frame {
        uint64_t ReadyNs;
        std::vector<uint8_t> Bytes;
        std::vector<uint8_t> Types; // type byte of each record, for m_Waiting
    };
    static uint8_t TypeByte(unsigned type, unsigned subField) { return uint8_t((type << 3) | (subField & 7)); }
    void Release(const Frame& f);
    void Close(const uint8_t* records, size_t size, unsigned count, uint64_t readyNs, Counters& counters);

    size_t m_MaxFrameBytes;
    std::vector<uint8_t> m_Records; // collected records, one after the other
    std::vector<size_t> m_Ends; // offset after each record
    std::deque<Frame> m_Queue;
    unsigned m_CorruptFrames = 0;
    std::vector<uint8_t> m_Stray;
    uint64_t m_DelayNs = 0;
    std::array<uint32_t, 256> m_Waiting{};
};

} // namespace hdwsim
