#include "zip/encoder/LookUp.h"

#include "zip/encoder/Words.h"

#include <algorithm>

namespace zip {
namespace {

/// Tables of small contents are 2^smallerBits times smaller.
constexpr unsigned smallerBits = 3;

constexpr std::uint64_t goldenRatio = 0x9E3779B97F4A7C15;

// The multiplier leaves its best bits at the top, so the bytes that do not count are shifted out.
template <unsigned Bits>
std::size_t hashOfSix(std::uint64_t word) {
    return static_cast<std::size_t>((word << 16) * goldenRatio >> (64 - Bits));
}

template <unsigned Bits>
std::size_t hashOfThree(std::uint64_t word) {
    constexpr auto factor = static_cast<std::uint32_t>(goldenRatio >> 32);
    return static_cast<std::uint32_t>(word << 8) * factor >> (32 - Bits);
}

} // namespace

void LookUp::start(bool isSmall) {
    isSmall_ = isSmall;
    const std::size_t used = bySix_.size() >> (isSmall ? smallerBits : 0);
    std::fill_n(bySix_.begin(), used, std::uint16_t{0});
    std::fill_n(byThree_.begin(), used, std::uint16_t{0});
}

void LookUp::find(const std::uint8_t* content, std::size_t from, std::size_t to, Nearness* found) {
    if (isSmall_)
        findBy<smallerBits>(content, from, to, found);
    else
        findBy<0>(content, from, to, found);
}

template <unsigned Smaller>
void LookUp::findBy(const std::uint8_t* content, std::size_t from, std::size_t to,
                    Nearness* found) {
    if (effort_ == Effort::Quick)
        run<Smaller, 4>(content, from, to, found);
    else
        run<Smaller, 2>(content, from, to, found);
}

/// Six bytes are looked up at every Stride-th position only: the path carries a match backwards.
template <unsigned Smaller, unsigned Stride>
void LookUp::run(const std::uint8_t* content, std::size_t from, std::size_t to, Nearness* found) {
    constexpr unsigned bits = tableBits - Smaller;
    std::uint16_t* const bySix = bySix_.data();
    std::uint16_t* const byThree = byThree_.data();
    std::size_t at = from;
    const auto look = [&](bool alsoSix) {
        const std::uint8_t* const here = content + at;
        const std::uint64_t word = loadWord(here);
        const auto position = static_cast<std::uint16_t>(at);
        std::uint16_t& three = byThree[hashOfThree<bits>(word)];
        std::uint16_t& six = bySix[hashOfSix<bits>(word)];
        std::uint32_t candidate = (three - std::uint32_t{position}) & nearest;
        if (alsoSix) {
            const std::uint32_t farther = (six - std::uint32_t{position}) & nearest;
            const std::uint64_t differing =
                word ^ loadWord(here - longestDistance + std::size_t{farther});
            const std::uint32_t isEqual = opaque(0U - std::uint32_t{(differing << 16) == 0});
            candidate ^= (candidate ^ farther) & isEqual;
        }
        *found++ = static_cast<Nearness>(candidate);
        three = position;
        six = position;
        ++at;
    };
    if (at == 0) {
        // Position 0 is what an empty slot says, so it need not be entered.
        *found++ = nearest;
        ++at;
    }
    while (at < to && at % Stride != 0)
        look(true);
    while (at + Stride <= to) {
        look(true);
        for (unsigned next = 1; next < Stride; ++next)
            look(false);
    }
    while (at < to)
        look(true);
}

} // namespace zip
