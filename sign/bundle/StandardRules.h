#pragma once

#include "sign/bundle/Bundle.h"

#include <string_view>

namespace sign {

using PathMatcher = bool (*)(std::string_view path);

/// What a pattern of the standard rules means, as a plain function of the path; null for any other.
[[nodiscard]] PathMatcher standardMatcher(std::string_view pattern);

/// Whether strict checks let a rule with that pattern omit files.
[[nodiscard]] bool mayOmit(std::string_view pattern, BundleForm form);

} // namespace sign
