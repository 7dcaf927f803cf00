#pragma once

#include "core/Log.h"

#include <string>
#include <string_view>

/// Writes one message to the system log under the process's name. Any thread.
void writeToSystemLog(Log::Severity severity, std::string_view message);

/// The name this process was started under, without its folder.
[[nodiscard]] std::string processName();
