#include "base/ProgressChannel.h"

#include <cstdlib>
#include <string>
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

} // namespace base
