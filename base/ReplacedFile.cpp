#include "base/ReplacedFile.h"

#include "base/Leftovers.h"

#include <cerrno>
#include <cstdio>

#include <sys/stat.h>
#include <unistd.h>

namespace base {

Result<ReplacedFile> ReplacedFile::createFor(const std::string& target) {
    const std::string folder = folderOf(target);
    removeLeftovers(folder);
    ReplacedFile file(target);
    struct stat old {};
    const bool isNew = ::lstat(target.c_str(), &old) != 0 || !S_ISREG(old.st_mode);
    // What others may not read they may not read before either.
    const mode_t mode = isNew ? 0666 : 0600;
    file.opened_ = openNameless(folder, mode);
    if (!file.opened_.open()) {
        auto hidden = createHidden(folder, mode);
        if (!hidden)
            return systemError("create", target, errno);
        file.name_.emplace(std::move(hidden->name));
        file.opened_ = std::move(hidden->opened);
    }
    if (!isNew && ::fchmod(file.opened_.get(), old.st_mode & 0777U) != 0)
        return systemError("keep the permissions of", target, errno);
    return file;
}

Outcome ReplacedFile::commit() {
    if (retried([&] { return ::fsync(opened_.get()); }) != 0)
        return systemError("write", target_, errno);
    if (auto placed = takePlace(); !placed)
        return placed;
    opened_ = FileDescriptor();
    return {};
}

Outcome ReplacedFile::takePlace() {
    if (!name_) {
        if (giveName(opened_.get(), target_))
            return {};
        if (errno != EEXIST)
            return systemError("create", target_, errno);
        auto named = giveHiddenName(opened_.get(), folderOf(target_));
        if (!named)
            return systemError("create", target_, errno);
        name_.emplace(std::move(*named));
    }
    if (retried([&] { return std::rename(name_->path().c_str(), target_.c_str()); }) != 0)
        return systemError("replace", target_, errno);
    name_->release();
    return {};
}

} // namespace base
