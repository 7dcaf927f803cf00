#pragma once

#include "base/Bytes.h"

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

namespace zip {

/// Reads the bits of a deflate stream in their order: of each byte the lowest first. Behind the end
/// all bits are zero, and overrun() becomes true.
class BitReader {
public:
    /// How many bits refill() makes available at least.
    static constexpr unsigned refilledBits = 56;

    explicit BitReader(base::Bytes stream) : stream_(stream) {}

    void refill() {
        if (byte_ + sizeof bits_ <= stream_.size()) {
            // A byte that only fits in part is read again by the next refill, to the same place.
            bits_ |= nextEightBytes() << available_;
            byte_ += (63 - available_) / 8;
            available_ |= refilledBits;
            return;
        }
        for (; available_ <= refilledBits; available_ += 8, ++byte_)
            if (byte_ < stream_.size())
                bits_ |= std::uint64_t{stream_[byte_]} << available_;
    }

    /// The next bits, the first one lowest; as many as were refilled and not skipped since.
    [[nodiscard]] std::uint64_t bits() const { return bits_; }

    void skip(unsigned count) {
        bits_ >>= count;
        available_ -= count;
    }

    /// Refills and takes the next bits.
    [[nodiscard]] std::size_t take(unsigned count) {
        refill();
        const std::uint64_t taken = bits_ & ((std::uint64_t{1} << count) - 1);
        skip(count);
        return static_cast<std::size_t>(taken);
    }

    void alignToByte() { skip(available_ % 8); }

    /// Only after alignToByte().
    void skipBytes(std::size_t count) {
        byte_ += count - available_ / 8;
        bits_ = 0;
        available_ = 0;
    }

    /// How many bits were skipped so far.
    [[nodiscard]] std::size_t position() const { return byte_ * 8 - available_; }
    [[nodiscard]] bool overrun() const { return position() > stream_.size() * 8; }

private:
    [[nodiscard]] std::uint64_t nextEightBytes() const {
        std::uint64_t bytes = 0;
        if constexpr (std::endian::native == std::endian::little) {
            std::memcpy(&bytes, stream_.data() + byte_, sizeof bytes);
        } else {
            for (std::size_t index = sizeof bytes; index-- > 0;)
                bytes = bytes << 8 | stream_[byte_ + index];
        }
        return bytes;
    }

    base::Bytes stream_;
    std::size_t byte_ = 0;
    std::uint64_t bits_ = 0;
    unsigned available_ = 0;
};

/// Prefix codes of one alphabet of deflate (RFC 1951, 3.2.2), laid out for looking up the symbol
/// that a stream's next bits begin with.
class HuffmanTable {
public:
    static constexpr unsigned longestCode = 15;
    static constexpr unsigned tableBits = 11;

    /// length == 0: no code of at most tableBits bits begins like this.
    struct Symbol {
        std::uint16_t value = 0;
        std::uint8_t length = 0;
    };

    /// Takes the length of each symbol's code, 0 for a symbol without one. False if there are more
    /// codes than such lengths leave room for.
    [[nodiscard]] bool build(std::span<const std::uint8_t> lengths);

    /// By the next tableBits bits, the first one lowest.
    [[nodiscard]] const Symbol& shortCode(std::uint64_t bits) const {
        return table_[bits & (table_.size() - 1)];
    }

    /// The symbol of a code of any length; length == 0 if no code begins like `bits`.
    [[nodiscard]] Symbol anyCode(std::uint64_t bits) const;

private:
    std::array<Symbol, std::size_t{1} << tableBits> table_;
    std::array<std::uint16_t, 288> sorted_;
    std::array<std::uint16_t, longestCode + 1> codesOfLength_;
};

} // namespace zip
