#pragma once
// The library's one CRC-16 table set: polynomial 0x1021, most significant bit
// first, built at compile time. CKVX_Crc walks Slice[0] byte by byte; the unit
// protocol checks whole frames with Crc16Update, folded or eight bytes a step.

#include <cstddef>
#include <cstdint>

namespace hdw::crc {

// Slice[k][v] is what byte v followed by k zero bytes contributes from a zero
// register; Slice[0] is the plain 256-entry table.
struct CCrc16Tables {
    uint16_t Slice[8][256] = {};
    constexpr CCrc16Tables()
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

inline constexpr CCrc16Tables kCrc16Tables1021;
inline constexpr const uint16_t* kTable1021 = kCrc16Tables1021.Slice[0];

// Continues `crc` over `count` bytes. A byte-wise walk is one dependent table
// load per byte; the sliced loop does eight independent ones per eight bytes.
// The tail goes byte-wise.
inline uint16_t Crc16UpdateSliced(uint16_t crc, const uint8_t* bytes, size_t count)
{
    const auto& t = kCrc16Tables1021.Slice;
    unsigned c = crc;
    size_t i = 0;
    for (; i + 8 <= count; i += 8) {
        const uint8_t* b = bytes + i;
        c = t[7][b[0] ^ (c >> 8)] ^ t[6][b[1] ^ (c & 0xFF)] ^ t[5][b[2]] ^ t[4][b[3]] ^ t[3][b[4]] ^ t[2][b[5]] ^
            t[1][b[6]] ^ t[0][b[7]];
    }
    for (; i < count; ++i)
        c = (t[0][((c >> 8) ^ bytes[i]) & 0xFF] ^ (c << 8)) & 0xFFFF;
    return uint16_t(c);
}

// Shortest run worth folding: below it the sliced loop is as quick.
inline constexpr size_t kFoldMinimum = 32;

// Continues `crc` over `count` (kFoldMinimum or more) bytes by folding 16
// bytes per step with carry-less multiplication, where the processor has it;
// false (crc untouched) where it has not. Crc16Fold.cpp.
bool Crc16UpdateFolded(uint16_t& crc, const uint8_t* bytes, size_t count);

// Continues `crc` over `count` bytes, folded when the run is long enough and
// the processor can, sliced otherwise.
inline uint16_t Crc16Update(uint16_t crc, const uint8_t* bytes, size_t count)
{
    if (count >= kFoldMinimum && Crc16UpdateFolded(crc, bytes, count))
        return crc;
    return Crc16UpdateSliced(crc, bytes, count);
}

} // namespace hdw::crc
