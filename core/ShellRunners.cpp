#include "core/ShellRunners.h"

#include "base/Utf8.h"
#include "core/Log.h"
#include "core/platform/ReadWriteProcess.h"
#include "core/platform/Spawn.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <thread>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

/// Ignores SIGCHLD for its life, then puts back what it found.
class IgnoredChildSignal {
public:
    IgnoredChildSignal() : previous_(std::signal(SIGCHLD, SIG_IGN)) {}
    ~IgnoredChildSignal() {
        if (std::signal(SIGCHLD, previous_) == SIG_ERR)
            logFailure("error reseting SIGCHLD");
    }
    IgnoredChildSignal(const IgnoredChildSignal&) = delete;
    IgnoredChildSignal& operator=(const IgnoredChildSignal&) = delete;

private:
    void (*previous_)(int);
};

std::optional<std::string> decoded(std::string bytes) {
    if (bytes.empty() || !base::isValidUtf8(bytes))
        return std::nullopt;
    return bytes;
}

std::string readToEnd(int descriptor) {
    std::string bytes;
    char chunk[4096];
    ssize_t count = 0;
    while ((count = read(descriptor, chunk, sizeof chunk)) > 0 || (count < 0 && errno == EINTR)) {
        if (count > 0)
            bytes.append(chunk, static_cast<std::size_t>(count));
    }
    return bytes;
}

} // namespace

std::optional<std::string> runShellCommand(const std::string& command) {
    constexpr std::size_t readLimit = 512'000;
    const IgnoredChildSignal scope;
    char buffer[readLimit + 1];
    std::fill_n(buffer, sizeof buffer, '\0');
    const ReadWriteProcess process = openRead(command);
    if (process.stream == nullptr)
        return std::nullopt;
    const auto count = static_cast<std::int32_t>(std::fread(buffer, 1, readLimit, process.stream));
    std::optional<std::string> result;
    if (count >= 1 && base::isValidUtf8(buffer))
        result = buffer;
    closeProcess(process);
    return result;
}

std::optional<std::string>
VornNSStringAdditions::outputWhenRunAsShellCommand(const std::string& command) {
    constexpr const char* method = "-[NSString(VornNSStringAdditions) outputWhenRunAsShellCommand]";
    if (command.empty())
        return std::nullopt;
    const IgnoredChildSignal scope;
    const ReadWriteProcess process = openReadWrite(command);
    if (process.stream == nullptr) {
        logFailure("%s failed to run  \"%@\"", method, command);
        return std::nullopt;
    }
    // Decoded once when all is there: a character that two chunks share must not be lost.
    std::string gathered;
    char chunk[256];
    std::size_t count = sizeof chunk;
    while (count == sizeof chunk) {
        count = std::fread(chunk, 1, sizeof chunk, process.stream);
        gathered.append(chunk, count);
    }
    std::optional<std::string> result = decoded(std::move(gathered));
    if (!result)
        logEvent("%s failed for command \"%@\"", method, command);
    closeProcess(process);
    return result;
}

std::optional<std::string> VornNSStringAdditions::runAsShellCmd(const std::string& command) {
    int ends[2];
    if (pipe(ends) != 0)
        return std::nullopt;
    for (int end : ends)
        fcntl(end, F_SETFD, FD_CLOEXEC);
    const pid_t pid = spawnShell(command, ends[1], {STDOUT_FILENO});
    close(ends[1]);
    std::string bytes = readToEnd(ends[0]);
    close(ends[0]);
    if (pid > 0) {
        // The caller does not wait for the end; somebody must, or a zombie stays.
        std::thread([pid] { waitpid(pid, nullptr, 0); }).detach();
    }
    return decoded(std::move(bytes));
}
