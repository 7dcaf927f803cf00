#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

namespace base {

using Bytes = std::span<const std::uint8_t>;

/// Growing bytes whose tail is handed out before it is filled, so that nothing is cleared in vain
/// and the memory is kept from one use to the next.
class ByteBuffer {
public:
    [[nodiscard]] std::uint8_t* data() { return data_.get(); }
    [[nodiscard]] std::size_t size() const { return size_; }
    [[nodiscard]] Bytes bytes() const { return {data_.get(), size_}; }

    void clear() { size_ = 0; }

    /// Takes the first `count` bytes away.
    void drop(std::size_t count) {
        std::copy(data_.get() + count, data_.get() + size_, data_.get());
        size_ -= count;
    }

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
