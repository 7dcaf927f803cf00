#pragma once

#include <string>
#include <string_view>

/// Path strings, taken apart and put together by their text (but for standardizedPath, which looks
/// at the file system). A slash at the end belongs to no component. Any thread.

/// "/A/X.app/" gives "X.app"; "/" gives "/".
[[nodiscard]] std::string lastPathComponent(std::string_view path);

/// "/A/X.app" gives "/A"; "/A" gives "/"; "X.app" gives "".
[[nodiscard]] std::string deletingLastPathComponent(std::string_view path);

/// What follows the last dot of the last component; empty if there is no dot or nothing before it.
[[nodiscard]] std::string pathExtension(std::string_view path);

/// Whether the name ends in ".app", in any letter case. Looks at the name only.
[[nodiscard]] bool hasAppExtension(std::string_view path);

/// "/A" and "X.app" give "/A/X.app".
[[nodiscard]] std::string appendingPathComponent(std::string_view folder,
                                                 std::string_view component);

/// The home folder of the current user; empty if there is none.
[[nodiscard]] std::string homeFolder();

/// A leading tilde expanded, "." and ".." steps resolved (".." after a link leads to the folder
/// that holds the link's target), redundant slashes removed.
[[nodiscard]] std::string standardizedPath(std::string_view path);

/// `path` from the root on, beginning in the process's folder; as it is if it is empty, which some
/// standard libraries take for that folder itself.
[[nodiscard]] std::string absolutePath(std::string_view path);

// What is at a path; a link counts as what it points at.
[[nodiscard]] bool fileExists(const std::string& path);
[[nodiscard]] bool isDirectory(const std::string& path);
[[nodiscard]] bool isRegularFile(const std::string& path);
