#include "base/ProgressChannel.h"

#include "base/Leftovers.h"
#include "base/Number.h"

#include <cerrno>
#include <cstdlib>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace base {
namespace {

/// The pipe's end to write to, which never waits; not open without a reader or if it is no pipe.
FileDescriptor pipeInEnvironment() {
    const char* path = std::getenv(ProgressChannel::variable);
    if (path == nullptr)
        return {};
    FileDescriptor pipe = FileDescriptor::openAt(AT_FDCWD, path, O_WRONLY | O_NONBLOCK | O_NOCTTY);
    struct stat status {};
    if (!pipe.open() || ::fstat(pipe.get(), &status) != 0 || !S_ISFIFO(status.st_mode))
        return {};
    return pipe;
}

} // namespace

ProgressChannel::ProgressChannel(bool toStandardError)
    : toStandardError_(toStandardError), pipe_(pipeInEnvironment()) {}

void ProgressChannel::tell(std::uint64_t done, std::uint64_t total) {
    const auto now = std::chrono::steady_clock::now();
    // Entries without content may still follow the last byte.
    const bool isNews = done == total ? !std::exchange(saidAll_, true) : now >= next_;
    if (!isNews)
        return;
    next_ = now + std::chrono::milliseconds(100);
    const double share = total == 0 ? 1 : static_cast<double>(done) / static_cast<double>(total);
    const std::string line = std::to_string(static_cast<int>(100 * share)) + "%\n";
    if (toStandardError_)
        (void)!::write(STDERR_FILENO, line.data(), line.size());
    if (pipe_.open())
        (void)!::write(pipe_.get(), line.data(), line.size());
}

ProgressPipe::ProgressPipe() {
    for (const char* variable : {"XDG_RUNTIME_DIR", "TMPDIR"})
        if (const char* folder = std::getenv(variable); folder != nullptr && makeIn(folder))
            return;
    (void)makeIn("/tmp");
}

bool ProgressPipe::makeIn(const std::string& folder) {
    if (!folder.starts_with('/') || folder.find('\'') != std::string::npos)
        return false;
    removeLeftovers(folder, S_IFIFO);
    const auto name = temporaryName();
    path_ = folder + '/' + name.value_or("");
    if (name && ::mkfifo(path_.c_str(), 0600) == 0) {
        // For writing too: else it would be at its end between two steps.
        pipe_ = FileDescriptor::openAt(AT_FDCWD, path_.c_str(), O_RDWR | O_NONBLOCK);
        // Another process may take it for a leftover before it is locked. Some systems lock no
        // pipes; they keep leftovers.
        if (pipe_.open() && (lockWithoutWaiting(pipe_.get()) || errno != EWOULDBLOCK) &&
            isNameOf(pipe_.get(), path_))
            return true;
        ::unlink(path_.c_str());
    }
    pipe_ = {};
    path_.clear();
    return false;
}

ProgressPipe::~ProgressPipe() {
    ::unlink(path_.c_str());
}

std::optional<int> ProgressPipe::takePercent() {
    std::string lines;
    char bytes[512];
    for (ssize_t count = 0; (count = ::read(pipe_.get(), bytes, sizeof bytes)) > 0;)
        lines.append(bytes, static_cast<std::size_t>(count));
    const std::size_t end = lines.rfind("%\n");
    if (end == std::string::npos)
        return std::nullopt;
    lines.resize(end);
    return numberIn<int>(lines.substr(lines.rfind('\n') + 1), 0, 100);
}

} // namespace base
