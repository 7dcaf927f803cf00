#pragma once

#include "core/MainBundle.h"

#include <string>

namespace VornNSStringAdditions {

/// The path of the script with that file name: on the user's desktop, else beside the application,
/// else among the bundle's executables, else among its resources. "(null)" if it is nowhere: test
/// for that text. Any thread.
[[nodiscard]] std::string getPathToScript(const std::string& scriptName, const MainBundle& bundle);

} // namespace VornNSStringAdditions
