#include "core/ShellRunners.h"

#include "base/Utf8.h"
#include "core/Log.h"
#include "core/ShellProcess.h"

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <mutex>

namespace {

/// Ignores SIGCHLD for its life, then puts back what it found. Commands may run on several threads
/// at once: the first one ignores it, the last one puts it back.
class IgnoredChildSignal {
public:
    IgnoredChildSignal() {
        const std::lock_guard lock(mutex);
        if (users++ == 0)
            previous = std::signal(SIGCHLD, SIG_IGN);
    }
    ~IgnoredChildSignal() {
        const std::lock_guard lock(mutex);
        if (--users == 0 && std::signal(SIGCHLD, previous) == SIG_ERR)
            logFailure("error reseting SIGCHLD");
    }
    IgnoredChildSignal(const IgnoredChildSignal&) = delete;
    IgnoredChildSignal& operator=(const IgnoredChildSignal&) = delete;

private:
    static inline std::mutex mutex;
    static inline int users = 0;
    static inline void (*previous)(int) = SIG_DFL;
};

std::optional<std::string> decoded(std::string bytes) {
    if (bytes.empty() || !base::isValidUtf8(bytes))
        return std::nullopt;
    return bytes;
}

} // namespace

std::optional<std::string> runShellCommand(const std::string& command) {
    constexpr std::size_t readLimit = 512'000;
    const IgnoredChildSignal scope;
    char buffer[readLimit + 1];
    std::fill_n(buffer, sizeof buffer, '\0');
    auto process = ShellProcess::start(command, ShellProcess::Connection::Output);
    if (!process)
        return std::nullopt;
    const auto count = static_cast<std::int32_t>(process->read(buffer, readLimit));
    if (count < 1 || !base::isValidUtf8(buffer))
        return std::nullopt;
    return buffer;
}

std::optional<std::string>
VornNSStringAdditions::outputWhenRunAsShellCommand(const std::string& command) {
    constexpr const char* method = "-[NSString(VornNSStringAdditions) outputWhenRunAsShellCommand]";
    if (command.empty())
        return std::nullopt;
    const IgnoredChildSignal scope;
    auto process = ShellProcess::start(command, ShellProcess::Connection::InputAndOutput);
    if (!process) {
        logFailure("%s failed to run  \"%@\"", method, command);
        return std::nullopt;
    }
    // Decoded once when all is there: a character that two chunks share must not be lost.
    std::optional<std::string> result = decoded(process->readToEnd());
    if (!result)
        logEvent("%s failed for command \"%@\"", method, command);
    return result;
}

std::optional<std::string> VornNSStringAdditions::runAsShellCmd(const std::string& command) {
    auto process = ShellProcess::start(command, ShellProcess::Connection::Output);
    if (!process)
        return std::nullopt;
    std::string bytes = process->readToEnd();
    // The caller does not wait for the end; a thread must, or a zombie stays.
    process->endInBackground();
    return decoded(std::move(bytes));
}
