#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace base {

using Bytes = std::span<const std::uint8_t>;
using OwnedBytes = std::vector<std::uint8_t>;

/// Lower case, two digits a byte.
[[nodiscard]] inline std::string hex(Bytes bytes) {
    std::string text;
    text.reserve(2 * bytes.size());
    for (const std::uint8_t byte : bytes)
        for (const int digit : {byte >> 4, byte & 15})
            text += "0123456789abcdef"[digit];
    return text;
}

/// Bytes that grow. The caller fills tail() itself, so nothing is cleared first; clear() keeps the
/// memory for the next use.
class ByteBuffer {
public:
    [[nodiscard]] std::uint8_t* data() { return data_.get(); }
    [[nodiscard]] std::size_t size() const { return size_; }
    [[nodiscard]] Bytes bytes() const { return {data_.get(), size_}; }

    void clear() { size_ = 0; }

    /// Room for `count` bytes after the last one, valid until the next call; extend() keeps them.
    [[nodiscard]] std::uint8_t* tail(std::size_t count) {
        if (size_ + count > capacity_) {
            const std::size_t capacity = std::max(size_ + count, capacity_ + capacity_ / 2);
            std::unique_ptr<std::uint8_t[]> grown(new std::uint8_t[capacity]);
            std::copy_n(data_.get(), size_, grown.get());
            data_ = std::move(grown);
            capacity_ = capacity;
        }
        return data_.get() + size_;
    }

    void extend(std::size_t count) { size_ += count; }

    void append(Bytes bytes) {
        std::copy(bytes.begin(), bytes.end(), tail(bytes.size()));
        size_ += bytes.size();
    }

private:
    std::unique_ptr<std::uint8_t[]> data_;
    std::size_t size_ = 0;
    std::size_t capacity_ = 0;
};

} // namespace base
