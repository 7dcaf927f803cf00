#pragma once

#include "sign/files/FileTree.h"

#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

namespace sign {

class AsideFile;

/// What of a package will be another file, or gone, when all code that is being signed has taken
/// its place. A bundle whose seal has hashes of such files is sealed before that. Any thread.
class NewFiles {
public:
    /// `hasAllCode` says whether all code of the package will be added or kept before a seal has
    /// hashes of it.
    explicit NewFiles(bool hasAllCode = false) : hasAllCode_(hasAllCode) {}

    /// `file` will be at `path`. It outlives this.
    void add(const std::string& path, const AsideFile& file) { put(path, &file); }
    /// Nothing will be at `path`.
    void remove(const std::string& path) { put(path, nullptr); }

    /// The code at `path` keeps its signature.
    void keep(const std::string& path);

    /// Whether code at `path` has come since the code of the package was looked for.
    [[nodiscard]] bool isUnknownCode(const std::string& path) const;
    /// What will be at `path`; null if that stays as it is.
    [[nodiscard]] const AsideFile* find(const std::string& path) const;
    /// Makes of the entries of a folder, whose path ends with a slash, what they will be.
    void applyTo(const std::string& folder, std::vector<FileEntry>& entries) const;

private:
    using Names = std::map<std::string, const AsideFile*, std::less<>>;

    void put(const std::string& path, const AsideFile* file);

    const bool hasAllCode_;
    mutable std::mutex mutex_;
    std::set<std::string> kept_;
    std::map<std::string, Names, std::less<>> folders_; ///< with slashes at their ends
};

} // namespace sign
