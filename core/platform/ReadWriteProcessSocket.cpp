#include "core/platform/ReadWriteProcess.h"
#include "core/platform/Spawn.h"

#include <cerrno>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

void waitFor(pid_t pid) {
    // With SIGCHLD ignored the kernel reaps the child; the call then waits and fails with ECHILD.
    while (waitpid(pid, nullptr, 0) == -1 && errno == EINTR) {
    }
}

/// The command at the other end of two connected descriptors, of which ours is the first.
ReadWriteProcess start(const std::string& command, const int (&ends)[2],
                       std::initializer_list<int> targets, const char* mode) {
    const pid_t pid = spawnShell(command, ends[1], targets);
    close(ends[1]);
    std::FILE* stream = pid > 0 ? fdopen(ends[0], mode) : nullptr;
    if (stream == nullptr) {
        close(ends[0]);
        if (pid > 0)
            waitFor(pid);
    }
    return {stream, pid};
}

} // namespace

ReadWriteProcess openRead(const std::string& command) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return {};
    return start(command, ends, {STDOUT_FILENO}, "r");
}

ReadWriteProcess openReadWrite(const std::string& command) {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
        return {};
    return start(command, ends, {STDIN_FILENO, STDOUT_FILENO}, "r+");
}

void closeProcess(const ReadWriteProcess& process) {
    std::fclose(process.stream);
    waitFor(process.pid);
}
