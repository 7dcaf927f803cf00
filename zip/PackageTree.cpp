#include "zip/PackageTree.h"

#include "zip/ExtendedAttributes.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <memory>
#include <numeric>

#include <dirent.h>
#include <fcntl.h>

namespace zip {
namespace {

namespace fs = std::filesystem;

/// Opens a folder that may be passed but not listed.
#if defined(O_PATH)
constexpr int toPassThrough = O_PATH;
#elif defined(O_SEARCH)
constexpr int toPassThrough = O_SEARCH;
#else
constexpr int toPassThrough = O_RDONLY;
#endif

struct CloseDirectory {
    void operator()(DIR* directory) const { ::closedir(directory); }
};
using Directory = std::unique_ptr<DIR, CloseDirectory>;

bool sameTime(const timespec& a, const timespec& b) {
    return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

base::Result<EntryType> typeOf(const struct stat& status, const std::string& path) {
    const char* kind = "of an unknown kind";
    switch (status.st_mode & S_IFMT) {
    case S_IFDIR:
        return EntryType::Folder;
    case S_IFREG:
        return EntryType::File;
    case S_IFLNK:
        return EntryType::Link;
    case S_IFIFO:
        kind = "a pipe";
        break;
    case S_IFSOCK:
        kind = "a socket";
        break;
    case S_IFCHR:
    case S_IFBLK:
        kind = "a device";
        break;
    default:
        break;
    }
    return base::Error{base::ErrorKind::Unsupported,
                       "Cannot pack " + path + ": it is " + kind + ". Remove it from the package."};
}

/// How much to ask about what is listed.
enum class Questions { All, NotThoseAnsweredBefore };

/// Adds what `at`/`path` names to the tree, under `name` (without a slash at its end).
base::Outcome addEntry(PackageTree& tree, int at, const char* path, std::string name,
                       Questions questions) {
    struct stat status {};
    if (::fstatat(at, path, &status, AT_SYMLINK_NOFOLLOW) != 0)
        return tree.entries.empty() ? base::systemError("find", tree.parentPath + name, errno)
                                    : errorOnListed("find", tree.parentPath + name, errno);
    auto type = typeOf(status, tree.parentPath + name);
    if (!type)
        return type.error();
    if (*type == EntryType::Link && questions == Questions::All)
        addExtendedAttributesOfLink(tree.parentPath + name, tree.attributes);
    if (*type == EntryType::Folder)
        name += '/';
    tree.entries.push_back({std::move(name), *type, FileState::of(status)});
    return {};
}

/// Whether the folder's own list says so; on some file systems it says nothing about kinds.
bool isListedAsFile([[maybe_unused]] const dirent& child) {
#ifdef DT_REG
    return child.d_type == DT_REG;
#else
    return false;
#endif
}

/// Adds everything that the folder holds, but not what its subfolders hold.
base::Outcome addChildren(PackageTree& tree, const std::string& folder, const FileState& state,
                          Questions questions) {
    const std::string path = tree.parentPath + folder;
    base::FileDescriptor opened = base::FileDescriptor::openAt(tree.parent.get(), folder.c_str(),
                                                               O_RDONLY | O_DIRECTORY | O_NOFOLLOW);
    struct stat status {};
    if (!opened.open() || ::fstat(opened.get(), &status) != 0)
        return errorOnListed("open", path, errno);
    if (status.st_dev != state.device || status.st_ino != state.inode)
        return changedMeanwhile(path);
    if (questions == Questions::All)
        addExtendedAttributes(opened.get(), tree.attributes);
    const Directory directory(::fdopendir(opened.get()));
    if (!directory)
        return base::systemError("list", path, errno);
    const int descriptor = opened.release();
    errno = 0;
    while (const dirent* child = ::readdir(directory.get())) {
        const std::string_view name = child->d_name;
        if (name == "." || name == "..")
            continue;
        if (questions == Questions::NotThoseAnsweredBefore && isListedAsFile(*child))
            tree.entries.push_back({folder + child->d_name, EntryType::File, {}});
        else if (auto added =
                     addEntry(tree, descriptor, child->d_name, folder + child->d_name, questions);
                 !added)
            return added;
        errno = 0;
    }
    if (errno != 0)
        return base::systemError("list", path, errno);
    return {};
}

/// Splits the path of the package into parentPath and name; "." and ".." get their real name.
base::Result<std::pair<std::string, std::string>> splitPath(std::string path) {
    while (path.size() > 1 && path.back() == '/')
        path.pop_back();
    const std::string last = fs::path(path).filename();
    if (last == "." || last == "..") {
        std::error_code code;
        const fs::path real = fs::canonical(path, code);
        if (code)
            return base::systemError("find", path, code.value());
        path = real;
    }
    if (path.empty() || path == "/")
        return base::Error{base::ErrorKind::Usage,
                           "Cannot pack \"" + path +
                               "\": it has no name. Give the path of a package."};
    const auto nameStart = path.rfind('/') + 1;
    return std::pair{path.substr(0, nameStart), path.substr(nameStart)};
}

base::Result<PackageTree> listWith(const std::string& package, Questions questions) {
    auto split = splitPath(package);
    if (!split)
        return split.error();
    PackageTree tree;
    tree.parentPath = split->first;
    const std::string parent = tree.parentPath.empty() ? "." : tree.parentPath;
    tree.parent =
        base::FileDescriptor::openAt(AT_FDCWD, parent.c_str(), toPassThrough | O_DIRECTORY);
    if (!tree.parent.open())
        return base::systemError("open", parent, errno);
    if (auto added =
            addEntry(tree, tree.parent.get(), split->second.c_str(), split->second, questions);
        !added)
        return added.error();
    if (tree.entries[0].type == EntryType::Link) {
        std::error_code code;
        const std::string target = fs::read_symlink(tree.pathOf(tree.entries[0]), code);
        return base::Error{base::ErrorKind::Usage, "Cannot pack " + package +
                                                       ": it is a symbolic link to " + target +
                                                       ". Give the path of the package itself."};
    }
    if (tree.entries[0].type != EntryType::Folder)
        return base::Error{base::ErrorKind::Usage,
                           "Cannot pack " + package +
                               ": it is not a folder. Give the path of a package."};
    for (std::size_t index = 0; index < tree.entries.size(); ++index) {
        if (tree.entries[index].type != EntryType::Folder)
            continue;
        const Entry folder = tree.entries[index];
        if (auto added = addChildren(tree, folder.name, folder.state, questions); !added)
            return added.error();
    }
    std::sort(tree.entries.begin(), tree.entries.end(),
              [](const Entry& a, const Entry& b) { return a.name < b.name; });
    return tree;
}

} // namespace

FileState FileState::of(const struct stat& status) {
#ifdef __APPLE__
    const timespec& modified = status.st_mtimespec;
    const timespec& changed = status.st_ctimespec;
#else
    const timespec& modified = status.st_mtim;
    const timespec& changed = status.st_ctim;
#endif
    return {status.st_dev, status.st_ino, status.st_mode, status.st_size, modified, changed};
}

bool FileState::operator==(const FileState& other) const {
    return device == other.device && inode == other.inode && mode == other.mode &&
           size == other.size && sameTime(modified, other.modified) &&
           sameTime(changed, other.changed);
}

std::uint64_t Entry::contentSize() const {
    return type == EntryType::Folder ? 0 : static_cast<std::uint64_t>(state.size);
}

std::uint64_t contentSize(std::span<const Entry> entries) {
    return std::accumulate(
        entries.begin(), entries.end(), std::uint64_t{0},
        [](std::uint64_t sum, const Entry& entry) { return sum + entry.contentSize(); });
}

OpenFolder::Place OpenFolder::placeOf(const Entry& entry) {
    const std::size_t nameStart = entry.name.rfind('/') + 1;
    if (!opened_.open() || std::string_view(entry.name).substr(0, nameStart) != path_) {
        path_ = entry.name.substr(0, nameStart);
        opened_ = base::FileDescriptor::openAt(tree_.parent.get(), path_.c_str(),
                                               toPassThrough | O_DIRECTORY | O_NOFOLLOW);
    }
    if (!opened_.open())
        return {tree_.parent.get(), entry.name.c_str()};
    return {opened_.get(), entry.name.c_str() + nameStart};
}

base::Error changedMeanwhile(const std::string& path) {
    return {base::ErrorKind::Changed,
            "Cannot pack " + path +
                ": it was changed meanwhile. Try again when nothing writes to the package."};
}

base::Error errorOnListed(std::string_view action, const std::string& path, int code) {
    // What open() and readlink() say of a file of another type, or of none.
    const bool isAnother = code == ENOENT || code == ENOTDIR || code == ELOOP || code == EINVAL;
    return isAnother ? changedMeanwhile(path) : base::systemError(action, path, code);
}

base::Result<PackageTree> listPackage(const std::string& package) {
    return listWith(package, Questions::All);
}

base::Result<PackageTree> listAgain(const std::string& package, const PackageTree& earlier) {
    auto tree = listWith(package, Questions::NotThoseAnsweredBefore);
    if (!tree)
        return tree;
    if (tree->entries.size() != earlier.entries.size())
        return changedMeanwhile(package);
    for (std::size_t index = 0; index < earlier.entries.size(); ++index) {
        Entry& entry = tree->entries[index];
        const Entry& before = earlier.entries[index];
        if (entry.name != before.name || entry.type != before.type)
            return changedMeanwhile(tree->pathOf(entry));
        if (entry.type == EntryType::File)
            entry.state = before.state;
    }
    return tree;
}

} // namespace zip
