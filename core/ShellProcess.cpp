#include "core/ShellProcess.h"

#include <cerrno>
#include <csignal>
#include <thread>
#include <utility>

#include <fcntl.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace {

using base::FileDescriptor;

/// Two connected descriptors that no other command inherits: ours, and the command's.
struct Ends {
    FileDescriptor ours;
    FileDescriptor theirs;
};

/// Not open if there are no descriptors left; errno then tells why.
Ends connectedEnds(ShellProcess::Connection connection) {
    const bool isSocket = connection == ShellProcess::Connection::InputAndOutput;
    int ends[2];
#ifdef __APPLE__
    if ((isSocket ? socketpair(AF_UNIX, SOCK_STREAM, 0, ends) : pipe(ends)) != 0)
        return {};
    for (const int end : ends)
        fcntl(end, F_SETFD, FD_CLOEXEC);
#else
    if ((isSocket ? socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends)
                  : pipe2(ends, O_CLOEXEC)) != 0)
        return {};
#endif
    return {FileDescriptor(ends[0]), FileDescriptor(ends[1])};
}

/// How a command starts: with `stream` in the place of its standard streams that are connected.
class StartOptions {
public:
    StartOptions(int stream, ShellProcess::Connection connection) {
        posix_spawn_file_actions_init(&actions);
        posix_spawnattr_init(&attributes);
        sigset_t restored;
        sigemptyset(&restored);
        sigaddset(&restored, SIGPIPE);
        sigaddset(&restored, SIGXFSZ);
        posix_spawnattr_setsigdefault(&attributes, &restored);
        int flags = POSIX_SPAWN_SETSIGDEF;
#ifdef __APPLE__
        // Another thread may start a command before a descriptor is marked as not inherited.
        flags |= POSIX_SPAWN_CLOEXEC_DEFAULT;
        for (const int inherited : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
            posix_spawn_file_actions_addinherit_np(&actions, inherited);
#endif
        posix_spawnattr_setflags(&attributes, static_cast<short>(flags));
        posix_spawn_file_actions_adddup2(&actions, stream, STDOUT_FILENO);
        if (connection == ShellProcess::Connection::InputAndOutput)
            posix_spawn_file_actions_adddup2(&actions, stream, STDIN_FILENO);
    }
    ~StartOptions() {
        posix_spawnattr_destroy(&attributes);
        posix_spawn_file_actions_destroy(&actions);
    }
    StartOptions(const StartOptions&) = delete;
    StartOptions& operator=(const StartOptions&) = delete;

    posix_spawn_file_actions_t actions{};
    posix_spawnattr_t attributes{};
};

void waitFor(pid_t pid) {
    // If SIGCHLD is ignored the system removes the child; the call then waits and fails (ECHILD).
    while (waitpid(pid, nullptr, 0) == -1 && errno == EINTR) {
    }
}

} // namespace

base::Result<ShellProcess> ShellProcess::start(const std::string& command, Connection connection) {
    Ends ends = connectedEnds(connection);
    if (!ends.ours.open())
        return base::systemError("start", "/bin/sh", errno);
    const StartOptions options(ends.theirs.get(), connection);
    std::string shell = "sh";
    std::string option = "-c";
    std::string text = command;
    char* arguments[] = {shell.data(), option.data(), text.data(), nullptr};
    pid_t pid = -1;
    if (const int code =
            posix_spawn(&pid, "/bin/sh", &options.actions, &options.attributes, arguments, environ))
        return base::systemError("start", "/bin/sh", code);
    return ShellProcess(pid, std::move(ends.ours));
}

ShellProcess::ShellProcess(ShellProcess&& other) noexcept
    : pid_(std::exchange(other.pid_, -1)), stream_(std::move(other.stream_)) {}

ShellProcess::~ShellProcess() {
    stream_ = FileDescriptor();
    if (pid_ > 0)
        waitFor(pid_);
}

std::size_t ShellProcess::read(char* to, std::size_t size) {
    std::size_t done = 0;
    while (done < size) {
        const ssize_t count = ::read(stream_.get(), to + done, size - done);
        if (count == 0 || (count < 0 && errno != EINTR))
            break;
        done += count > 0 ? static_cast<std::size_t>(count) : 0;
    }
    return done;
}

std::string ShellProcess::readToEnd() {
    std::string bytes;
    char chunk[4096];
    std::size_t count = sizeof chunk;
    while (count == sizeof chunk) {
        count = read(chunk, sizeof chunk);
        bytes.append(chunk, count);
    }
    return bytes;
}

void ShellProcess::endInBackground() {
    stream_ = FileDescriptor();
    std::thread(waitFor, std::exchange(pid_, -1)).detach();
}
