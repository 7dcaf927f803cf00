#pragma once

#include <string>

/// The absolute path of the running program, links resolved; empty if the system does not tell.
[[nodiscard]] std::string currentExecutablePath();
