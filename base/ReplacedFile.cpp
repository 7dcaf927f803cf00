#include "base/ReplacedFile.h"

#include <array>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <filesystem>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace base {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view prefix = ".kelpmoray-";
constexpr std::string_view suffix = ".zip.tmp";

/// Whether it is the name of a temporary file whose process has ended. Our own process counts too:
/// a file of that name is from an earlier one with the same id.
bool isLeftover(std::string_view name) {
    if (!name.starts_with(prefix) || !name.ends_with(suffix))
        return false;
    name.remove_prefix(prefix.size());
    name.remove_suffix(suffix.size());
    pid_t process = 0;
    const auto parsed = std::from_chars(name.data(), name.data() + name.size(), process);
    if (parsed.ec != std::errc() || parsed.ptr != name.data() + name.size() || process <= 0)
        return false;
    return process == ::getpid() || (::kill(process, 0) != 0 && errno == ESRCH);
}

void removeLeftovers(const fs::path& folder) {
    std::error_code code;
    for (fs::directory_iterator file(folder, code), end; !code && file != end; file.increment(code))
        if (isLeftover(file->path().filename().string()))
            ::unlink(file->path().c_str());
}

bool isSameFile(const struct stat& a, const struct stat& b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

constexpr std::array endingSignals{SIGINT, SIGTERM, SIGHUP};

// A handler must not touch what may be half changed: the path is written while signals are held
// back.
std::array<char, 4096> pathToRemove{};

void removeAndEnd(int signal) {
    ::unlink(pathToRemove.data());
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

/// From now on a signal that ends the process removes the file before; one that is ignored stays
/// so. False if the path is too long.
bool removeOnSignal(const std::string& path) {
    if (path.size() >= pathToRemove.size())
        return false;
    sigset_t ending;
    sigemptyset(&ending);
    for (const int signal : endingSignals)
        sigaddset(&ending, signal);
    sigset_t before;
    pthread_sigmask(SIG_BLOCK, &ending, &before);
    path.copy(pathToRemove.data(), path.size());
    pathToRemove.at(path.size()) = '\0';
    for (const int signal : endingSignals) {
        struct sigaction action {};
        sigaction(signal, nullptr, &action);
        if (action.sa_handler == SIG_IGN)
            continue;
        action = {};
        action.sa_handler = removeAndEnd;
        action.sa_mask = ending;
        sigaction(signal, &action, nullptr);
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return true;
}

} // namespace

Result<ReplacedFile> ReplacedFile::createFor(const std::string& output) {
    const fs::path path(output);
    const fs::path folder = path.has_parent_path() ? path.parent_path() : fs::path(".");
    removeLeftovers(folder);

    std::string name(prefix);
    name.append(std::to_string(::getpid())).append(suffix);
    ReplacedFile file(output, folder / name);
    if (!removeOnSignal(file.path_))
        return systemError("create", file.path_, ENAMETOOLONG);
    file.opened_ = FileDescriptor::openAt(AT_FDCWD, file.path_.c_str(),
                                          O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW, 0666);
    if (!file.opened_.open())
        return systemError("create", file.path_, errno);
    return file;
}

ReplacedFile::~ReplacedFile() {
    if (opened_.open())
        ::unlink(path_.c_str());
}

Outcome ReplacedFile::commit() {
    if (::fsync(opened_.get()) != 0)
        return systemError("write", path_, errno);
    // A process of another machine in the same folder may have taken it for a leftover.
    struct stat ours {};
    struct stat named {};
    if (::fstat(opened_.get(), &ours) != 0 || ::lstat(path_.c_str(), &named) != 0)
        return systemError("find", path_, errno);
    if (!isSameFile(ours, named))
        return Error{ErrorKind::Conflict,
                     "Cannot write " + output_ +
                         ": another process has replaced the unfinished archive. Try again."};
    if (std::rename(path_.c_str(), output_.c_str()) != 0)
        return systemError("replace", output_, errno);
    opened_ = FileDescriptor();
    return {};
}

} // namespace base
