#pragma once

#include "base/FileDescriptor.h"

#include <chrono>
#include <cstdint>

namespace base {

/// How a step tells how far it is, past the scripts between it and the window, whose output carries
/// the result and nothing else. The environment variable KELPMORAY_PROGRESS may name a named pipe.
/// A step that finds it there, with a reader, writes lines "N%" to it, N from 0 to 100: at most one
/// in a tenth of a second, and "100%" at the end. With --progress the same bytes go to standard
/// error. Each line is one write, so that steps do not mix; none waits, and a full or closed pipe
/// loses the line and nothing else. A step that starts anew begins at a lower number.
class ProgressChannel {
public:
    static constexpr const char* variable = "KELPMORAY_PROGRESS";

    /// Opens the pipe that the environment names, if there is one. Call it when the process starts.
    explicit ProgressChannel(bool toStandardError = false);

    /// Whether anybody listens.
    [[nodiscard]] bool open() const { return toStandardError_ || pipe_.open(); }
    /// `done` of `total` is done. One thread at a time.
    void tell(std::uint64_t done, std::uint64_t total);

private:
    bool toStandardError_;
    FileDescriptor pipe_;
    std::chrono::steady_clock::time_point next_;
    bool saidAll_ = false;
};

} // namespace base
