#include "sign/AsideFile.h"

#include "sign/SignalPause.h"
#include "sign/bundle/FileTree.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>

#include <fcntl.h>
#include <unistd.h>

namespace sign {
namespace {

std::string folderOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos)
        return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

std::string nextTemporaryName() {
    static std::atomic<unsigned> count = 0;
    return ".kelpmoray-" + std::to_string(::getpid()) + '-' + std::to_string(count++) + ".sign.tmp";
}

base::FileDescriptor createNameless(const std::string& folder) {
#ifdef O_TMPFILE
    return base::FileDescriptor::openAt(AT_FDCWD, folder.c_str(), O_TMPFILE | O_RDWR, 0600);
#else
    (void)folder;
    return {};
#endif
}

} // namespace

base::Result<AsideFile> AsideFile::createFor(const std::string& path) {
    const std::string target = realPath(path).value_or(path);
    AsideFile file(target, folderOf(target) + '/' + nextTemporaryName());
    file.file_ = createNameless(folderOf(target));
    if (!file.file_.open()) {
        file.file_ = base::FileDescriptor::openAt(AT_FDCWD, file.temporary_.c_str(),
                                                  O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW, 0600);
        if (!file.file_.open())
            return base::systemError("write in", folderOf(target), errno);
        file.isNamed_ = true;
    }
    struct stat old {};
    const bool isThere = ::stat(target.c_str(), &old) == 0;
    if (isThere) {
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
    if (file_.open() && isNamed_)
        ::unlink(temporary_.c_str());
}

base::Outcome AsideFile::write(base::Bytes bytes, std::uint64_t offset) const {
    if (!base::writeAt(file_.get(), bytes, offset))
        return base::systemError("write", path_, errno);
    return {};
}

base::Outcome AsideFile::setSize(std::uint64_t size) const {
    if (::ftruncate(file_.get(), static_cast<off_t>(size)) != 0)
        return base::systemError("write", path_, errno);
    return {};
}

void AsideFile::startWriteBack() const {
    base::startWriteBack(file_.get(), 0, 0);
}

base::Outcome AsideFile::sync() const {
    if (::fsync(file_.get()) != 0)
        return base::systemError("write", path_, errno);
    return {};
}

base::Outcome AsideFile::giveTemporaryName() {
    if (isNamed_)
        return {};
    const std::string open = "/proc/self/fd/" + std::to_string(file_.get());
    if (::linkat(AT_FDCWD, open.c_str(), AT_FDCWD, temporary_.c_str(), AT_SYMLINK_FOLLOW) != 0)
        return base::systemError("write", temporary_, errno);
    isNamed_ = true;
    return {};
}

base::Outcome AsideFile::commit(std::vector<AsideFile*> files) {
    const SignalPause pause;
    for (AsideFile* file : files)
        if (auto named = file->giveTemporaryName(); !named)
            return named;
    for (AsideFile* file : files) {
        if (std::rename(file->temporary_.c_str(), file->path_.c_str()) != 0)
            return base::systemError("replace", file->path_, errno);
        file->file_ = base::FileDescriptor();
    }
    return {};
}

} // namespace sign
