#pragma once

#include "base/Result.h"

#include <string>

/// Success if what is at `path` can be processed, or is a folder, which may hold nothing. Else why
/// not, and what to give instead; `asGiven` names it in the error. Any thread.
[[nodiscard]] base::Outcome checkLocation(const std::string& path, const std::string& asGiven);
