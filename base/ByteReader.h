#pragma once

#include "base/Bytes.h"

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace base {

/// Takes numbers and runs of bytes off the front of `bytes`. A call that reaches past the end gives
/// zero or no bytes and makes the reader failed(), so a caller checks once, at the end.
class ByteReader {
public:
    explicit ByteReader(Bytes bytes) : bytes_(bytes) {}

    [[nodiscard]] bool failed() const { return failed_; }
    [[nodiscard]] bool empty() const { return bytes_.empty(); }
    [[nodiscard]] std::size_t size() const { return bytes_.size(); }
    [[nodiscard]] Bytes rest() const { return bytes_; }

    template <std::unsigned_integral Integer>
    [[nodiscard]] Integer takeBig() {
        Integer value = 0;
        for (const std::uint8_t byte : take(sizeof value))
            value = static_cast<Integer>(static_cast<std::uint64_t>(value) << 8U | byte);
        return value;
    }

    template <std::unsigned_integral Integer>
    [[nodiscard]] Integer takeLittle() {
        Integer value = 0;
        unsigned shift = 0;
        for (const std::uint8_t byte : take(sizeof value)) {
            value = static_cast<Integer>(value | static_cast<std::uint64_t>(byte) << shift);
            shift += 8;
        }
        return value;
    }

    /// Empty if there are fewer.
    [[nodiscard]] Bytes take(std::size_t count) {
        if (count > bytes_.size()) {
            failed_ = true;
            bytes_ = {};
            return {};
        }
        const Bytes taken = bytes_.first(count);
        bytes_ = bytes_.subspan(count);
        return taken;
    }

private:
    Bytes bytes_;
    bool failed_ = false;
};

/// The same bytes as text, without a check of what they encode.
[[nodiscard]] inline std::string_view textOf(Bytes bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

/// The bytes of a text.
[[nodiscard]] inline Bytes bytesOf(std::string_view text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

} // namespace base
