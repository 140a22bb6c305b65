#pragma once
// Finds the host's frames in a byte stream the way the unit's receiver does:
// start byte 0xA5, 16-bit payload length, the command records, and a CRC over
// everything before it, low byte first. A frame with a bad CRC is dropped
// whole and hunting restarts after it; a length the unit cannot hold is taken
// for noise and hunting restarts at the byte after the start byte.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

namespace hdwsim {

class HostFrameParser {
public:
    // Largest payload the unit accepts in one frame.
    static constexpr size_t MaxPayload = 4096;

    struct Stats {
        uint64_t GoodFrames = 0;
        uint64_t BadCrc = 0;
        uint64_t Discarded = 0; // bytes skipped while hunting
    };

    // `onFrame(payload, size)` gets the command bytes of every good frame.
    using FrameHandler = std::function<void(const uint8_t* payload, size_t size)>;

    void Feed(const uint8_t* data, size_t size, const FrameHandler& onFrame, Stats& stats);
    // Forgets a half-received frame (the link was closed).
    void Reset();

private:
    enum class State { Hunt, LengthLow, LengthHigh, Payload, CrcLow, CrcHigh };

    State m_State = State::Hunt;
    size_t m_Length = 0;
    uint16_t m_Crc = 0;
    std::vector<uint8_t> m_Frame; // start byte, length, payload
};

} // namespace hdwsim
