#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace sign {

/// The seconds since 2001 until a date of a requirement, such as 20200131235959Z; absent if the
/// text is none. Any thread.
[[nodiscard]] std::optional<std::int64_t> secondsOfDate(std::string_view text);

} // namespace sign
