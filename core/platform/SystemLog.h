#pragma once

#include <string>
#include <string_view>

/// Writes one message to the system log under the process's name. Any thread.
void writeToSystemLog(std::string_view message);

/// The name this process was started under, without its folder.
[[nodiscard]] std::string processName();
