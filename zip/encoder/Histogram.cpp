#include "zip/encoder/Histogram.h"

#include <bit>
#include <span>

namespace zip {
namespace {

constexpr unsigned stepBits = 8;
constexpr std::size_t steps = std::size_t{1} << stepBits;

/// Logarithms of 1 to 2 in equal steps, found bit by bit: squaring doubles a logarithm.
constexpr auto logarithms = [] {
    std::array<std::uint32_t, steps + 1> table{};
    for (std::size_t step = 0; step < steps; ++step) {
        std::uint64_t value = (steps + step) << (31 - stepBits);
        for (std::uint32_t bit = oneBit / 2; bit != 0; bit /= 2) {
            value = value * value >> 31;
            if (value >> 32 != 0) {
                value >>= 1;
                table[step] += bit;
            }
        }
    }
    table[steps] = oneBit;
    return table;
}();

struct Estimate {
    std::uint64_t bits = 0;
    unsigned used = 0;
};

Estimate entropyOf(std::span<const std::uint32_t> counts) {
    std::uint64_t total = 0;
    std::uint64_t sum = 0;
    unsigned used = 0;
    for (const std::uint32_t count : counts) {
        if (count == 0)
            continue;
        total += count;
        sum += std::uint64_t{count} * binaryLogarithm(count);
        ++used;
    }
    if (total == 0)
        return {};
    return {total * binaryLogarithm(static_cast<std::uint32_t>(total)) - sum, used};
}

} // namespace

void Histogram::add(const Histogram& other) {
    for (std::size_t symbol = 0; symbol < content.size(); ++symbol)
        content[symbol] += other.content[symbol];
    for (std::size_t symbol = 0; symbol < distance.size(); ++symbol)
        distance[symbol] += other.distance[symbol];
}

void Histogram::halve() {
    for (std::uint32_t& count : content)
        count /= 2;
    for (std::uint32_t& count : distance)
        count /= 2;
}

std::uint32_t binaryLogarithm(std::uint32_t value) {
    const auto whole = static_cast<std::uint32_t>(std::bit_width(value)) - 1;
    // The highest bit, then those that choose the step, then 23 between two steps.
    const std::uint32_t aligned = value << (31 - whole);
    const std::size_t step = (aligned >> (31 - stepBits)) - steps;
    const std::uint64_t between = aligned & ((1U << (31 - stepBits)) - 1);
    const std::uint32_t low = logarithms[step];
    const std::uint32_t high = logarithms[step + 1];
    return whole * oneBit + low +
           static_cast<std::uint32_t>((high - low) * between >> (31 - stepBits));
}

std::uint64_t estimatedBits(const Histogram& histogram) {
    // As measured: what the codes of a block need besides, for each symbol and in all.
    constexpr std::uint64_t headerOfSymbol = 5 * oneBit / 2;
    constexpr std::uint64_t headerOfBlock = 80 * oneBit;
    const Estimate content = entropyOf(histogram.content);
    const Estimate distance = entropyOf(histogram.distance);
    return content.bits + distance.bits + (content.used + distance.used) * headerOfSymbol +
           headerOfBlock;
}

} // namespace zip
