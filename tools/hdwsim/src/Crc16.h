#pragma once
// CRC-16 with polynomial 0x1021, initial value 0xFFFF, most significant bit
// first, no final XOR. The unit's frames and the HOE packets both use it.

#include <cstddef>
#include <cstdint>

namespace hdwsim {

uint16_t Crc16(const uint8_t* data, size_t size, uint16_t crc = 0xFFFF);

} // namespace hdwsim
