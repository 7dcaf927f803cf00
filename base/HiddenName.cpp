#include "base/HiddenName.h"

#include "base/Leftovers.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <set>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace base {
namespace {

/// The names to remove when a signal ends the process. All signals are blocked in the thread that
/// holds the lock, so the handler can wait for it.
std::atomic_flag namesAreLocked;
std::set<std::string> namesToRemove;

void lockNames() {
    while (namesAreLocked.test_and_set(std::memory_order_acquire)) {
    }
}

void removeNamesAndEnd(int signal) {
    lockNames();
    for (const std::string& name : namesToRemove)
        if (::unlink(name.c_str()) != 0)
            ::rmdir(name.c_str());
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

/// Signals that are ignored or handled otherwise stay so.
void handleEndingSignals(const sigset_t& blocked) {
    for (const int signal : endingSignals) {
        struct sigaction action {};
        sigaction(signal, nullptr, &action);
        if (action.sa_handler != SIG_DFL)
            continue;
        action.sa_handler = removeNamesAndEnd;
        action.sa_mask = blocked;
        sigaction(signal, &action, nullptr);
    }
}

template <typename Change>
void changeNamesToRemove(const Change& change) {
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    lockNames();
    change();
    handleEndingSignals(all);
    namesAreLocked.clear(std::memory_order_release);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

} // namespace

void removeAtEnd(const std::string& path) {
    changeNamesToRemove([&] { namesToRemove.insert(path); });
}

void keepAtEnd(const std::string& path) {
    changeNamesToRemove([&] { namesToRemove.erase(path); });
}

std::optional<HiddenName> HiddenName::in(const std::string& folder) {
    const std::optional<std::string> name = temporaryName();
    if (!name)
        return std::nullopt;
    HiddenName hidden(folder + '/' + *name);
    removeAtEnd(hidden.path_);
    return hidden;
}

HiddenName::~HiddenName() {
    if (path_.empty())
        return;
    ::unlink(path_.c_str());
    release();
}

void HiddenName::release() {
    keepAtEnd(path_);
    path_.clear();
}

std::optional<HiddenFile> createHidden(const std::string& folder, mode_t mode) {
    for (;;) {
        auto name = HiddenName::in(folder);
        if (!name)
            return std::nullopt;
        auto opened = FileDescriptor::openAt(AT_FDCWD, name->path().c_str(),
                                             O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW, mode);
        if (!opened.open()) {
            const int code = errno;
            name->release();
            errno = code;
            return std::nullopt;
        }
        // Until it is locked, another run may take it for a leftover.
        (void)retried([&] { return ::flock(opened.get(), LOCK_EX); });
        if (isNameOf(opened.get(), name->path()))
            return HiddenFile{std::move(*name), std::move(opened)};
        name->release();
    }
}

std::optional<HiddenName> giveHiddenName(int descriptor, const std::string& folder) {
    auto name = HiddenName::in(folder);
    if (!name || giveName(descriptor, name->path()))
        return name;
    const int code = errno;
    name->release();
    errno = code;
    return std::nullopt;
}

bool swapNames(const std::string& one, const std::string& other) {
    return retried([&] {
#ifdef __APPLE__
               return ::renamex_np(one.c_str(), other.c_str(), RENAME_SWAP);
#else
               return ::renameat2(AT_FDCWD, one.c_str(), AT_FDCWD, other.c_str(), RENAME_EXCHANGE);
#endif
           }) == 0;
}

} // namespace base
