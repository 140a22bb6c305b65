#pragma once
// Bytes not periodic in 256: a lost, doubled or reordered byte or block shows.

#include <cstddef>
#include <cstdint>
#include <vector>

inline std::vector<uint8_t> Pattern(size_t n, uint8_t seed)
{
    std::vector<uint8_t> v(n);
    for (size_t i = 0; i < n; ++i)
        v[i] = static_cast<uint8_t>(seed + i * 7 + i / 251);
    return v;
}
