#include "zip/encoder/Prices.h"

#include <algorithm>
#include <numeric>
#include <span>

namespace zip {
namespace {

constexpr std::uint32_t noPrice = 1U << 24;

/// Of symbols, without extra bits.
class SymbolPrices {
public:
    SymbolPrices(std::span<const std::uint32_t> counts, std::uint32_t mostBits)
        : counts_(counts), most_(mostBits * priceOfBit),
          total_(binaryLogarithm(std::accumulate(counts.begin(), counts.end(), 1U))) {}

    [[nodiscard]] std::uint32_t of(std::size_t symbol) const {
        if (counts_[symbol] == 0)
            return most_;
        return std::min(most_, (total_ - binaryLogarithm(counts_[symbol])) / (oneBit / priceOfBit));
    }

private:
    std::span<const std::uint32_t> counts_;
    std::uint32_t most_;
    std::uint32_t total_;
};

} // namespace

void Prices::set(const Histogram& histogram) {
    const SymbolPrices content(histogram.content, 11);
    for (std::size_t symbol = 0; symbol < literalSymbols; ++symbol)
        literal[symbol] = std::max(content.of(symbol), priceOfBit);
    std::fill_n(length.begin(), shortestMatch, noPrice);
    for (std::size_t symbol = 0; symbol < lengthSymbols; ++symbol)
        std::fill_n(length.begin() + lengthRanges.first[symbol],
                    std::size_t{1} << lengthRanges.extraBits[symbol],
                    content.of(firstLengthSymbol + symbol) +
                        lengthRanges.extraBits[symbol] * priceOfBit);

    const SymbolPrices distances(histogram.distance, 11);
    for (std::size_t symbol = 0; symbol < distanceSymbols; ++symbol) {
        const std::size_t count = std::size_t{1} << distanceRanges.extraBits[symbol];
        const std::uint32_t price =
            distances.of(symbol) + distanceRanges.extraBits[symbol] * priceOfBit;
        // The range ends where the nearness of its first distance does.
        std::fill_n(nearness.end() - distanceRanges.first[symbol] -
                        static_cast<std::ptrdiff_t>(count),
                    count, static_cast<std::uint8_t>(price));
    }
}

const Histogram& usualHistogram() {
    static const Histogram histogram = [] {
        Histogram usual;
        std::fill_n(usual.content.begin(), literalSymbols, 50U);
        std::fill(usual.content.begin() + ' ', usual.content.begin() + '~', 70U);
        for (std::size_t symbol = 0; symbol < lengthSymbols; ++symbol)
            usual.content[firstLengthSymbol + symbol] = symbol < 4 ? 500 : symbol < 8 ? 250 : 100;
        for (std::size_t symbol = 0; symbol < distanceSymbols; ++symbol)
            usual.distance[symbol] = static_cast<std::uint32_t>(10 + 5 * symbol);
        return usual;
    }();
    return histogram;
}

const Prices& usualPrices() {
    static const Prices prices(usualHistogram());
    return prices;
}

} // namespace zip
