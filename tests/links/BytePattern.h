#pragma once
// Test data for the serial tests: n bytes that differ from their neighbours
// and wrap through every value, so that a lost, doubled or reordered byte shows.

#include <cstddef>
#include <cstdint>
#include <vector>

inline std::vector<uint8_t> Pattern(size_t n, uint8_t seed)
{
    std::vector<uint8_t> v(n);
    for (size_t i = 0; i < n; ++i)
        v[i] = static_cast<uint8_t>(seed + i * 7);
    return v;
}
