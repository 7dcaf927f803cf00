#pragma once

#include <cstdint>
#include <span>

namespace zip {

/// The most symbols that a code may have.
constexpr std::size_t mostSymbols = 288;

/// Code lengths of at most `longest` bits that make symbols which occur so often short together; 0
/// for a symbol that does not occur. The code is complete, and so has at least two symbols, even if
/// fewer occur. The counts together are below 2^22.
void makeCodeLengths(std::span<const std::uint32_t> counts, unsigned longest,
                     std::span<std::uint8_t> lengths);

/// The codes that belong to the lengths (RFC 1951, 3.2.2), each with its first bit lowest.
void makeCodes(std::span<const std::uint8_t> lengths, std::span<std::uint16_t> codes);

} // namespace zip
