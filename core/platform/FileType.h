#pragma once

#include <optional>
#include <string>

/// What the platform takes a location for. A volume is what is mounted at its file system's root;
/// what is none of the others is data.
enum class FileType { Data, Folder, ApplicationBundle, Package, Volume };

/// The type of what is at `path` (a link counts as what it points at); none if nothing is there.
/// Any thread.
[[nodiscard]] std::optional<FileType> typeOfFile(const std::string& path);

/// Whether `type` is a plain folder, or a volume, which is a folder too.
[[nodiscard]] constexpr bool conformsToFolder(FileType type) {
    return type == FileType::Folder || type == FileType::Volume;
}

/// Whether `type` is a directory that a file browser shows as one item.
[[nodiscard]] constexpr bool conformsToPackage(FileType type) {
    return type == FileType::ApplicationBundle || type == FileType::Package;
}
