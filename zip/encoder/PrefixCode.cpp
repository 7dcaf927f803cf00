#include "zip/encoder/PrefixCode.h"

#include <algorithm>
#include <array>
#include <numeric>

namespace zip {
namespace {

constexpr unsigned longestCode = 15;
constexpr unsigned symbolBits = 9;

/// How many codes there are of each length.
using LengthCounts = std::array<std::uint32_t, longestCode + 1>;

/// Puts the count and number of each symbol that occurs into `keys`, ascending; returns how many.
/// Most counts are small, and find their place without a comparison.
std::size_t sortByCount(std::span<const std::uint32_t> counts,
                        std::array<std::uint32_t, mostSymbols>& keys) {
    constexpr std::uint32_t large = 128;
    std::array<std::uint16_t, large + 1> places{};
    for (const std::uint32_t count : counts)
        ++places[std::min(count, large)];
    places[0] = 0;
    std::partial_sum(places.begin(), places.end(), places.begin());
    const std::size_t used = places[large];
    const std::size_t firstLarge = places[large - 1];
    // From the last symbol on, each place is that of the last key that is not there yet.
    for (std::size_t symbol = counts.size(); symbol-- > 0;)
        if (counts[symbol] != 0)
            keys[--places[std::min(counts[symbol], large)]] =
                static_cast<std::uint32_t>(counts[symbol] << symbolBits | symbol);
    std::sort(keys.begin() + static_cast<std::ptrdiff_t>(firstLarge),
              keys.begin() + static_cast<std::ptrdiff_t>(used));
    return used;
}

/// Builds the tree in place (Moffat and Katajainen): `weights` holds the leaves, the lightest
/// first, and gets the inner nodes, the root last; of each first its weight, then its parent, then
/// its depth.
void makeDepths(std::span<std::uint32_t> weights) {
    const std::size_t nodes = weights.size() - 1;
    std::size_t leaf = 0;
    std::size_t inner = 0;
    for (std::size_t node = 0; node < nodes; ++node) {
        const auto takeLightest = [&] {
            const bool isInner =
                leaf == weights.size() || (inner < node && weights[inner] < weights[leaf]);
            if (!isInner)
                return weights[leaf++];
            const std::uint32_t weight = weights[inner];
            weights[inner++] = static_cast<std::uint32_t>(node);
            return weight;
        };
        const std::uint32_t first = takeLightest();
        weights[node] = first + takeLightest();
    }
    weights[nodes - 1] = 0;
    for (std::size_t node = nodes - 1; node-- > 0;)
        weights[node] = weights[weights[node]] + 1;
}

/// Leaves that would be deeper than `longest` are counted there.
LengthCounts countLeaves(std::span<const std::uint32_t> depths, unsigned longest) {
    LengthCounts counts{};
    std::size_t node = depths.size() - 1;
    std::uint32_t places = 1;
    for (unsigned depth = 0; places > 0; ++depth) {
        std::uint32_t inner = 0;
        for (; node > 0 && depths[node - 1] == depth; --node)
            ++inner;
        counts[std::min(depth, longest)] += places - inner;
        places = 2 * inner;
    }
    return counts;
}

/// Makes the code complete again: others become longer until all have room, and then those shorter
/// for which there is still some.
void fit(LengthCounts& counts, unsigned longest) {
    const std::uint32_t room = 1U << longest;
    std::uint32_t used = 0;
    for (unsigned length = 1; length <= longest; ++length)
        used += counts[length] << (longest - length);
    while (used > room) {
        unsigned length = longest - 1;
        while (counts[length] == 0)
            --length;
        --counts[length];
        ++counts[length + 1];
        used -= 1U << (longest - length - 1);
    }
    while (used < room) {
        unsigned length = longest;
        while (counts[length] == 0 || 1U << (longest - length) > room - used)
            --length;
        --counts[length];
        ++counts[length - 1];
        used += 1U << (longest - length);
    }
}

constexpr auto reversedBytes = [] {
    std::array<std::uint8_t, 256> reversed{};
    for (unsigned byte = 1; byte < reversed.size(); ++byte)
        reversed[byte] =
            static_cast<std::uint8_t>(reversed[byte / 2] / 2 | (byte % 2 != 0 ? 0x80 : 0));
    return reversed;
}();

std::uint16_t reversed(std::uint32_t code, unsigned length) {
    const std::uint32_t all =
        std::uint32_t{reversedBytes[code & 0xFF]} << 8 | reversedBytes[code >> 8];
    return static_cast<std::uint16_t>(all >> (16 - length));
}

} // namespace

void makeCodeLengths(std::span<const std::uint32_t> counts, unsigned longest,
                     std::span<std::uint8_t> lengths) {
    std::array<std::uint32_t, mostSymbols> keys;
    const std::size_t used = sortByCount(counts, keys);
    const auto symbolOf = [&](std::size_t index) { return keys[index] & ((1U << symbolBits) - 1); };

    std::fill(lengths.begin(), lengths.end(), std::uint8_t{0});
    if (used <= 2) {
        const std::size_t first = used > 0 ? symbolOf(0) : 0;
        const std::size_t second = used > 1 ? symbolOf(1) : first == 0 ? 1 : 0;
        lengths[first] = lengths[second] = 1;
        return;
    }
    std::array<std::uint32_t, mostSymbols> weights;
    for (std::size_t index = 0; index < used; ++index)
        weights[index] = keys[index] >> symbolBits;
    makeDepths({weights.data(), used});
    LengthCounts leaves = countLeaves({weights.data(), used}, longest);
    fit(leaves, longest);
    // The rarest symbols get the longest codes.
    std::size_t index = 0;
    for (unsigned length = longest; length >= 1; --length)
        for (std::uint32_t left = leaves[length]; left > 0; --left)
            lengths[symbolOf(index++)] = static_cast<std::uint8_t>(length);
}

void makeCodes(std::span<const std::uint8_t> lengths, std::span<std::uint16_t> codes) {
    LengthCounts counts{};
    for (const std::uint8_t length : lengths)
        ++counts[length];
    counts[0] = 0;
    LengthCounts next{};
    for (unsigned length = 1; length <= longestCode; ++length)
        next[length] = (next[length - 1] + counts[length - 1]) << 1;
    for (std::size_t symbol = 0; symbol < lengths.size(); ++symbol)
        codes[symbol] = reversed(next[lengths[symbol]]++, lengths[symbol]);
}

} // namespace zip
