#include "core/Path.h"

#include "core/Text.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>

#include <pwd.h>
#include <unistd.h>

namespace {

std::string_view withoutTrailingSlashes(std::string_view path) {
    while (path.size() > 1 && path.ends_with('/'))
        path.remove_suffix(1);
    return path;
}

/// The home folder of `user` (the current one if empty), empty if unknown.
std::string homeFolderOf(const std::string& user) {
    if (user.empty()) {
        if (const char* home = std::getenv("HOME"); home != nullptr && *home != '\0')
            return home;
    }
    passwd entry{};
    passwd* found = nullptr;
    char buffer[16'384];
    if (user.empty())
        getpwuid_r(getuid(), &entry, buffer, sizeof buffer, &found);
    else
        getpwnam_r(user.c_str(), &entry, buffer, sizeof buffer, &found);
    return found != nullptr && entry.pw_dir != nullptr ? entry.pw_dir : "";
}

std::string expandingTilde(std::string_view path) {
    if (!path.starts_with('~'))
        return std::string(path);
    const std::size_t end = std::min(path.find('/'), path.size());
    const std::string home = homeFolderOf(std::string(path.substr(1, end - 1)));
    return home.empty() ? std::string(path) : home + std::string(path.substr(end));
}

/// The folder above `path`, or above what it leads to when there are links on the way.
std::string parentFolder(const std::string& path) {
    std::error_code error;
    const std::filesystem::path target = std::filesystem::canonical(path, error);
    return deletingLastPathComponent(error ? path : target.string());
}

} // namespace

std::string lastPathComponent(std::string_view path) {
    path = withoutTrailingSlashes(path);
    const std::size_t slash = path.rfind('/');
    if (slash == std::string_view::npos || path.size() == 1)
        return std::string(path);
    return std::string(path.substr(slash + 1));
}

std::string deletingLastPathComponent(std::string_view path) {
    path = withoutTrailingSlashes(path);
    const std::size_t slash = path.rfind('/');
    if (slash == std::string_view::npos)
        return {};
    return std::string(withoutTrailingSlashes(path.substr(0, slash + 1)));
}

std::string pathExtension(std::string_view path) {
    const std::string name = lastPathComponent(path);
    const std::size_t dot = name.rfind('.');
    return dot == std::string::npos || dot == 0 ? std::string() : name.substr(dot + 1);
}

bool hasAppExtension(std::string_view path) {
    return equalsIgnoringCase(pathExtension(path), "app");
}

std::string appendingPathComponent(std::string_view folder, std::string_view component) {
    std::string path(withoutTrailingSlashes(folder));
    if (!path.ends_with('/') && !path.empty())
        path += '/';
    return path.append(component);
}

std::string homeFolder() {
    return homeFolderOf({});
}

std::string absolutePath(std::string_view path) {
    std::error_code error;
    return path.empty() || path.starts_with('/') ? std::string(path)
                                                 : std::filesystem::absolute(path, error).string();
}

std::string standardizedPath(std::string_view path) {
    const std::string expanded = expandingTilde(path);
    const bool absolute = expanded.starts_with('/');
    std::string result = absolute ? "/" : "";
    for (std::string_view step : split(expanded, "/")) {
        if (step.empty() || step == ".")
            continue;
        const bool canGoUp = !result.empty() && lastPathComponent(result) != "..";
        if (step != "..")
            result = appendingPathComponent(result, step);
        else if (absolute)
            result = parentFolder(result);
        else
            result =
                canGoUp ? deletingLastPathComponent(result) : appendingPathComponent(result, step);
    }
    return result;
}

bool fileExists(const std::string& path) {
    std::error_code error;
    return std::filesystem::exists(path, error);
}

bool isDirectory(const std::string& path) {
    std::error_code error;
    return std::filesystem::is_directory(path, error);
}

bool isRegularFile(const std::string& path) {
    std::error_code error;
    return std::filesystem::is_regular_file(path, error);
}
