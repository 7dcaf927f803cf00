#pragma once

#include "base/Result.h"

#include <string>

/// Success if `path` is a package that can be processed, or a folder, even an empty one. Otherwise
/// the error says why not, and what to give instead; it names the path as `asGiven`. Any thread.
[[nodiscard]] base::Outcome checkLocation(const std::string& path, const std::string& asGiven);
