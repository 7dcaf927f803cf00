#include "zip/BlockWalker.h"

#include "zip/DeflateBits.h"

#include <algorithm>
#include <array>

namespace zip {
namespace {

constexpr std::size_t endOfBlock = 256;
constexpr std::size_t literalCount = 286;
constexpr std::size_t distanceCount = 30;

// Extra bits after each length code from 257 on, and after each distance code (RFC 1951, 3.2.5).
constexpr std::array<std::uint8_t, 29> lengthExtraBits{0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 2, 2, 2,
                                                       2, 3, 3, 3, 3, 4, 4, 4, 4, 5, 5, 5, 5, 0};
constexpr std::array<std::uint8_t, 30> distanceExtraBits{0, 0, 0,  0,  1,  1,  2,  2,  3,  3,
                                                         4, 4, 5,  5,  6,  6,  7,  7,  8,  8,
                                                         9, 9, 10, 10, 11, 11, 12, 12, 13, 13};

/// What to skip at once: a run of literals and what ends it, as far as one lookup sees.
struct Step {
    enum Kind : std::uint8_t { Literals, Match, End, LongCode };
    std::uint8_t bits = 0;
    Kind kind = LongCode;
};

class BlockWalker {
public:
    explicit BlockWalker(base::Bytes stream) : reader_(stream) {}

    std::optional<FinalBlock> walk() {
        while (!reader_.overrun()) {
            const std::size_t headerBit = reader_.position();
            const bool isFinal = reader_.take(1) != 0;
            if (!skipBlock(reader_.take(2)) || reader_.overrun())
                break;
            if (isFinal)
                return FinalBlock{headerBit, reader_.position()};
        }
        return std::nullopt;
    }

private:
    bool skipBlock(std::size_t type) {
        switch (type) {
        case 0:
            return skipStored();
        case 1:
            return readFixedCodes() && skipSymbols();
        case 2:
            return readDynamicCodes() && skipSymbols();
        default:
            return false;
        }
    }

    bool skipStored() {
        reader_.alignToByte();
        const std::size_t length = reader_.take(16);
        const std::size_t complement = reader_.take(16);
        reader_.skipBytes(length);
        return (length ^ complement) == 0xFFFF;
    }

    bool readFixedCodes() {
        std::array<std::uint8_t, 288> lengths{};
        std::fill_n(lengths.begin(), 144, std::uint8_t{8});
        std::fill(lengths.begin() + 144, lengths.begin() + 256, std::uint8_t{9});
        std::fill(lengths.begin() + 256, lengths.begin() + 280, std::uint8_t{7});
        std::fill(lengths.begin() + 280, lengths.end(), std::uint8_t{8});
        std::array<std::uint8_t, distanceCount> distances{};
        distances.fill(5);
        return buildTables(lengths, distances);
    }

    bool readDynamicCodes() {
        constexpr std::array<std::uint8_t, 19> order{16, 17, 18, 0, 8,  7, 9,  6, 10, 5,
                                                     11, 4,  12, 3, 13, 2, 14, 1, 15};
        const std::size_t literals = 257 + reader_.take(5);
        const std::size_t distances = 1 + reader_.take(5);
        const std::size_t lengthCodes = 4 + reader_.take(4);
        if (literals > literalCount || distances > distanceCount)
            return false;
        std::array<std::uint8_t, 19> codeLengths{};
        for (std::size_t index = 0; index < lengthCodes; ++index)
            codeLengths[order[index]] = static_cast<std::uint8_t>(reader_.take(3));
        // The distance table is not in use yet.
        if (!distances_.build(codeLengths))
            return false;
        std::array<std::uint8_t, literalCount + distanceCount> lengths{};
        const std::span both = std::span(lengths).first(literals + distances);
        return readCodeLengths(both) && both[endOfBlock] != 0 &&
               buildTables(both.first(literals), both.last(distances));
    }

