// CRC-16 (0x1021, most significant bit first) over long runs by folding:
// a run of 16-byte blocks A, B, ... has the remainder of A * x^128 + B, ...,
// and A * x^128 = Ahi * x^192 + Alo * x^128, so each step replaces A by
// Ahi * (x^192 mod P) + Alo * (x^128 mod P), two carry-less products of
// at most 80 bits, added to B. The last block and the tail go through the
// table. Bytes are swapped on load so that the first byte is the highest
// coefficient; no bit reflection is needed for this bit order.
//
// Only x86-64 with GCC or Clang folds (PCLMULQDQ and SSSE3, checked once at
// run time); everywhere else Crc16UpdateFolded declines and the sliced loop
// runs.
#include <HdwLib/core/internal/Crc16Tables.h>

#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#include <immintrin.h>
#define HDW_CRC_FOLD 1
#endif

namespace hdw::crc {

namespace {

// x^n mod P as a 16-bit remainder.
constexpr uint64_t PowerMod(unsigned n)
{
    uint32_t r = 1; // x^0
    for (unsigned i = 0; i < n; ++i) {
        r <<= 1;
        if (r & 0x10000)
            r ^= 0x11021;
    }
    return r;
}

// Checked against the table: byte v stands for v(x) * x^16.
static_assert(PowerMod(16) == kCrc16Tables1021.Slice[0][0x01]);
static_assert(PowerMod(23) == kCrc16Tables1021.Slice[0][0x80]);

} // namespace

#ifdef HDW_CRC_FOLD

namespace {

#define HDW_CRC_FOLD_TARGET __attribute__((target("pclmul,ssse3")))

// Swaps the 16 bytes end for end: between memory order and the polynomial
// with the first byte highest, either way.
HDW_CRC_FOLD_TARGET inline __m128i Reverse(__m128i v)
{
    return _mm_shuffle_epi8(v, _mm_set_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15));
}

HDW_CRC_FOLD_TARGET inline __m128i Load(const uint8_t* at)
{
    return Reverse(_mm_loadu_si128(reinterpret_cast<const __m128i*>(at)));
}

HDW_CRC_FOLD_TARGET uint16_t Fold(uint16_t crc, const uint8_t* bytes, size_t count)
{
    const __m128i k = _mm_set_epi64x(int64_t(PowerMod(192)), int64_t(PowerMod(128)));
    // The register's starting value adds to the run's first 16 bits.
    __m128i a = _mm_xor_si128(Load(bytes), _mm_set_epi64x(int64_t(uint64_t(crc) << 48), 0));
    size_t at = 16;
    for (; count - at >= 16; at += 16) {
        const __m128i high = _mm_clmulepi64_si128(a, k, 0x11);
        const __m128i low = _mm_clmulepi64_si128(a, k, 0x00);
        a = _mm_xor_si128(_mm_xor_si128(high, low), Load(bytes + at));
    }
    // Back to bytes, first byte highest, for the table.
    uint8_t last[16];
    _mm_storeu_si128(reinterpret_cast<__m128i*>(last), Reverse(a));
    const uint16_t c = Crc16UpdateSliced(0, last, sizeof last);
    return Crc16UpdateSliced(c, bytes + at, count - at);
}

bool CanFold()
{
    static const bool can = [] {
        __builtin_cpu_init();
        return __builtin_cpu_supports("pclmul") && __builtin_cpu_supports("ssse3");
    }();
    return can;
}

} // namespace

bool Crc16UpdateFolded(uint16_t& crc, const uint8_t* bytes, size_t count)
{
    if (count < kFoldMinimum || !CanFold())
        return false;
    crc = Fold(crc, bytes, count);
    return true;
}

#else

bool Crc16UpdateFolded(uint16_t&, const uint8_t*, size_t)
{
    return false;
}

#endif

} // namespace hdw::crc
