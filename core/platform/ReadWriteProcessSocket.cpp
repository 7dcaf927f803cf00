#include "core/platform/ReadWriteProcess.h"
#include "core/platform/Spawn.h"

#include <cerrno>

#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

void waitFor(pid_t pid) {
    // With SIGCHLD ignored the kernel reaps the child; the call then waits and fails with ECHILD.
    while (waitpid(pid, nullptr, 0) == -1 && errno == EINTR) {
    }
}

} // namespace

ReadWriteProcess openReadWrite(const std::string& command) {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
        return {};
    const pid_t pid = spawnShell(command, ends[1], {STDIN_FILENO, STDOUT_FILENO});
    close(ends[1]);
    std::FILE* stream = pid > 0 ? fdopen(ends[0], "r+") : nullptr;
    if (stream == nullptr) {
        close(ends[0]);
        if (pid > 0)
            waitFor(pid);
    }
    return {stream, pid};
}

void closeReadWrite(const ReadWriteProcess& process) {
    std::fclose(process.stream);
    waitFor(process.pid);
}
