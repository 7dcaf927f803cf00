#pragma once

#include <string>
#include <string_view>

namespace base {

/// `text` as one line that a terminal shows and does not obey: each control character (C0, DEL, and
/// C1 in UTF-8) and each byte that is not UTF-8 is a question mark. Any thread.
[[nodiscard]] std::string printable(std::string_view text);

} // namespace base
