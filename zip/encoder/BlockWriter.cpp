#include "zip/encoder/BlockWriter.h"

#include "zip/encoder/CodeHeader.h"

namespace zip {
namespace {

constexpr unsigned headerBits = 3;
enum BlockKind : unsigned { Stored = 0, Fixed = 1, Dynamic = 2 };

void writeHeader(BitWriter& out, BlockKind kind, bool isFinal) {
    out.put((isFinal ? 1U : 0U) | kind << 1, headerBits);
}

/// Four literals fit between two flushes, and so do three literals and a match without its
/// distance: what BitWriter has room for bounds the codes.
constexpr unsigned longestContentCode = 14;
constexpr unsigned longestDistanceCode = 15;

// A word of bits with their count above them.
constexpr unsigned countShift = 24;
constexpr std::uint32_t bitsMask = (1U << countShift) - 1;

void add(BitWriter& out, std::uint32_t counted) {
    out.add(counted & bitsMask, counted >> countShift);
}

/// Up to three literals, without a branch: nothing is added for those beyond `count`, though their
/// bytes are looked at.
void addUpToThree(BitWriter& out, const std::uint8_t* content, std::uint32_t count,
                  const std::uint32_t* literals) {
    for (std::uint32_t index = 0; index < 3; ++index)
        add(out, literals[content[index]] & opaque(0U - std::uint32_t{index < count}));
}

} // namespace

std::uint64_t BlockWriter::Codes::bitsOf(const Histogram& histogram) const {
    std::uint64_t bits = 0;
    for (std::size_t symbol = 0; symbol < contentSymbols; ++symbol)
        bits += std::uint64_t{histogram.content[symbol]} * contentLengths[symbol];
    for (std::size_t symbol = 0; symbol < lengthSymbols; ++symbol)
        bits += std::uint64_t{histogram.content[firstLengthSymbol + symbol]} *
                lengthRanges.extraBits[symbol];
    for (std::size_t symbol = 0; symbol < distanceSymbols; ++symbol)
        bits += std::uint64_t{histogram.distance[symbol]} *
                (distanceLengths[symbol] + distanceRanges.extraBits[symbol]);
    return bits;
}

void BlockWriter::Codes::make() {
    makeCodes(contentLengths, content);
    makeCodes(distanceLengths, distance);
}

const BlockWriter::Codes& BlockWriter::fixedCodes() {
    static const Codes fixed = [] {
        Codes codes;
        for (std::size_t symbol = 0; symbol < codes.contentLengths.size(); ++symbol)
            codes.contentLengths[symbol] = symbol < 144   ? 8
                                           : symbol < 256 ? 9
                                           : symbol < 280 ? 7
                                                          : 8;
        codes.distanceLengths.fill(5);
        codes.make();
        return codes;
    }();
    return fixed;
}

void BlockWriter::write(BitWriter& out, const Block& block) {
    Codes own;
    makeCodeLengths(block.histogram.content, longestContentCode, own.contentLengths);
    makeCodeLengths(block.histogram.distance, longestDistanceCode, own.distanceLengths);
    const CodeHeader header(std::span(own.contentLengths).first(contentSymbols),
                            own.distanceLengths);
    const std::uint64_t dynamicBits = headerBits + header.bits() + own.bitsOf(block.histogram);
    const std::uint64_t fixedBits = headerBits + fixedCodes().bitsOf(block.histogram);
    const unsigned padding = (8 - (out.pendingBits() + headerBits) % 8) % 8;
    const std::uint64_t storedBits = headerBits + padding + 32 +
                                     (block.content.size() - 1) / longestStored * 40 +
                                     block.content.size() * 8;
    if (storedBits <= std::min(dynamicBits, fixedBits))
        return writeStored(out, block.content, block.isFinal);
    if (fixedBits <= dynamicBits) {
        writeHeader(out, Fixed, block.isFinal);
        return writeSymbols(out, block, fixedCodes());
    }
    writeHeader(out, Dynamic, block.isFinal);
    header.write(out);
    own.make();
    writeSymbols(out, block, own);
}

void BlockWriter::writeStored(BitWriter& out, base::Bytes content, bool isFinal) {
    do {
        const base::Bytes part = content.first(std::min(content.size(), longestStored));
        content = content.subspan(part.size());
        writeHeader(out, Stored, isFinal && content.empty());
        out.align();
        out.put(part.size() | (~part.size() & 0xFFFF) << 16, 32);
        out.putBytes(part);
    } while (!content.empty());
}

void BlockWriter::writeSymbols(BitWriter& to, const Block& block, const Codes& codes) {
    for (std::size_t symbol = 0; symbol < literalSymbols; ++symbol)
        literals_[symbol] = codes.content[symbol] | std::uint32_t{codes.contentLengths[symbol]}
                                                        << countShift;
    for (std::uint32_t length = shortestMatch; length <= longestMatch; ++length) {
        const std::size_t symbol = lengthSymbolOf[length];
        const std::uint32_t codeLength = codes.contentLengths[firstLengthSymbol + symbol];
        lengths_[length] = codes.content[firstLengthSymbol + symbol] |
                           (length - lengthRanges.first[symbol]) << codeLength |
                           (codeLength + lengthRanges.extraBits[symbol]) << countShift;
    }
    // A copy that the compiler can keep in registers.
    BitWriter out = to;
    const std::uint32_t* const literals = literals_.data();
    const std::uint8_t* content = block.content.data();
    for (const Sequence& sequence : block.sequences) {
        std::uint32_t left = sequence.literals;
        for (; left >= 4; left -= 4, content += 4) {
            for (unsigned index = 0; index < 4; ++index)
                add(out, literals[content[index]]);
            out.flush();
        }
        addUpToThree(out, content, left, literals);
        out.flush();
        content += left;
        if (sequence.length == 0)
            continue;
        add(out, lengths_[sequence.length]);
        const std::size_t symbol = distanceSymbolOf(sequence.distanceLessOne);
        out.add(codes.distance[symbol], codes.distanceLengths[symbol]);
        out.add(sequence.distanceLessOne - std::uint64_t{distanceRanges.first[symbol]},
                distanceRanges.extraBits[symbol]);
        out.flush();
        content += sequence.length;
    }
    out.put(codes.content[endSymbol], codes.contentLengths[endSymbol]);
    to = out;
}

} // namespace zip
