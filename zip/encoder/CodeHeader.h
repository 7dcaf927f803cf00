#pragma once

#include "zip/encoder/Alphabets.h"
#include "zip/encoder/BitWriter.h"

#include <span>

namespace zip {

/// What stands before the symbols of a block with codes of its own: their lengths, run by run, in a
/// code of their own (RFC 1951, 3.2.7).
class CodeHeader {
public:
    /// Takes the lengths of all symbols of both codes.
    CodeHeader(std::span<const std::uint8_t> contentLengths,
               std::span<const std::uint8_t> distanceLengths);

    /// Exactly what write() writes.
    [[nodiscard]] std::uint64_t bits() const;
    void write(BitWriter& out) const;

private:
    /// Lengths from 0 to 15, and three kinds of repetitions.
    static constexpr std::size_t symbolCount = 19;
    static constexpr std::array<std::uint8_t, symbolCount> order{16, 17, 18, 0, 8,  7, 9,  6, 10, 5,
                                                                 11, 4,  12, 3, 13, 2, 14, 1, 15};
    struct Item {
        std::uint8_t symbol;
        std::uint8_t extra;
    };

    void addRun(std::uint8_t length, std::size_t count);
    void addItem(std::size_t symbol, std::size_t extra = 0);

    std::size_t contentCount_;
    std::size_t distanceCount_;
    std::size_t lengthCount_ = symbolCount;
    std::array<Item, contentSymbols + distanceSymbols> items_;
    std::size_t itemCount_ = 0;
    std::array<std::uint32_t, symbolCount> counts_{};
    std::array<std::uint8_t, symbolCount> lengths_;
    std::array<std::uint16_t, symbolCount> codes_;
};

} // namespace zip
