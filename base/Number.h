#pragma once

#include <charconv>
#include <optional>
#include <string_view>

namespace base {

/// The decimal number that `text` is; absent if it is none or not between `least` and `most`.
template <typename Integer>
[[nodiscard]] std::optional<Integer> numberIn(std::string_view text, Integer least, Integer most) {
    Integer number = 0;
    const auto parsed = std::from_chars(text.data(), text.data() + text.size(), number);
    if (parsed.ec != std::errc() || parsed.ptr != text.data() + text.size() || number < least ||
        number > most)
        return std::nullopt;
    return number;
}

} // namespace base
