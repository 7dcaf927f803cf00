#pragma once

#include <optional>
#include <string>

/// Runs `command` through the system shell, waits for it, and gives the text of one read of at most
/// 512,000 bytes of its standard output, up to the first zero byte. None when the command could not
/// be started, wrote nothing, or wrote what is not UTF-8; the exit status decides nothing.
///
/// Any thread with more than 512,001 bytes of stack to spare. SIGCHLD is ignored meanwhile, in the
/// whole process.
[[nodiscard]] std::optional<std::string> runShellCommand(const std::string& command);

namespace VornNSStringAdditions {

/// Runs `command` through the system shell, waits for it, and gives its whole standard output. None
/// when the command is empty or could not be started, or when its output is empty or not UTF-8 (the
/// last three are logged). Any thread. SIGCHLD is ignored meanwhile, in the whole process.
[[nodiscard]] std::optional<std::string> outputWhenRunAsShellCommand(const std::string& command);

/// Runs `command` through /bin/sh and gives its whole standard output, without waiting for its end.
/// None when it wrote nothing or what is not UTF-8. Any thread; SIGCHLD is not touched.
[[nodiscard]] std::optional<std::string> runAsShellCmd(const std::string& command);

} // namespace VornNSStringAdditions
