#include "base/ReplacedFile.h"

#include "base/Leftovers.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace base {
namespace {

/// The names to remove when a signal ends the process. All signals are blocked in the thread that
/// holds the lock, so the handler can wait for it.
std::atomic_flag namesAreLocked;
std::vector<std::string> namesToRemove;

void lockNames() {
    while (namesAreLocked.test_and_set(std::memory_order_acquire)) {
    }
}

void removeNamesAndEnd(int signal) {
    lockNames();
    for (const std::string& name : namesToRemove)
        ::unlink(name.c_str());
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

/// Signals that are ignored or handled otherwise stay so.
void handleEndingSignals(const sigset_t& blocked) {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction action {};
        sigaction(signal, nullptr, &action);
        if (action.sa_handler != SIG_DFL)
            continue;
        action.sa_handler = removeNamesAndEnd;
        action.sa_mask = blocked;
        sigaction(signal, &action, nullptr);
    }
}

void changeNamesToRemove(const std::string& added, const std::string& dropped) {
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    lockNames();
    std::erase(namesToRemove, dropped);
    if (!added.empty())
        namesToRemove.push_back(added);
    handleEndingSignals(all);
    namesAreLocked.clear(std::memory_order_release);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

} // namespace

Result<ReplacedFile> ReplacedFile::createFor(const std::string& target) {
    removeLeftovers(folderOf(target));
    ReplacedFile file(target);
    file.opened_ = openNameless(folderOf(target), 0666);
    if (file.opened_.open())
        return file;
    if (auto opened = file.openNamed(); !opened)
        return opened.error();
    return file;
}

ReplacedFile::~ReplacedFile() {
    if (opened_.open() && !path_.empty()) {
        ::unlink(path_.c_str());
        forgetName();
    }
}

/// Sets path_ to a name beside the target, with which `create` is called. On failure path_ is
/// empty again.
Outcome ReplacedFile::takeName(const std::function<bool()>& create) {
    const std::optional<std::string> name = temporaryName();
    if (!name)
        return systemError("create", target_, errno);
    path_ = folderOf(target_) + '/' + *name;
    changeNamesToRemove(path_, {});
    if (create())
        return {};
    const int code = errno;
    forgetName();
    return systemError("create", target_, code);
}

void ReplacedFile::forgetName() {
    changeNamesToRemove({}, path_);
    path_.clear();
}

Outcome ReplacedFile::openNamed() {
    for (;;) {
        auto created = takeName([&] {
            opened_ = FileDescriptor::openAt(AT_FDCWD, path_.c_str(),
                                             O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW, 0666);
            return opened_.open();
        });
        if (!created)
            return created;
        // Until it is locked, another run may take it for a leftover.
        (void)retried([&] { return ::flock(opened_.get(), LOCK_EX); });
        if (isNameOf(opened_.get(), path_))
            return {};
        forgetName();
    }
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
    if (path_.empty()) {
        if (giveName(opened_.get(), target_))
            return {};
        if (errno != EEXIST)
            return systemError("create", target_, errno);
        if (auto named = takeName([&] { return giveName(opened_.get(), path_); }); !named)
            return named;
    }
    if (retried([&] { return std::rename(path_.c_str(), target_.c_str()); }) != 0)
        return systemError("replace", target_, errno);
    forgetName();
    return {};
}

} // namespace base
