#pragma once

#include "base/Bytes.h"
#include "zip/encoder/Prices.h"

namespace zip {

/// Content is looked at in chunks of this many bytes.
constexpr std::size_t chunkSize = 16384;

/// The cheapest way through a chunk, by literals and matches.
class Path {
public:
    /// Where to put the candidate of each position of the next chunk.
    [[nodiscard]] Nearness* candidates() { return candidates_.data(); }

    /// Finds the way through the chunk from `from` to `to` of the content. Reads as far around the
    /// content as PaddedContent allows.
    void find(base::Bytes content, std::size_t from, std::size_t to, const Prices& prices);

    /// The same for a chunk of which each byte, also the first one, is equal to the one before it.
    void findRun(base::Bytes content, std::size_t from, std::size_t to);

    /// Follows the path from `at`, which the chunk before may have left behind its own end, to the
    /// end of the chunk or a little farther. Counts the symbols and writes the sequences from
    /// `sequence` on, at most mostSequences. Returns the position reached and moves `sequence`.
    std::size_t follow(std::size_t at, Histogram& histogram, Sequence*& sequence);

    static constexpr std::size_t mostSequences = chunkSize / shortestMatch + 2;

private:
    /// The match that starts one position behind, and what the way from there costs.
    struct Behind {
        Match match = 0;
        std::uint32_t cost = 0;
    };

    template <bool NearEnd>
    Behind goBack(std::size_t from, std::size_t to, Behind behind, const Prices& prices);
    std::size_t literalsBefore(std::size_t at, Match match);

    base::Bytes content_;
    std::size_t from_ = 0;
    std::size_t to_ = 0;
    std::array<Nearness, chunkSize> candidates_;
    /// By position in the chunk: the match to take, 0 for a literal.
    std::array<Match, chunkSize> steps_;
    /// By position: what the way from there to the end of the chunk costs. The first that is not
    /// known yet is read too, and has no effect.
    std::array<std::uint32_t, chunkSize + longestMatch + 1> costs_{};
};

} // namespace zip
