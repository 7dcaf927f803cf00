#pragma once

#include "base/FileDescriptor.h"
#include "base/Result.h"

#include <cstddef>
#include <cstdint>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <sys/stat.h>

namespace zip {

enum class EntryType : std::uint8_t { Folder, File, Link };

/// Tells whether a file is still the one that was listed, and unchanged since.
struct FileState {
    dev_t device = 0;
    ino_t inode = 0;
    mode_t mode = 0;
    off_t size = 0;
    timespec modified{};
    timespec changed{};

    [[nodiscard]] static FileState of(const struct stat& status);
    [[nodiscard]] bool operator==(const FileState& other) const;
};

/// One folder, file or symbolic link of the package.
struct Entry {
    /// Path from the folder that holds the package, bytes as on disk; a folder's ends in a slash.
    std::string name;
    EntryType type = EntryType::File;
    FileState state;

    /// The kind and the permissions.
    [[nodiscard]] std::uint16_t mode() const { return static_cast<std::uint16_t>(state.mode); }

    /// Bytes of content: the length of a file, or of a link's target; a folder has none.
    [[nodiscard]] std::uint64_t contentSize() const;
};

/// The listing of a package, taken once: what will be in the archive.
struct PackageTree {
    /// The folder that holds the package; the names of the entries start here.
    base::FileDescriptor parent;
    /// Path of that folder with a slash at its end, for messages.
    std::string parentPath;
    /// Sorted by the bytes of their names, so each folder stands before what it holds. The first
    /// one is the package itself.
    std::vector<Entry> entries;
    /// The names of the extended attributes and access control lists that folders and links have.
    std::set<std::string> attributes;

    [[nodiscard]] std::string pathOf(const Entry& entry) const { return parentPath + entry.name; }
};

/// Keeps the folder of an entry open for the next ones, if several lie there: the system then need
/// not look up the whole path of each. Each thread needs one of its own.
class OpenFolder {
public:
    /// A descriptor and what to open from there.
    struct Place {
        int folder = -1;
        const char* path = nullptr;
    };

    /// The tree must outlive this.
    explicit OpenFolder(const PackageTree& tree) : tree_(tree) {}

    [[nodiscard]] const PackageTree& tree() const { return tree_; }

    /// Of a file or link among the tree's entries; valid until the next call. If its folder cannot
    /// be opened, the whole path, so that opening the entry tells why.
    [[nodiscard]] Place placeOf(const Entry& entry);

private:
    [[nodiscard]] bool isWorthOpening(const Entry& first, std::string_view folder) const;

    const PackageTree& tree_;
    /// With a slash at its end.
    std::string path_;
    base::FileDescriptor opened_;
};

/// The sum over all entries.
[[nodiscard]] std::uint64_t contentSize(std::span<const Entry> entries);

/// The error that `path` is not, or no longer, what was listed.
[[nodiscard]] base::Error changedMeanwhile(const std::string& path);

/// The failure of a system call on what was listed; `code` is the value of errno. If it says that
/// something else is there now, it is changedMeanwhile().
[[nodiscard]] base::Error errorOnListed(std::string_view action, const std::string& path, int code);

/// Lists the package on `threads` threads (at least 1) without following links. Fails if the
/// package is a symbolic link or not a folder, and if it holds a socket, a device or a pipe.
[[nodiscard]] base::Result<PackageTree> listPackage(const std::string& package, unsigned threads);

/// How many of `threads` threads are worth starting for `folders` folders.
[[nodiscard]] unsigned threadsFor(std::size_t folders, unsigned threads);

} // namespace zip
