#pragma once

#include <string_view>

namespace sign {

/// Whether the requirement language has a meaning of its own for the word.
[[nodiscard]] bool isRequirementKeyword(std::string_view word);

} // namespace sign
