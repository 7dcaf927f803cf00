#pragma once

#include "base/FileDescriptor.h"
#include "base/Result.h"

#include <cstddef>
#include <string>
#include <utility>

#include <sys/types.h>

/// A shell command that runs, and the stream that connects us with it. Any thread, one at a time.
class ShellProcess {
public:
    enum class Connection { Output, InputAndOutput };

    /// Starts `/bin/sh -c command` with its standard output, or its standard input and output, as
    /// the stream; the rest is inherited. Signals that our programs ignore (SIGPIPE, SIGXFSZ) are
    /// not ignored in it: a command that never stops writing has to end once nobody reads.
    [[nodiscard]] static base::Result<ShellProcess> start(const std::string& command,
                                                          Connection connection);
    ShellProcess(ShellProcess&& other) noexcept;
    ShellProcess& operator=(ShellProcess&&) = delete;
    /// Closes the stream and waits for the command to end.
    ~ShellProcess();

    /// Reads `size` bytes, fewer only at the end of the stream, and gives their number.
    [[nodiscard]] std::size_t read(char* to, std::size_t size);
    /// Reads up to the end of the stream.
    [[nodiscard]] std::string readToEnd();
    /// From now on a thread of its own waits for the end; nothing can be read any more.
    void endInBackground();

private:
    ShellProcess(pid_t pid, base::FileDescriptor stream) : pid_(pid), stream_(std::move(stream)) {}

    pid_t pid_; ///< -1 if it is not for us to wait
    base::FileDescriptor stream_;
};
