#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace zip {

/// Prefix codes of one alphabet of deflate (RFC 1951, 3.2.2), laid out for looking up the symbol
/// that a stream's next bits begin with.
class HuffmanTable {
public:
    static constexpr unsigned longestCode = 15;
    static constexpr unsigned tableBits = 11;

    /// length == 0: no code of at most tableBits bits begins like this.
    struct Symbol {
        std::uint16_t value = 0;
        std::uint8_t length = 0;
    };

    /// Takes the length of each symbol's code, 0 for a symbol without one. False if there are more
    /// codes than such lengths leave room for.
    [[nodiscard]] bool build(std::span<const std::uint8_t> lengths);

    /// By the next tableBits bits, the first one lowest.
    [[nodiscard]] const Symbol& shortCode(std::uint64_t bits) const {
        return table_[bits & (table_.size() - 1)];
    }

    /// The symbol of a code of any length; length == 0 if no code begins like `bits`.
    [[nodiscard]] Symbol anyCode(std::uint64_t bits) const;

private:
    std::array<Symbol, std::size_t{1} << tableBits> table_;
    std::array<std::uint16_t, 288> sorted_;
    std::array<std::uint16_t, longestCode + 1> count_;
};

} // namespace zip
