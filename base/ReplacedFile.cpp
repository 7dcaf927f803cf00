#include "base/ReplacedFile.h"

#include "base/Leftovers.h"

#include <cerrno>
#include <cstdio>

#include <unistd.h>

namespace base {

Result<ReplacedFile> ReplacedFile::createFor(const std::string& target) {
    const std::string folder = folderOf(target);
    removeLeftovers(folder);
    ReplacedFile file(target);
    file.opened_ = openNameless(folder, 0666);
    if (file.opened_.open())
        return file;
    auto hidden = createHidden(folder, 0666);
    if (!hidden)
        return systemError("create", target, errno);
    file.name_.emplace(std::move(hidden->name));
    file.opened_ = std::move(hidden->opened);
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
