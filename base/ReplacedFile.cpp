#include "base/ReplacedFile.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string_view>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

namespace base {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view prefix = ".kelpmoray-";
constexpr std::string_view suffix = ".tmp";
constexpr std::string_view hexDigits = "0123456789abcdef";
constexpr std::size_t randomDigits = 32;

std::string folderOf(const std::string& target) {
    const fs::path folder = fs::path(target).parent_path();
    return folder.empty() ? "." : folder.string();
}

bool isOurName(std::string_view name) {
    if (name.size() != prefix.size() + randomDigits + suffix.size() || !name.starts_with(prefix) ||
        !name.ends_with(suffix))
        return false;
    return name.substr(prefix.size(), randomDigits).find_first_not_of(hexDigits) ==
           std::string_view::npos;
}

/// Whether `path` names the file that is open as `descriptor`.
bool isNameOf(int descriptor, const std::string& path) {
    struct stat opened {};
    struct stat named {};
    return ::fstat(descriptor, &opened) == 0 && ::lstat(path.c_str(), &named) == 0 &&
           opened.st_dev == named.st_dev && opened.st_ino == named.st_ino;
}

bool lockWithoutWaiting(int descriptor) {
    return retried([&] { return ::flock(descriptor, LOCK_EX | LOCK_NB); }) == 0;
}

/// Some file systems lock only what is open for writing, which a file need not allow.
FileDescriptor openForLocking(const std::string& path) {
    constexpr int flags = O_NOFOLLOW | O_NONBLOCK;
    FileDescriptor opened = FileDescriptor::openAt(AT_FDCWD, path.c_str(), O_RDWR | flags);
    return opened.open() ? std::move(opened)
                         : FileDescriptor::openAt(AT_FDCWD, path.c_str(), O_RDONLY | flags);
}

void removeLeftovers(const std::string& folder) {
    std::error_code code;
    for (fs::directory_iterator file(folder, code), end; !code && file != end;
         file.increment(code)) {
        std::error_code typeCode;
        if (!isOurName(file->path().filename().string()) ||
            file->symlink_status(typeCode).type() != fs::file_type::regular)
            continue;
        // A process that is alive holds the lock until the file has its final name.
        const FileDescriptor opened = openForLocking(file->path());
        if (opened.open() && lockWithoutWaiting(opened.get()) &&
            isNameOf(opened.get(), file->path()))
            ::unlink(file->path().c_str());
    }
}

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

#ifdef O_TMPFILE
std::string linkToDescriptor(int descriptor) {
    return "/proc/self/fd/" + std::to_string(descriptor);
}

bool link(int descriptor, const std::string& path) {
    const std::string from = linkToDescriptor(descriptor);
    return retried([&] {
               return ::linkat(AT_FDCWD, from.c_str(), AT_FDCWD, path.c_str(), AT_SYMLINK_FOLLOW);
           }) == 0;
}
#endif

} // namespace

Result<ReplacedFile> ReplacedFile::createFor(const std::string& target) {
    removeLeftovers(folderOf(target));
    ReplacedFile file(target);
    if (file.openUnnamed())
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
    std::array<std::uint8_t, randomDigits / 2> random{};
    if (::getentropy(random.data(), random.size()) != 0)
        return systemError("create", target_, errno);
    std::string path = folderOf(target_) + "/";
    path.append(prefix);
    for (const std::uint8_t byte : random)
        path.append({hexDigits[byte >> 4U], hexDigits[byte & 15U]});
    path_ = path.append(suffix);
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

bool ReplacedFile::openUnnamed() {
#ifdef O_TMPFILE
    opened_ = FileDescriptor::openAt(AT_FDCWD, folderOf(target_).c_str(), O_RDWR | O_TMPFILE, 0666);
    // Locked before it has a name, so that no other run takes it for a leftover.
    return opened_.open() && ::access(linkToDescriptor(opened_.get()).c_str(), F_OK) == 0 &&
           lockWithoutWaiting(opened_.get());
#else
    return false;
#endif
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
#ifdef O_TMPFILE
    if (path_.empty()) {
        if (link(opened_.get(), target_))
            return {};
        if (errno != EEXIST)
            return systemError("create", target_, errno);
        if (auto named = takeName([&] { return link(opened_.get(), path_); }); !named)
            return named;
    }
#endif
    if (retried([&] { return std::rename(path_.c_str(), target_.c_str()); }) != 0)
        return systemError("replace", target_, errno);
    forgetName();
    return {};
}

} // namespace base
