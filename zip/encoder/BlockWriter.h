#pragma once

#include "base/Bytes.h"
#include "zip/encoder/BitWriter.h"
#include "zip/encoder/Histogram.h"
#include "zip/encoder/Match.h"
#include "zip/encoder/PrefixCode.h"

#include <span>

namespace zip {

/// What a block holds.
struct Block {
    /// Three more bytes behind it are readable.
    base::Bytes content;
    /// They make up the content.
    std::span<const Sequence> sequences;
    /// Of the sequences, with one end.
    Histogram histogram;
    bool isFinal = false;
};

/// Writes blocks of a deflate stream (RFC 1951, 3.2.3): whichever of the three kinds is shortest.
class BlockWriter {
public:
    /// So many bytes may a block at most be longer than its content.
    static constexpr std::size_t mostOverhead(std::size_t contentSize) {
        return 6 + contentSize / longestStored * 5;
    }
    /// An empty stored block: up to three bits and padding, and four bytes.
    static constexpr std::size_t mostEmptySize = 6;

    void write(BitWriter& out, const Block& block);

    static void writeStored(BitWriter& out, base::Bytes content, bool isFinal);

private:
    static constexpr std::size_t longestStored = 0xFFFF;

    /// Code lengths and codes of both alphabets.
    struct Codes {
        std::array<std::uint8_t, mostSymbols> contentLengths{};
        std::array<std::uint8_t, distanceSymbols> distanceLengths{};
        std::array<std::uint16_t, mostSymbols> content;
        std::array<std::uint16_t, distanceSymbols> distance;

        /// Of the symbols with their extra bits.
        [[nodiscard]] std::uint64_t bitsOf(const Histogram& histogram) const;
        void make();
    };

    static const Codes& fixedCodes();
    void writeSymbols(BitWriter& out, const Block& block, const Codes& codes);

    /// Bits with their count above them.
    std::array<std::uint32_t, literalSymbols> literals_;
    std::array<std::uint32_t, longestMatch + 1> lengths_;
};

} // namespace zip
