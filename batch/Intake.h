#pragma once

#include "core/Receiver.h"
#include "core/WorkSet.h"

#include <optional>
#include <string>
#include <vector>

/// Puts the folders and packages at `paths` into `workSet`, a package whose folder is there too
/// only with that folder. Gives one sentence for each path that cannot be processed.
[[nodiscard]] std::vector<std::string>
takeIn(const Receiver& receiver, const std::vector<std::string>& paths, WorkSet& workSet);

/// Why `text` cannot be an argument of a script, to be put behind what it is: the command line does
/// not escape it. None if it can.
[[nodiscard]] std::optional<std::string> objectionToArgument(const std::string& text);
