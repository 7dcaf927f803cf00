#include "sign/bundle/NewFiles.h"

#include <algorithm>
#include <string_view>

#include <sys/stat.h>

namespace sign {

void NewFiles::put(const std::string& path, const AsideFile* file) {
    const std::size_t name = path.rfind('/') + 1;
    const std::lock_guard lock(mutex_);
    folders_[path.substr(0, name)].insert_or_assign(path.substr(name), file);
}

void NewFiles::keep(const std::string& path) {
    const std::lock_guard lock(mutex_);
    kept_.insert(path);
}

bool NewFiles::isUnknownCode(const std::string& path) const {
    if (!hasAllCode_ || find(path) != nullptr)
        return false;
    const std::lock_guard lock(mutex_);
    return !kept_.contains(path);
}

const AsideFile* NewFiles::find(const std::string& path) const {
    const std::string_view whole = path;
    const std::size_t name = whole.rfind('/') + 1;
    const std::lock_guard lock(mutex_);
    const auto folder = folders_.find(whole.substr(0, name));
    if (folder == folders_.end())
        return nullptr;
    const auto found = folder->second.find(whole.substr(name));
    return found == folder->second.end() ? nullptr : found->second;
}

void NewFiles::applyTo(const std::string& folder, std::vector<FileEntry>& entries) const {
    const std::lock_guard lock(mutex_);
    const auto found = folders_.find(folder);
    if (found == folders_.end())
        return;
    Names added = found->second;
    std::erase_if(entries, [&](FileEntry& entry) {
        const auto change = added.find(entry.name);
        if (change == added.end())
            return false;
        if (change->second == nullptr)
            return true;
        if (!entry.isFile()) // a link is replaced, too
            entry.mode = S_IFREG;
        added.erase(change);
        return false;
    });
    for (const auto& [name, file] : added)
        if (file != nullptr)
            entries.push_back({name, S_IFREG});
    std::ranges::sort(entries, {}, &FileEntry::name);
}

} // namespace sign
