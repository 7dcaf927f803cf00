#pragma once

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include <sys/stat.h>

/// One line for each entry of the tree at `root`, the root too: path, kind, mode, link target or
/// size, and time of change to the second.
[[nodiscard]] inline std::vector<std::string> treeAt(const std::string& root) {
    namespace fs = std::filesystem;
    std::vector<std::string> lines;
    const auto add = [&](const fs::path& path) {
        struct stat status {};
        lstat(path.c_str(), &status);
        lines.push_back(path.lexically_relative(root).string() + ' ' +
                        std::to_string(status.st_mode) + ' ' +
                        (S_ISLNK(status.st_mode)   ? fs::read_symlink(path).string()
                         : S_ISREG(status.st_mode) ? std::to_string(status.st_size)
                                                   : "") +
                        ' ' + (S_ISLNK(status.st_mode) ? "" : std::to_string(status.st_mtime)));
    };
    add(root);
    for (const auto& entry : fs::recursive_directory_iterator(root))
        add(entry.path());
    std::ranges::sort(lines);
    return lines;
}
