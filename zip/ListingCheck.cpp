#include "zip/ListingCheck.h"

#include "base/WorkerThreads.h"
#include "zip/FolderReader.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>

namespace zip {
namespace {

struct ListedFolder {
    const Entry* entry = nullptr;
    /// All that is below the folder.
    std::span<const Entry> below;
    std::size_t childCount = 0;
};

std::vector<ListedFolder> foldersOf(std::span<const Entry> entries) {
    std::vector<ListedFolder> folders;
    // Those that the entry at hand lies in, the innermost last.
    std::vector<std::size_t> around;
    const auto leave = [&](std::size_t end) {
        ListedFolder& folder = folders[around.back()];
        const auto start = static_cast<std::size_t>(folder.entry - entries.data()) + 1;
        folder.below = entries.subspan(start, end - start);
        around.pop_back();
    };
    for (std::size_t index = 0; index < entries.size(); ++index) {
        const Entry& entry = entries[index];
        while (!around.empty() && !entry.name.starts_with(folders[around.back()].entry->name))
            leave(index);
        if (!around.empty())
            ++folders[around.back()].childCount;
        if (entry.type == EntryType::Folder) {
            around.push_back(folders.size());
            folders.push_back({.entry = &entry, .below = {}});
        }
    }
    while (!around.empty())
        leave(entries.size());
    return folders;
}

/// Checks folders; each thread has one of its own.
class FolderCheck {
public:
    explicit FolderCheck(const PackageTree& tree) : tree_(tree) {}

    base::Outcome check(const ListedFolder& folder) {
        const std::string path = tree_.pathOf(*folder.entry);
        base::FileDescriptor opened = base::FileDescriptor::openAt(
            tree_.parent.get(), folder.entry->name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW);
        struct stat status {};
        if (!opened.open() || ::fstat(opened.get(), &status) != 0)
            return errorOnListed("open", path, errno);
        if (FileState::of(status) != folder.entry->state)
            return changedMeanwhile(path);
        if (!reader_.start(std::move(opened)))
            return base::systemError("list", path, errno);
        std::size_t count = 0;
        while (const auto child = reader_.next()) {
            if (!isListed(*child, folder))
                return changedMeanwhile(path + child->name);
            ++count;
        }
        if (errno != 0)
            return base::systemError("list", path, errno);
        return count == folder.childCount ? base::Outcome() : changedMeanwhile(path);
    }

private:
    bool isListed(const FolderReader::Child& child, const ListedFolder& folder) {
        struct stat status {};
        const bool isAsked = child.type != EntryType::File && child.type != EntryType::Folder;
        if (isAsked &&
            ::fstatat(reader_.descriptor(), child.name, &status, AT_SYMLINK_NOFOLLOW) != 0)
            return false;
        name_ = child.name;
        if (child.type == EntryType::Folder || (isAsked && S_ISDIR(status.st_mode)))
            name_ += '/';
        const std::size_t nameStart = folder.entry->name.size();
        const auto found = std::ranges::lower_bound(
            folder.below, std::string_view(name_), {},
            [&](const Entry& entry) { return std::string_view(entry.name).substr(nameStart); });
        if (found == folder.below.end() || std::string_view(found->name).substr(nameStart) != name_)
            return false;
        if (!isAsked)
            return child.type == found->type;
        // The state holds the kind.
        return found->type == EntryType::Link
                   ? FileState::of(status) == found->state
                   : (status.st_mode & S_IFMT) == (found->mode() & S_IFMT);
    }

    const PackageTree& tree_;
    FolderReader reader_;
    std::string name_;
};

/// Whether the path of the package still leads to what was listed, and not only the folder that
/// the tree keeps open.
bool isInPlace(const PackageTree& tree) {
    const Entry& package = tree.entries.front();
    std::string path = tree.pathOf(package);
    path.pop_back();
    struct stat status {};
    return ::lstat(path.c_str(), &status) == 0 && FileState::of(status) == package.state;
}

} // namespace

base::Outcome checkListing(const PackageTree& tree, unsigned threads) {
    if (!isInPlace(tree))
        return changedMeanwhile(tree.pathOf(tree.entries.front()));
    const auto folders = foldersOf(tree.entries);
    std::atomic<std::size_t> next = 0;
    const auto work = [&]() -> base::Outcome {
        FolderCheck check(tree);
        for (std::size_t at = next++; at < folders.size(); at = next++)
            if (auto same = check.check(folders[at]); !same)
                return same;
        return {};
    };
    return base::runOnThreads(threadsFor(folders.size(), threads), work,
                              [&] { next = folders.size(); });
}

} // namespace zip
