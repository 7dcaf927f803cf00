#pragma once

#include "zip/encoder/Alphabets.h"

#include <cstdint>

namespace zip {

/// How near something lies that was seen before: 32,768 less its distance, in 15 bits. Every value
/// stands for a distance that deflate can express, so that none needs a check.
using Nearness = std::uint16_t;
constexpr unsigned nearnessBits = 15;
constexpr Nearness nearest = (1U << nearnessBits) - 1;

/// A length and a nearness in one number, which is greater the better the match is.
using Match = std::uint32_t;
/// What makes a match one byte longer.
constexpr Match oneByte = 1U << nearnessBits;

[[nodiscard]] constexpr std::uint32_t lengthOf(Match match) {
    return match >> nearnessBits;
}
[[nodiscard]] constexpr std::uint32_t nearnessOf(Match match) {
    return match & nearest;
}
[[nodiscard]] constexpr std::uint32_t distanceLessOne(Match match) {
    return ~match & nearest;
}

/// Literals, then a match; none if its length is 0.
struct Sequence {
    std::uint32_t literals = 0;
    std::uint16_t length = 0;
    std::uint16_t distanceLessOne = 0;
};

} // namespace zip
