#pragma once

#include "zip/encoder/Match.h"

#include <array>
#include <cstddef>

namespace zip {

/// How thoroughly the encoder looks for matches.
enum class Effort { Quick, Usual };

/// Finds where the next bytes of each position were seen last: six of them, or else three. What it
/// finds is a candidate; only comparing tells how long a match it is, if it is one.
class LookUp {
public:
    explicit LookUp(Effort effort) : effort_(effort) {}

    /// Forgets all positions. Small contents use a part of the tables, which is quicker to clear.
    void start(bool isSmall);

    /// The candidate of each position from `from` to `to`, where the last call stopped. Reads as
    /// far around the content as PaddedContent allows.
    void find(const std::uint8_t* content, std::size_t from, std::size_t to, Nearness* found);

private:
    template <unsigned Smaller>
    void findBy(const std::uint8_t* content, std::size_t from, std::size_t to, Nearness* found);
    template <unsigned Smaller, unsigned Stride>
    void run(const std::uint8_t* content, std::size_t from, std::size_t to, Nearness* found);

    static constexpr unsigned tableBits = 15;
    /// Positions modulo 2^16. One that is too old, or was never entered, only looks like another
    /// position within reach.
    using Table = std::array<std::uint16_t, std::size_t{1} << tableBits>;
    alignas(64) Table bySix_;
    alignas(64) Table byThree_;
    Effort effort_;
    bool isSmall_ = false;
};

} // namespace zip
