#pragma once

#include "base/Bytes.h"

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace base {

/// Appends `value` with its least significant byte first.
template <std::unsigned_integral Integer>
void appendLittle(ByteBuffer& to, Integer value) {
    std::uint8_t* at = to.tail(sizeof value);
    for (std::size_t index = 0; index < sizeof value; ++index)
        at[index] = static_cast<std::uint8_t>(value >> (8 * index));
    to.extend(sizeof value);
}

/// Appends `value` with its most significant byte first.
template <std::unsigned_integral Integer>
void appendBig(ByteBuffer& to, Integer value) {
    std::uint8_t* at = to.tail(sizeof value);
    for (std::size_t index = 0; index < sizeof value; ++index)
        at[index] = static_cast<std::uint8_t>(value >> (8 * (sizeof value - 1 - index)));
    to.extend(sizeof value);
}

inline void appendText(ByteBuffer& to, std::string_view text) {
    to.append({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
}

} // namespace base
