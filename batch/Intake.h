#pragma once

#include "base/Result.h"
#include "core/Caller.h"
#include "core/WorkSet.h"

#include <string>
#include <vector>

/// Puts the folders and packages at `paths` into `workSet`; a package whose folder is there too is
/// left to that folder. Gives one error for each path that cannot be processed.
[[nodiscard]] std::vector<base::Error>
addToWorkSet(const Caller& caller, const std::vector<std::string>& paths, WorkSet& workSet);
