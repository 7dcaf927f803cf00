#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace base {

// Files that are written aside have names of one form. A process that is killed leaves them; who
// holds a lock (flock) on one is still at it.

/// ".kelpmoray-", 32 random hexadecimal digits, ".tmp"; none if the system has no random bytes,
/// with errno set. Any thread.
[[nodiscard]] std::optional<std::string> temporaryName();

/// Whether a name is of that form. Any thread.
[[nodiscard]] bool isTemporaryName(std::string_view name);

/// Locks what is open as `descriptor`, if nobody else does. Any thread.
[[nodiscard]] bool lockWithoutWaiting(int descriptor);

/// Whether `path` names the file that is open as `descriptor`. Any thread.
[[nodiscard]] bool isNameOf(int descriptor, const std::string& path);

/// Removes the file `name` in `folder` if a killed process has left it: it has a name of our form,
/// is a plain file, and nobody has locked it. False if it stays. Any thread.
bool removeLeftover(const std::string& folder, const std::string& name);

/// The same for all files of a folder.
void removeLeftovers(const std::string& folder);

} // namespace base
