#pragma once

#include "zip/encoder/Histogram.h"
#include "zip/encoder/Match.h"

namespace zip {

/// Prices are in eighths of a bit.
constexpr std::uint32_t priceOfBit = 8;

/// What symbols cost, with their extra bits.
struct Prices {
    std::array<std::uint32_t, literalSymbols> literal;
    /// By length; so high that no match is taken below the shortest.
    std::array<std::uint32_t, longestMatch + 1> length;
    std::array<std::uint8_t, longestDistance> nearness;

    explicit Prices(const Histogram& histogram) { set(histogram); }
    void set(const Histogram& histogram);
};

/// What to expect of content about which nothing is known yet.
[[nodiscard]] const Histogram& usualHistogram();
[[nodiscard]] const Prices& usualPrices();

} // namespace zip
