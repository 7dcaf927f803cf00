#pragma once

#include "base/Bytes.h"
#include "zip/encoder/Words.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace zip {

/// Puts bits into memory, into each byte from the lowest on. Writes up to `slack` bytes beyond what
/// it holds, and does not look whether there is room.
class BitWriter {
public:
    static constexpr std::size_t slack = sizeof(std::uint64_t);

    explicit BitWriter(std::uint8_t* to) : start_(to), at_(to) {}

    /// Takes `count` bits, above which `bits` is zero. Between two flushes there is room for 56.
    void add(std::uint64_t bits, unsigned count) {
        bits_ |= bits << count_;
        count_ += count;
    }

    /// Writes the whole bytes of what was added.
    void flush() {
        storeWord(at_, bits_);
        at_ += count_ / 8;
        bits_ >>= count_ & ~7U;
        count_ %= 8;
    }

    void put(std::uint64_t bits, unsigned count) {
        add(bits, count);
        flush();
    }

    /// Fills the last byte with zero bits.
    void align() {
        count_ = (count_ + 7) & ~7U;
        flush();
    }

    /// Only from the start of a byte.
    void putBytes(base::Bytes bytes) { at_ = std::copy(bytes.begin(), bytes.end(), at_); }

    /// The bits of the last byte that is not whole yet.
    [[nodiscard]] unsigned pendingBits() const { return count_; }
    /// Whole bytes that were written.
    [[nodiscard]] std::size_t size() const { return static_cast<std::size_t>(at_ - start_); }

private:
    std::uint64_t bits_ = 0;
    unsigned count_ = 0;
    std::uint8_t* start_;
    std::uint8_t* at_;
};

} // namespace zip
