#pragma once

#include "base/Bytes.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>

namespace zip {

/// Content to compress, with zero bytes around it that the encoder may read: so it need not ask at
/// each position whether it is near an end. The memory is kept from one use to the next.
class PaddedContent {
public:
    /// As far as a match reaches back.
    static constexpr std::size_t bytesBefore = 32768;
    static constexpr std::size_t bytesBehind = 16;

    /// Makes room for `size` bytes, to be filled by the caller. What was there before is lost.
    std::uint8_t* resize(std::size_t size) {
        if (!memory_ || size > capacity_) {
            memory_.reset(new std::uint8_t[bytesBefore + size + bytesBehind]);
            std::fill_n(memory_.get(), bytesBefore, std::uint8_t{0});
            capacity_ = size;
        }
        size_ = size;
        std::uint8_t* const content = memory_.get() + bytesBefore;
        std::fill_n(content + size, bytesBehind, std::uint8_t{0});
        return content;
    }

    void assign(base::Bytes bytes) { std::copy(bytes.begin(), bytes.end(), resize(bytes.size())); }

    [[nodiscard]] base::Bytes bytes() const {
        return memory_ ? base::Bytes(memory_.get() + bytesBefore, size_) : base::Bytes();
    }

private:
    std::unique_ptr<std::uint8_t[]> memory_;
    std::size_t size_ = 0;
    std::size_t capacity_ = 0;
};

} // namespace zip