    /// Reads run-length coded code lengths with the code that stands in the distance table.
    bool readCodeLengths(std::span<std::uint8_t> lengths) {
        for (std::size_t done = 0; done < lengths.size();) {
            reader_.refill();
            const HuffmanTable::Symbol symbol = distances_.shortCode(reader_.bits());
            if (symbol.length == 0 || (symbol.value == 16 && done == 0))
                return false;
            reader_.skip(symbol.length);
            std::size_t repeat = 1;
            std::uint8_t length = 0;
            if (symbol.value < 16) {
                length = static_cast<std::uint8_t>(symbol.value);
            } else if (symbol.value == 16) {
                length = lengths[done - 1];
                repeat = 3 + reader_.take(2);
            } else {
                repeat = symbol.value == 17 ? 3 + reader_.take(3) : 11 + reader_.take(7);
            }
            if (repeat > lengths.size() - done)
                return false;
            std::fill_n(lengths.begin() + static_cast<std::ptrdiff_t>(done), repeat, length);
            done += repeat;
        }
        return true;
    }

    bool buildTables(std::span<const std::uint8_t> literals,
                     std::span<const std::uint8_t> distances) {
        if (!literals_.build(literals) || !distances_.build(distances))
            return false;
        for (std::size_t index = 0; index < steps_.size(); ++index)
            steps_[index] = stepOf(index);
        for (std::size_t index = 0; index < distanceBits_.size(); ++index)
            distanceBits_[index] =
                static_cast<std::uint8_t>(bitsWithExtra(distances_.shortCode(index)));
        return true;
    }

    Step stepOf(std::size_t bits) const {
        Step step;
        for (unsigned used = 0; used < HuffmanTable::tableBits;) {
            const HuffmanTable::Symbol symbol = literals_.shortCode(bits >> used);
            if (symbol.length == 0 || used + symbol.length > HuffmanTable::tableBits)
                break;
            used += symbol.length;
            step = stepAfter(symbol, used);
            if (step.kind != Step::Literals)
                break;
        }
        return step;
    }

    static Step stepAfter(HuffmanTable::Symbol symbol, unsigned bits) {
        if (symbol.value < endOfBlock)
            return {static_cast<std::uint8_t>(bits), Step::Literals};
        if (symbol.value == endOfBlock)
            return {static_cast<std::uint8_t>(bits), Step::End};
        const std::size_t code = symbol.value - endOfBlock - 1;
        if (code >= lengthExtraBits.size())
            return {};
        return {static_cast<std::uint8_t>(bits + lengthExtraBits[code]), Step::Match};
    }

    bool skipSymbols() {
        // A copy, which the compiler keeps in registers.
        BitReader reader = reader_;
        bool isWhole = false;
        while (!isWhole && !reader.overrun()) {
            reader.refill();
            Step step = steps_[reader.bits() % steps_.size()];
            if (step.kind == Step::Literals) {
                reader.skip(step.bits);
                step = steps_[reader.bits() % steps_.size()];
            }
            if (step.kind == Step::LongCode) {
                reader.refill();
                const HuffmanTable::Symbol symbol = literals_.anyCode(reader.bits());
                step = stepAfter(symbol, symbol.length);
                if (step.bits == 0)
                    return false;
            }
            reader.skip(step.bits);
            if (step.kind == Step::Match) {
                const unsigned bits = distanceBits(reader.bits());
                if (bits == 0)
                    return false;
                reader.skip(bits);
            }
            isWhole = step.kind == Step::End;
        }
        reader_ = reader;
        return isWhole;
    }

    /// Length of the distance code and its extra bits; 0 if there is no such code.
    [[nodiscard]] unsigned distanceBits(std::uint64_t bits) const {
        const unsigned shortBits = distanceBits_[bits % distanceBits_.size()];
        if (shortBits != 0)
            return shortBits;
        return bitsWithExtra(distances_.anyCode(bits));
    }

    static unsigned bitsWithExtra(HuffmanTable::Symbol distance) {
        if (distance.length == 0 || distance.value >= distanceCount)
            return 0;
        return distance.length + unsigned{distanceExtraBits[distance.value]};
    }

    BitReader reader_;
    HuffmanTable literals_;
    HuffmanTable distances_;
    std::array<Step, std::size_t{1} << HuffmanTable::tableBits> steps_;
    std::array<std::uint8_t, std::size_t{1} << HuffmanTable::tableBits> distanceBits_;
};

} // namespace

std::optional<FinalBlock> findFinalBlock(base::Bytes stream) {
    return BlockWalker(stream).walk();
}

} // namespace zip
