#pragma once
// CRC-16 with polynomial 0x1021, initial 0xFFFF, no reflection, worked bit by
// bit: independent of the table-driven ones in the library and the emulator.

#include <cstddef>
#include <cstdint>

namespace testsupport {

inline uint16_t BitwiseCrc16(const uint8_t* data, size_t size)
{
    uint16_t crc = 0xFFFF;
    for (size_t i = 0; i < size; ++i) {
        crc = static_cast<uint16_t>(crc ^ (data[i] << 8));
        for (int bit = 0; bit < 8; ++bit)
            crc = static_cast<uint16_t>((crc & 0x8000) ? (crc << 1) ^ 0x1021 : crc << 1);
    }
    return crc;
}

} // namespace testsupport
