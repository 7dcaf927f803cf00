#pragma once

#include "sign/files/FileTree.h"

#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace sign {

class AsideFile;

/// What of a package will be another file, or gone, when all code that is being signed has taken
/// its place. A bundle whose seal has hashes of such files is sealed before that. Any thread.
class NewFiles {
public:
    /// `file` will be at `path`. It outlives this.
    void add(const std::string& path, const AsideFile& file) { put(path, &file); }
    /// Nothing will be at `path`.
    void remove(const std::string& path) { put(path, nullptr); }

    /// What will be at `path`; null if that stays as it is.
    [[nodiscard]] const AsideFile* find(const std::string& path) const;
    /// Makes of the entries of a folder, whose path ends with a slash, what they will be.
    void applyTo(const std::string& folder, std::vector<FileEntry>& entries) const;

private:
    using Names = std::map<std::string, const AsideFile*, std::less<>>;

    void put(const std::string& path, const AsideFile* file);

    mutable std::mutex mutex_;
    std::map<std::string, Names, std::less<>> folders_; ///< with slashes at their ends
};

} // namespace sign
