#include "sign/files/AsideFile.h"

#include "base/Leftovers.h"
#include "sign/files/SignalPause.h"

#include <cerrno>
#include <cstdio>

#include <fcntl.h>
#include <unistd.h>

namespace sign {
base::Result<AsideFile> AsideFile::createFor(const std::string& path) {
    const std::string folder = base::folderOf(path);
    const std::optional<std::string> name = base::temporaryName();
    if (!name)
        return base::systemError("write in", folder, errno);
    AsideFile file(path, folder + '/' + *name);
    file.file_ = base::openNameless(folder, 0600);
    if (!file.file_.open()) {
        file.file_ = base::FileDescriptor::openAt(AT_FDCWD, file.temporary_.c_str(),
                                                  O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW, 0600);
        if (!file.file_.open())
            return base::systemError("write in", folder, errno);
        file.isNamed_ = true;
        // So that no other run takes it for a leftover.
        (void)base::lockWithoutWaiting(file.file_.get());
    }
    struct stat old {};
    if (::lstat(path.c_str(), &old) == 0 && S_ISREG(old.st_mode)) {
        if (auto taken = file.takeOver(old); !taken)
            return taken.error();
    } else if (::fchmod(file.file_.get(), 0644) != 0) {
        return base::systemError("write", file.path_, errno);
    }
    return file;
}

base::Outcome AsideFile::takeOver(const struct stat& old) const {
    struct stat now {};
    if (::fstat(file_.get(), &now) != 0)
        return base::systemError("write", path_, errno);
    const bool isOwn = now.st_uid == old.st_uid && now.st_gid == old.st_gid;
    if (!isOwn && ::fchown(file_.get(), old.st_uid, old.st_gid) != 0)
        return base::systemError("keep the owner of", path_, errno);
    if (::fchmod(file_.get(), old.st_mode & 07777U) != 0)
        return base::systemError("keep the mode of", path_, errno);
    return {};
}

AsideFile::~AsideFile() {
    if (isNamed_)
        ::unlink(temporary_.c_str());
}

base::Outcome AsideFile::write(base::Bytes bytes, std::uint64_t offset) const {
    if (!base::writeAt(file_.get(), bytes, offset))
        return base::systemError("write", path_, errno);
    return {};
}

base::Outcome AsideFile::setSize(std::uint64_t size) const {
    if (!base::truncateTo(file_.get(), size))
        return base::systemError("write", path_, errno);
    return {};
}

void AsideFile::startWriteBack() const {
    base::startWriteBack(file_.get(), 0, 0);
}

base::Outcome AsideFile::sync() const {
    if (base::retried([&] { return ::fsync(file_.get()); }) != 0)
        return base::systemError("write", path_, errno);
    return {};
}

base::Outcome AsideFile::close() {
    if (auto named = giveTemporaryName(); !named)
        return named;
    file_ = base::FileDescriptor();
    return {};
}

base::Result<base::FileDescriptor> AsideFile::openToRead() const {
    auto opened = file_.open() ? base::FileDescriptor(::fcntl(file_.get(), F_DUPFD_CLOEXEC, 0))
                               : base::FileDescriptor::openAt(AT_FDCWD, temporary_.c_str(),
                                                              O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
    if (!opened.open())
        return base::systemError("read", temporary_, errno);
    return opened;
}

base::Outcome AsideFile::giveTemporaryName() {
    if (isNamed_)
        return {};
    if (!base::giveName(file_.get(), temporary_))
        return base::systemError("write", temporary_, errno);
    isNamed_ = true;
    return {};
}

base::Outcome AsideFile::commit(const std::vector<AsideFile*>& files) {
    const SignalPause pause;
    for (AsideFile* file : files)
        if (auto named = file->giveTemporaryName(); !named)
            return named;
    for (AsideFile* file : files) {
        const auto take = [&] {
            return std::rename(file->temporary_.c_str(), file->path_.c_str());
        };
        if (base::retried(take) != 0)
            return base::systemError("replace", file->path_, errno);
        file->isNamed_ = false;
        file->file_ = base::FileDescriptor();
    }
    return {};
}

} // namespace sign
