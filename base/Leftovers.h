#pragma once

#include "base/FileDescriptor.h"

#include <optional>
#include <string>
#include <string_view>

#include <sys/stat.h>

namespace base {

// Files that are written aside, and pipes, have names of one form. A killed process leaves its file
// behind; a process that still uses it holds a lock (flock) on it.

/// ".kelpmoray-", 32 random hexadecimal digits, ".tmp"; none if the system has no random bytes,
/// with errno set. Any thread.
[[nodiscard]] std::optional<std::string> temporaryName();

/// Whether a name is of that form. Any thread.
[[nodiscard]] bool isTemporaryName(std::string_view name);

/// The folder that `path` lies in, "." if it names none.
[[nodiscard]] std::string folderOf(const std::string& path);

/// A file in `folder` that has no name yet, is locked, and is open for reading and writing; not
/// open if the system has no such files. Any thread.
[[nodiscard]] FileDescriptor openNameless(const std::string& folder, mode_t mode);

/// Names a file of openNameless(); false, with errno set, also if something has the name already.
[[nodiscard]] bool giveName(int descriptor, const std::string& path);

/// Locks what is open as `descriptor`, if nobody else does. Any thread.
[[nodiscard]] bool lockWithoutWaiting(int descriptor);

/// Whether `path` names the file that is open as `descriptor`. Any thread.
[[nodiscard]] bool isNameOf(int descriptor, const std::string& path);

/// Removes the file `name` in `folder` if a killed process has left it: it has a name of our form,
/// is of the type (S_IFMT) given, a plain file or a pipe, and nobody has locked it. False if it
/// stays. Any thread.
bool removeLeftover(const std::string& folder, const std::string& name, mode_t type = S_IFREG);

/// The same for all files of a folder.
void removeLeftovers(const std::string& folder, mode_t type = S_IFREG);

} // namespace base
