#pragma once

#include "zip/encoder/Words.h"

#include <array>
#include <cstddef>
#include <cstdint>

// The symbols of deflate (RFC 1951, 3.2.5).
namespace zip {

/// Literals, the end of a block, then lengths.
constexpr std::size_t literalSymbols = 256;
constexpr std::size_t endSymbol = 256;
constexpr std::size_t firstLengthSymbol = 257;
constexpr std::size_t lengthSymbols = 29;
constexpr std::size_t contentSymbols = firstLengthSymbol + lengthSymbols;
constexpr std::size_t distanceSymbols = 30;

constexpr unsigned shortestMatch = 3;
constexpr unsigned longestMatch = 258;
constexpr std::size_t longestDistance = 32768;

/// Of each symbol the least value and how many bits tell which value of its range it is.
template <std::size_t Count>
struct Ranges {
    std::array<std::uint16_t, Count> first{};
    std::array<std::uint8_t, Count> extraBits{};
};

constexpr auto lengthRanges = [] {
    Ranges<lengthSymbols> ranges;
    unsigned next = shortestMatch;
    for (std::size_t symbol = 0; symbol + 1 < lengthSymbols; ++symbol) {
        ranges.first[symbol] = static_cast<std::uint16_t>(next);
        ranges.extraBits[symbol] = static_cast<std::uint8_t>(symbol < 8 ? 0 : symbol / 4 - 1);
        next += 1U << ranges.extraBits[symbol];
    }
    ranges.first.back() = longestMatch;
    return ranges;
}();

/// Of distances less one.
constexpr auto distanceRanges = [] {
    Ranges<distanceSymbols> ranges;
    unsigned next = 0;
    for (std::size_t symbol = 0; symbol < distanceSymbols; ++symbol) {
        ranges.first[symbol] = static_cast<std::uint16_t>(next);
        ranges.extraBits[symbol] = static_cast<std::uint8_t>(symbol < 4 ? 0 : symbol / 2 - 1);
        next += 1U << ranges.extraBits[symbol];
    }
    return ranges;
}();

/// By length, counted from firstLengthSymbol; the entries below shortestMatch are not used.
constexpr auto lengthSymbolOf = [] {
    std::array<std::uint8_t, longestMatch + 1> symbols{};
    std::size_t symbol = 0;
    for (unsigned length = shortestMatch; length <= longestMatch; ++length) {
        if (symbol + 1 < lengthSymbols && length == lengthRanges.first[symbol + 1])
            ++symbol;
        symbols[length] = static_cast<std::uint8_t>(symbol);
    }
    return symbols;
}();

/// Symbols of distances less one: below 256 one by one, above in steps of 128.
constexpr auto distanceSymbolTable = [] {
    std::array<std::uint8_t, 512> symbols{};
    std::size_t symbol = 0;
    for (unsigned index = 0; index < symbols.size(); ++index) {
        const unsigned value = index < 256 ? index : (index - 256) << 7;
        if (index == 256)
            symbol = 0;
        while (symbol + 1 < distanceSymbols && value >= distanceRanges.first[symbol + 1])
            ++symbol;
        symbols[index] = static_cast<std::uint8_t>(symbol);
    }
    return symbols;
}();

[[nodiscard]] inline std::size_t distanceSymbolOf(std::uint32_t distanceLessOne) {
    return distanceSymbolTable[pick(distanceLessOne < 256, distanceLessOne,
                                    256 + (distanceLessOne >> 7))];
}

} // namespace zip
