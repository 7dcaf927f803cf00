#pragma once

#include "core/Format.h"

#include <optional>
#include <string>

/// The question asked before a folder is processed; the window and the terminal use the same words.
namespace Confirmation {

/// The numbers are the response codes of the original platform's alerts.
enum class Answer { Process = 1000, Skip = 1001, Stop = 1002 };

inline constexpr const char* message = "Process this Folder?";
inline constexpr const char* process = "Process";
inline constexpr const char* skip = "Skip";
inline constexpr const char* stop = "Stop";
inline constexpr const char* doNotCodesign = "do not codesign";

[[nodiscard]] inline std::string informativeText(const std::optional<std::string>& folder) {
    return formatted("Click 'Process' to begin processing items in folder:\n%@", folder);
}

} // namespace Confirmation
