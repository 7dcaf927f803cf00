#include "zip/encoder/CodeHeader.h"

#include "zip/encoder/PrefixCode.h"

#include <algorithm>

namespace zip {
namespace {

constexpr std::size_t repeatLength = 16;
constexpr std::size_t fewZeros = 17;
constexpr std::size_t manyZeros = 18;

constexpr unsigned longestLengthCode = 7;

unsigned extraBitsOf(std::size_t symbol) {
    return symbol == repeatLength ? 2 : symbol == fewZeros ? 3 : symbol == manyZeros ? 7 : 0;
}

/// How many symbols have to be told: those at the end that do not occur need not be.
std::size_t countToTell(std::span<const std::uint8_t> lengths, std::size_t least) {
    std::size_t count = lengths.size();
    while (count > least && lengths[count - 1] == 0)
        --count;
    return count;
}

} // namespace

CodeHeader::CodeHeader(std::span<const std::uint8_t> contentLengths,
                       std::span<const std::uint8_t> distanceLengths)
    : contentCount_(countToTell(contentLengths, firstLengthSymbol)),
      distanceCount_(countToTell(distanceLengths, 1)) {
    std::array<std::uint8_t, contentSymbols + distanceSymbols> all;
    const auto middle = std::copy_n(contentLengths.begin(), contentCount_, all.begin());
    const auto end = std::copy_n(distanceLengths.begin(), distanceCount_, middle);
    for (auto run = all.begin(); run != end;) {
        const std::uint8_t length = *run;
        const auto next =
            std::find_if(run, end, [&](std::uint8_t other) { return other != length; });
        addRun(length, static_cast<std::size_t>(next - run));
        run = next;
    }
    makeCodeLengths(counts_, longestLengthCode, lengths_);
    makeCodes(lengths_, codes_);
    while (lengthCount_ > 4 && lengths_[order[lengthCount_ - 1]] == 0)
        --lengthCount_;
}

void CodeHeader::addRun(std::uint8_t length, std::size_t count) {
    if (length == 0) {
        for (; count >= 11; count -= std::min<std::size_t>(count, 138))
            addItem(manyZeros, std::min<std::size_t>(count, 138) - 11);
        if (count >= 3) {
            addItem(fewZeros, count - 3);
            count = 0;
        }
    } else if (count >= 4) {
        addItem(length);
        --count;
        for (; count >= 3; count -= std::min<std::size_t>(count, 6))
            addItem(repeatLength, std::min<std::size_t>(count, 6) - 3);
    }
    for (; count > 0; --count)
        addItem(length);
}

void CodeHeader::addItem(std::size_t symbol, std::size_t extra) {
    items_[itemCount_++] = {static_cast<std::uint8_t>(symbol), static_cast<std::uint8_t>(extra)};
    ++counts_[symbol];
}

std::uint64_t CodeHeader::bits() const {
    std::uint64_t bits = 14 + 3 * lengthCount_;
    for (std::size_t symbol = 0; symbol < symbolCount; ++symbol)
        bits += std::uint64_t{counts_[symbol]} * (lengths_[symbol] + extraBitsOf(symbol));
    return bits;
}

void CodeHeader::write(BitWriter& out) const {
    out.put((contentCount_ - firstLengthSymbol) | (distanceCount_ - 1) << 5 |
                (lengthCount_ - 4) << 10,
            14);
    for (std::size_t index = 0; index < lengthCount_; ++index)
        out.put(lengths_[order[index]], 3);
    for (const Item& item : std::span(items_).first(itemCount_)) {
        out.add(codes_[item.symbol], lengths_[item.symbol]);
        out.put(item.extra, extraBitsOf(item.symbol));
    }
}

} // namespace zip
