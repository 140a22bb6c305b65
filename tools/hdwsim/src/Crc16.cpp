#include "Crc16.h"

#include <array>

namespace hdwsim {

namespace {

constexpr std::array<uint16_t, 256> MakeTable()
{
    std::array<uint16_t, 256> table{};
    for (unsigned i = 0; i < 256; ++i) {
        uint16_t v = static_cast<uint16_t>(i << 8);
        for (int bit = 0; bit < 8; ++bit)
            v = (v & 0x8000) ? static_cast<uint16_t>((v << 1) ^ 0x1021) : static_cast<uint16_t>(v << 1);
        table[i] = v;
    }
    return table;
}

constexpr std::array<uint16_t, 256> s_Table = MakeTable();

} // namespace

uint16_t Crc16(const uint8_t* data, size_t size, uint16_t crc)
{
    for (size_t i = 0; i < size; ++i)
        crc = static_cast<uint16_t>(s_Table[((crc >> 8) ^ data[i]) & 0xFF] ^ (crc << 8));
    return crc;
}

} // namespace hdwsim
