#pragma once

#include "zip/encoder/Alphabets.h"

namespace zip {

/// How often each symbol occurs.
struct Histogram {
    std::array<std::uint32_t, contentSymbols> content{};
    std::array<std::uint32_t, distanceSymbols> distance{};

    void add(const Histogram& other);
    void halve();
};

/// In binary logarithms, one bit.
constexpr std::uint32_t oneBit = 1U << 16;

/// The binary logarithm of a number other than 0, in 1/65,536. In whole numbers, so that it is the
/// same on any processor.
[[nodiscard]] std::uint32_t binaryLogarithm(std::uint32_t value);

/// About how long a block of these symbols becomes, without extra bits, in 1/65,536 bit.
[[nodiscard]] std::uint64_t estimatedBits(const Histogram& histogram);

} // namespace zip
