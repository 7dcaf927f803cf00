#include "sign/files/AsideFile.h"

#include "base/Leftovers.h"
#include "sign/files/SignalPause.h"

#include <cerrno>
#include <cstdio>
#include <deque>

#include <fcntl.h>
#include <unistd.h>

namespace sign {
namespace {

bool rename(const std::string& from, const std::string& to) {
    return base::retried([&] { return std::rename(from.c_str(), to.c_str()); }) == 0;
}

/// What a commit has done so far, to be undone if it cannot be done whole.
class NameChanges {
public:
    /// What was at `path`, if anything, has the hidden name then.
    base::Outcome place(base::HiddenName& hidden, const std::string& path) {
        struct stat status {};
        const bool isThere = ::lstat(path.c_str(), &status) == 0;
        if (isThere && base::swapNames(hidden.path(), path)) {
            changes_.push_back({path, &hidden, false});
            return {};
        }
        const bool cannotSwap = errno == EINVAL || errno == ENOSYS || errno == ENOTSUP;
        if ((isThere && !cannotSwap) || !rename(hidden.path(), path))
            return undone(base::systemError("replace", path, errno));
        hidden.release();
        changes_.push_back({path, nullptr, isThere});
        return {};
    }

    /// Nothing is at `path` then.
    base::Outcome remove(const std::string& path) {
        auto hidden = base::HiddenName::in(base::folderOf(path));
        if (!hidden)
            return undone(base::systemError("delete", path, errno));
        if (!rename(path, hidden->path())) {
            const int code = errno;
            hidden->release();
            return code == ENOENT ? base::Outcome()
                                  : undone(base::systemError("delete", path, code));
        }
        changes_.push_back({path, &removed_.emplace_back(std::move(*hidden)), false});
        return {};
    }

private:
    struct Change {
        std::string path;
        base::HiddenName* old; ///< null if nothing was there, or is not any more
        bool isFinal;
    };

    base::Error undone(base::Error error) {
        bool isAsBefore = true;
        for (; !changes_.empty(); changes_.pop_back()) {
            const Change& change = changes_.back();
            if (change.isFinal)
                isAsBefore = false;
            else if (change.old == nullptr)
                isAsBefore = ::unlink(change.path.c_str()) == 0 && isAsBefore;
            else if (rename(change.old->path(), change.path))
                change.old->release();
            else
                isAsBefore = false;
        }
        if (!isAsBefore)
            error.sentence += " Other files of the signature are new by now, so the code is not "
                              "valid until it is signed again.";
        return error;
    }

    std::vector<Change> changes_;
    std::deque<base::HiddenName> removed_;
};

} // namespace

base::Result<AsideFile> AsideFile::createFor(const std::string& path, const std::string& folder) {
    AsideFile file(path, folder.empty() ? base::folderOf(path) : folder);
    file.file_ = base::openNameless(file.folder_, 0600);
    if (!file.file_.open()) {
        auto hidden = base::createHidden(file.folder_, 0600);
        if (!hidden)
            return base::systemError("write in", file.folder_, errno);
        file.file_ = std::move(hidden->opened);
        file.name_.emplace(std::move(hidden->name));
    }
    struct stat old {};
    if (::lstat(path.c_str(), &old) != 0 || !S_ISREG(old.st_mode))
        file.fitIn();
    else if (auto taken = file.takeOver(old); !taken)
        return taken.error();
    return file;
}

void AsideFile::fitIn() {
    struct stat around {};
    if (::stat(base::folderOf(path_).c_str(), &around) != 0)
        return;
    mode_ = around.st_mode & 0666U;
    // Only some users may give a file away; what others write is theirs.
    (void)!::fchown(file_.get(), around.st_uid, around.st_gid);
}

base::Outcome AsideFile::takeOver(const struct stat& old) {
    struct stat now {};
    if (::fstat(file_.get(), &now) != 0)
        return base::systemError("write", path_, errno);
    const bool isOwn = now.st_uid == old.st_uid && now.st_gid == old.st_gid;
    if (!isOwn && ::fchown(file_.get(), old.st_uid, old.st_gid) != 0)
        return base::systemError("keep the owner of", path_, errno);
    mode_ = old.st_mode & 07777U;
    return {};
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
    // Writing takes the bits away that let a file run as its owner.
    if (::fchmod(file_.get(), mode_) != 0)
        return base::systemError("keep the mode of", path_, errno);
    if (base::retried([&] { return ::fsync(file_.get()); }) != 0)
        return base::systemError("write", path_, errno);
    return {};
}

base::Outcome AsideFile::close() {
    if (auto named = giveHiddenName(); !named)
        return named;
    file_ = base::FileDescriptor();
    return {};
}

base::Result<base::FileDescriptor> AsideFile::openToRead() const {
    auto opened = file_.open() ? base::FileDescriptor(::fcntl(file_.get(), F_DUPFD_CLOEXEC, 0))
                               : base::FileDescriptor::openAt(AT_FDCWD, name_->path().c_str(),
                                                              O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
    if (!opened.open())
        return base::systemError("read what is to become", path_, errno);
    return opened;
}

base::Outcome AsideFile::giveHiddenName() {
    if (name_)
        return {};
    auto name = base::giveHiddenName(file_.get(), folder_);
    if (!name)
        return base::systemError("write in", folder_, errno);
    name_.emplace(std::move(*name));
    return {};
}

base::Outcome AsideFile::commit(const std::vector<AsideFile*>& files,
                                const std::vector<std::string>& removed) {
    const SignalPause pause;
    for (AsideFile* file : files)
        if (auto named = file->giveHiddenName(); !named)
            return named;
    NameChanges changes;
    for (AsideFile* file : files)
        if (auto placed = changes.place(*file->name_, file->path_); !placed)
            return placed;
    for (const std::string& path : removed)
        if (auto gone = changes.remove(path); !gone)
            return gone;
    for (AsideFile* file : files) {
        file->name_.reset(); // of the old file
        file->file_ = base::FileDescriptor();
    }
    return {};
}

} // namespace sign
