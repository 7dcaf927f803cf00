#pragma once

#include <bit>
#include <cstdint>
#include <cstring>

#if defined(__SSE2__) && !defined(KELPMORAY_NO_SIMD)
#define KELPMORAY_SSE2
#include <emmintrin.h>
#endif

// Bytes of memory as whole words, the same on any processor.
namespace zip {

[[nodiscard]] inline std::uint64_t littleEndian(std::uint64_t value) {
    if constexpr (std::endian::native == std::endian::little)
        return value;
    std::uint64_t swapped = 0;
    for (unsigned byte = 0; byte < sizeof value; ++byte, value >>= 8)
        swapped = swapped << 8 | (value & 0xFF);
    return swapped;
}

/// Eight bytes, the first one lowest.
[[nodiscard]] inline std::uint64_t loadWord(const std::uint8_t* from) {
    std::uint64_t value = 0;
    std::memcpy(&value, from, sizeof value);
    return littleEndian(value);
}

inline void storeWord(std::uint8_t* to, std::uint64_t value) {
    value = littleEndian(value);
    std::memcpy(to, &value, sizeof value);
}

constexpr unsigned comparedBytes = 16;

/// How many bytes from the first on are equal, up to comparedBytes, all of which are read.
[[nodiscard]] inline unsigned commonBytes(const std::uint8_t* a, const std::uint8_t* b) {
#ifdef KELPMORAY_SSE2
    const __m128i equal = _mm_cmpeq_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(a)),
                                         _mm_loadu_si128(reinterpret_cast<const __m128i*>(b)));
    // Never 0, so std::countr_zero would look in vain whether it is.
    return static_cast<unsigned>(
        __builtin_ctz(~static_cast<std::uint32_t>(_mm_movemask_epi8(equal))));
#else
    const std::uint64_t low = loadWord(a) ^ loadWord(b);
    const std::uint64_t high = loadWord(a + 8) ^ loadWord(b + 8);
    const int lowBits = std::countr_zero(low);
    const int highBits = std::countr_zero(high);
    return static_cast<unsigned>(lowBits + (low == 0 ? highBits : 0)) / 8;
#endif
}

/// The same value, about which the compiler knows nothing: it cannot turn what depends on it into a
/// branch, which would often be mispredicted.
[[nodiscard]] inline std::uint32_t opaque(std::uint32_t value) {
#ifdef __GNUC__
    asm volatile("" : "+r"(value));
#endif
    return value;
}

/// One of two values, without a branch.
[[nodiscard]] inline std::uint32_t pick(bool isFirst, std::uint32_t first, std::uint32_t second) {
    first = opaque(first);
    second = opaque(second);
    return isFirst ? first : second;
}

} // namespace zip
