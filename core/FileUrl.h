#pragma once

#include "core/Description.h"

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

/// A file URL. The URL of a folder ends in a slash, so a folder's URL and that of a file of the
/// same path differ, while the parent of a listed entry equals the URL of the folder that was
/// listed.
class FileUrl {
public:
    /// The URL of `path`: a folder's if the path ends in a slash or names one on disk. A relative
    /// path counts from the current folder.
    [[nodiscard]] static FileUrl fileURLWithPath(std::string_view path);
    /// Same, for callers that already know whether it is a folder; does not touch the disk. `path`
    /// is absolute.
    FileUrl(std::string_view path, bool isFolder);

    /// The path, without a slash at its end (but for "/").
    [[nodiscard]] const std::string& path() const { return path_; }
    /// The URL of the folder that holds this.
    [[nodiscard]] FileUrl deletingLastPathComponent() const;
    /// "file:///A/X%20Y.app/"
    [[nodiscard]] std::string absoluteString() const;

    friend bool operator==(const FileUrl&, const FileUrl&) = default;

private:
    std::string path_;
    bool isFolder_;
};

template <>
struct std::hash<FileUrl> {
    std::size_t operator()(const FileUrl& url) const noexcept {
        return std::hash<std::string>{}(url.path());
    }
};

void describe(BoundedText& out, const FileUrl& url);
void describeElement(BoundedText& out, const FileUrl& url);
