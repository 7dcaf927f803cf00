#include "sign/bundle/FileWatch.h"

#include "base/FileDescriptor.h"
#include "base/Leftovers.h"
#include "base/WorkerThreads.h"
#include "sign/files/FileStamp.h"

#include <string_view>

#include <fcntl.h>
#include <sys/stat.h>

namespace sign {
namespace {

bool isWatched(const FileEntry& entry, bool isCodeRoot) {
    const bool isDesktops = entry.name == ".DS_Store" && entry.isFile();
    return !isDesktops && !base::isTemporaryName(entry.name) &&
           !(isCodeRoot && entry.name == "_CodeSignature");
}

/// Calls `take` with each name, which a zero byte follows.
template <typename Take>
base::Outcome forEachName(std::string_view names, const Take& take) {
    for (std::size_t at = 0; at < names.size();) {
        const std::string_view name = names.substr(at, names.find('\0', at) - at);
        if (auto taken = take(name); !taken)
            return taken;
        at += name.size() + 1;
    }
    return {};
}

} // namespace

base::Result<std::vector<FileEntry>> FileWatch::list(const std::string& folder, bool isCodeRoot) {
    struct stat status {};
    if (::stat(folder.c_str(), &status) != 0)
        return base::systemError("read the folder", folder, errno);
    auto entries = entriesOf(folder);
    if (!entries)
        return entries.error();
    Folder& watched = folders_.emplace_back();
    watched.path = folder;
    watched.stamp = FileStamp::of(status);
    watched.isCodeRoot = isCodeRoot;
    watched.stamps.reserve(entries->size());
    for (const FileEntry& entry : *entries)
        if (isWatched(entry, isCodeRoot)) {
            watched.names.append(entry.name).push_back('\0');
            // What is in a folder is watched on its own, if it matters.
            watched.stamps.push_back(entry.isFolder() ? FileStamp() : entry.stamp);
        }
    watched.names.shrink_to_fit();
    return entries;
}

base::Outcome FileWatch::check(unsigned threads) const {
    for (const File& file : files_) {
        struct stat status {};
        if (::stat(file.path.c_str(), &status) != 0)
            return changedMeanwhile(file.path, "went away");
        if (FileStamp::of(status) != file.stamp)
            return changedMeanwhile(file.path, "changed");
    }
    constexpr std::size_t few = 16;
    return base::forEach(folders_.size(), folders_.size() > few ? threads : 1,
                         [this](std::size_t index) { return checkFolder(folders_[index]); });
}

base::Outcome FileWatch::checkFolder(const Folder& folder) {
    const auto opened =
        base::FileDescriptor::openAt(AT_FDCWD, folder.path.c_str(), O_RDONLY | O_DIRECTORY);
    struct stat status {};
    if (!opened.open() || ::fstat(opened.get(), &status) != 0)
        return changedMeanwhile(folder.path, "went away");
    if (FileStamp::of(status) != folder.stamp)
        if (auto checked = checkNames(folder); !checked)
            return checked;
    auto stamp = folder.stamps.begin();
    return forEachName(folder.names, [&](std::string_view name) -> base::Outcome {
        const FileStamp& before = *stamp++;
        if (before == FileStamp())
            return {};
        struct stat now {};
        // A zero byte follows the name.
        if (::fstatat(opened.get(), name.data(), &now, AT_SYMLINK_NOFOLLOW) != 0)
            return changedMeanwhile(folder.path + std::string(name), "went away");
        if (FileStamp::of(now) != before)
            return changedMeanwhile(folder.path + std::string(name), "changed");
        return {};
    });
}

/// That the stamp of a folder is another one may come from what is not watched.
base::Outcome FileWatch::checkNames(const Folder& folder) {
    const auto entries = entriesOf(folder.path);
    if (!entries)
        return entries.error();
    auto entry = entries->begin();
    const auto skip = [&] {
        while (entry != entries->end() && !isWatched(*entry, folder.isCodeRoot))
            ++entry;
    };
    skip();
    auto checked = forEachName(folder.names, [&](std::string_view name) -> base::Outcome {
        if (entry != entries->end() && entry->name < name)
            return changedMeanwhile(folder.path + entry->name, "was added");
        if (entry == entries->end() || entry->name != name)
            return changedMeanwhile(folder.path + std::string(name), "went away");
        ++entry;
        skip();
        return {};
    });
    if (checked && entry != entries->end())
        return changedMeanwhile(folder.path + entry->name, "was added");
    return checked;
}

} // namespace sign
