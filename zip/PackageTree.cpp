#include "zip/PackageTree.h"

#include "base/WorkerThreads.h"
#include "zip/ExtendedAttributes.h"
#include "zip/FolderReader.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <deque>
#include <filesystem>
#include <iterator>
#include <mutex>
#include <numeric>

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

/// Lists folders of one package; each thread has one of its own.
class Lister {
public:
    explicit Lister(const PackageTree& tree) : tree_(tree) {}

    /// Adds what `at`/`path` names, under `name` (without a slash at its end).
    base::Outcome addEntry(int at, const char* path, std::string name) {
        const std::string fullPath = tree_.parentPath + name;
        struct stat status {};
        if (::fstatat(at, path, &status, AT_SYMLINK_NOFOLLOW) != 0)
            return tree_.entries.empty() ? base::systemError("find", fullPath, errno)
                                         : errorOnListed("find", fullPath, errno);
        auto type = typeOf(status, fullPath);
        if (!type)
            return type.error();
        if (*type == EntryType::Link)
            addExtendedAttributesOfLink(fullPath, attributes_);
        if (*type == EntryType::Folder)
            name += '/';
        entries_.push_back({std::move(name), *type, FileState::of(status)});
        return {};
    }

    /// Adds everything that the folder holds, but not what its subfolders hold, and finds the
    /// state of the folder.
    base::Outcome addChildren(Entry& folder) {
        const std::string path = tree_.pathOf(folder);
        base::FileDescriptor opened = base::FileDescriptor::openAt(
            tree_.parent.get(), folder.name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW);
        struct stat status {};
        if (!opened.open() || ::fstat(opened.get(), &status) != 0)
            return errorOnListed("open", path, errno);
        folder.state = FileState::of(status);
        addExtendedAttributes(opened.get(), attributes_);
        if (!reader_.start(std::move(opened)))
            return base::systemError("list", path, errno);
        while (const auto child = reader_.next()) {
            if (child->type == EntryType::Folder)
                // Its state is asked for when it is open.
                entries_.push_back({folder.name + child->name + '/', EntryType::Folder, {}});
            else if (auto added =
                         addEntry(reader_.descriptor(), child->name, folder.name + child->name);
                     !added)
                return added;
        }
        if (errno != 0)
            return base::systemError("list", path, errno);
        return {};
    }

    /// Appends what was added since the last call.
    template <typename Entries>
    void moveTo(Entries& entries) {
        std::ranges::move(entries_, std::back_inserter(entries));
        entries_.clear();
    }

    [[nodiscard]] std::set<std::string>& attributes() { return attributes_; }

private:
    const PackageTree& tree_;
    FolderReader reader_;
    std::vector<Entry> entries_;
    std::set<std::string> attributes_;
};

/// Adds everything below the package, which is the tree's only entry: level by level, the folders
/// of one level by all threads.
base::Outcome addAllBelow(PackageTree& tree, unsigned threads) {
    // Does not move what it holds when it grows.
    std::deque<Entry> found;
    std::size_t listed = 0;
    std::vector<Entry*> folders{&tree.entries.front()};
    while (!folders.empty()) {
        std::mutex mutex;
        std::atomic<std::size_t> next = 0;
        const auto work = [&]() -> base::Outcome {
            Lister lister(tree);
            for (std::size_t at = next++; at < folders.size(); at = next++) {
                if (auto added = lister.addChildren(*folders[at]); !added)
                    return added;
                const std::lock_guard lock(mutex);
                lister.moveTo(found);
            }
            const std::lock_guard lock(mutex);
            tree.attributes.merge(lister.attributes());
            return {};
        };
        if (auto done = base::runOnThreads(threadsFor(folders.size(), threads), work,
                                           [&] { next = folders.size(); });
            !done)
            return done;
        folders.clear();
        for (; listed < found.size(); ++listed)
            if (found[listed].type == EntryType::Folder)
                folders.push_back(&found[listed]);
    }
    tree.entries.reserve(found.size() + 1);
    std::ranges::move(found, std::back_inserter(tree.entries));
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
    const auto folder = std::string_view(entry.name).substr(0, nameStart);
    if (!opened_.open() || folder != path_) {
        path_ = folder;
        opened_ = {};
        if (isWorthOpening(entry, folder))
            opened_ = base::FileDescriptor::openAt(tree_.parent.get(), path_.c_str(),
                                                   toPassThrough | O_DIRECTORY | O_NOFOLLOW);
    }
    if (!opened_.open())
        return {tree_.parent.get(), entry.name.c_str()};
    return {opened_.get(), entry.name.c_str() + nameStart};
}

/// Opening a folder and closing it takes as long as looking up the whole paths of three files.
bool OpenFolder::isWorthOpening(const Entry& first, std::string_view folder) const {
    constexpr std::size_t fewest = 4;
    const auto index = static_cast<std::size_t>(&first - tree_.entries.data());
    if (tree_.entries.size() - index < fewest)
        return false;
    const std::string_view last = tree_.entries[index + fewest - 1].name;
    return last.starts_with(folder) && last.find('/', folder.size()) == std::string_view::npos;
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

base::Result<PackageTree> listPackage(const std::string& package, unsigned threads) {
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
    Lister lister(tree);
    if (auto added = lister.addEntry(tree.parent.get(), split->second.c_str(), split->second);
        !added)
        return added.error();
    lister.moveTo(tree.entries);
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
    if (auto added = addAllBelow(tree, threads); !added)
        return added.error();
    std::ranges::sort(tree.entries, {}, &Entry::name);
    return tree;
}

unsigned threadsFor(std::size_t folders, unsigned threads) {
    constexpr std::size_t worthAThread = 16;
    return static_cast<unsigned>(std::min<std::size_t>(threads, folders / worthAThread + 1));
}

} // namespace zip
