#include "zip/encoder/Path.h"

#include "zip/encoder/Words.h"

#include <algorithm>

namespace zip {

void Path::find(base::Bytes content, std::size_t from, std::size_t to, const Prices& prices) {
    content_ = content;
    from_ = from;
    to_ = to;
    const std::size_t size = to - from;
    // A match that goes beyond the chunk saves there what bytes cost on average.
    constexpr std::uint32_t averagePrice = 3 * priceOfBit;
    for (std::uint32_t beyond = 0; beyond <= longestMatch; ++beyond)
        costs_[size + beyond] = (longestMatch - beyond) * averagePrice;

    Behind behind{.match = nearest, .cost = costs_[size]};
    // A comparison that starts so near the end may go beyond it.
    const std::size_t nearEnd =
        content.size() - std::min<std::size_t>(content.size(), comparedBytes);
    const std::size_t middle = std::clamp(nearEnd, from, to) - from;
    behind = goBack<true>(middle, size, behind, prices);
    goBack<false>(0, middle, behind, prices);
    // Nothing was seen before the first byte.
    if (from == 0 && size != 0)
        steps_[0] = 0;
}

void Path::findRun(base::Bytes content, std::size_t from, std::size_t to) {
    content_ = content;
    from_ = from;
    to_ = to;
    for (std::size_t at = from; at < to; ++at) {
        const auto length = static_cast<Match>(std::min<std::size_t>(to - at, longestMatch));
        steps_[at - from] = length < shortestMatch ? 0 : length * oneByte | nearest;
    }
}

/// Each position has one candidate and the match behind it, which may start here already. There is
/// no branch that depends on the content: a mispredicted one costs more than a wasted evaluation.
template <bool NearEnd>
Path::Behind Path::goBack(std::size_t from, std::size_t to, Behind behind, const Prices& prices) {
    const std::uint8_t* const chunk = content_.data() + from_;
    const std::size_t contentLeft = content_.size() - from_;
    std::uint32_t* const costs = costs_.data();
    Match* const steps = steps_.data();
    Match match = behind.match;
    std::uint32_t cost = behind.cost;
    for (std::size_t at = to; at-- > from;) {
        const std::uint8_t* const here = chunk + at;
        const std::uint8_t* const window = here - longestDistance;
        const std::uint32_t candidate = candidates_[at];
        Match own = commonBytes(here, window + candidate) * oneByte | candidate;
        if (NearEnd) {
            const auto most = static_cast<std::uint32_t>(contentLeft - at);
            own = std::min(lengthOf(own), most) * oneByte | candidate;
        }
        const Match grown = match + oneByte;
        const Match carried = grown >= (longestMatch + 1) * oneByte ? match : grown;
        const Match longer = pick(own > carried, own, carried);
        match = pick(*here == window[nearnessOf(match)], longer, own);
        const std::uint32_t length = lengthOf(match);
        const std::uint32_t byLiteral = cost + prices.literal[*here];
        const std::uint32_t byMatch =
            costs[at + length] + prices.length[length] + prices.nearness[nearnessOf(match)];
        steps[at] = match & (0U - std::uint32_t{byMatch < byLiteral});
        cost = std::min(byMatch, byLiteral);
        costs[at] = cost;
    }
    return {match, cost};
}

std::size_t Path::follow(std::size_t at, Histogram& histogram, Sequence*& sequence) {
    const std::uint8_t* const content = content_.data();
    Sequence* next = sequence;
    std::uint32_t literals = 0;
    while (at < to_) {
        const Match match = steps_[at - from_];
        if (match == 0) {
            ++histogram.content[content[at]];
            ++literals;
            ++at;
            continue;
        }
        const std::uint32_t distance = distanceLessOne(match);
        if (distance >= at) [[unlikely]] {
            for (std::size_t left = literalsBefore(at, match); left > 0; --left) {
                ++histogram.content[content[at]];
                ++literals;
                ++at;
            }
            continue;
        }
        const std::uint32_t length = lengthOf(match);
        ++histogram.content[firstLengthSymbol + lengthSymbolOf[length]];
        ++histogram.distance[distanceSymbolOf(distance)];
        *next++ = {literals, static_cast<std::uint16_t>(length),
                   static_cast<std::uint16_t>(distance)};
        literals = 0;
        at += length;
    }
    if (literals > 0)
        *next++ = {.literals = literals};
    sequence = next;
    return at;
}

/// Of a match that reaches back to before the content: how many bytes have to be literals. Makes
/// what is left of it the step that follows them.
std::size_t Path::literalsBefore(std::size_t at, Match match) {
    const std::uint32_t length = lengthOf(match);
    const auto outside =
        static_cast<std::uint32_t>(std::min<std::size_t>(length, distanceLessOne(match) + 1 - at));
    if (length - outside < shortestMatch)
        return length;
    if (at + outside < to_)
        steps_[at + outside - from_] = match - outside * oneByte;
    return outside;
}

} // namespace zip
