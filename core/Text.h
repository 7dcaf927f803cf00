#pragma once

#include <string>
#include <string_view>
#include <vector>

/// `text` without white space and line ends at both ends.
[[nodiscard]] std::string_view trimmed(std::string_view text);

/// The pieces between the separators: one more than there are separators.
[[nodiscard]] std::vector<std::string_view> split(std::string_view text,
                                                  std::string_view separator);

/// `text` with its ASCII capitals made small.
[[nodiscard]] std::string lowercased(std::string_view text);

/// Whether two texts in UTF-8 differ at most in letter case, letters beyond ASCII included.
[[nodiscard]] bool equalsIgnoringCase(std::string_view a, std::string_view b);
