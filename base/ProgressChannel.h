#pragma once

#include "base/FileDescriptor.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace base {

/// How a step tells the window how far it is. The scripts between them print the result and nothing
/// else, so the environment variable KELPMORAY_PROGRESS may name a named pipe. If the pipe has a
/// reader, the step writes lines "N%" to it, N from 0 to 100: at most one in a tenth of a second,
/// and "100%" at the end. With --progress the same bytes go to standard error. Each line is one
/// write, so the lines of several steps do not mix. No write waits: if the pipe is full or closed,
/// the line is lost and nothing else. A step that starts anew begins at a lower number.
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

/// The other end: a named pipe that the environment of steps may name. Nothing is left of it after
/// this object; what a killed process left goes when the next one is made in the same folder. One
/// thread at a time.
class ProgressPipe {
public:
    /// Makes it in XDG_RUNTIME_DIR, TMPDIR or /tmp.
    ProgressPipe();
    ProgressPipe(const ProgressPipe&) = delete;
    ProgressPipe& operator=(const ProgressPipe&) = delete;
    ~ProgressPipe();

    /// Has no quotation mark in it, so it can be quoted; empty if no pipe could be made.
    [[nodiscard]] const std::string& path() const { return path_; }
    /// Readable when a step has told something; -1 if there is no pipe.
    [[nodiscard]] int descriptor() const { return pipe_.get(); }
    /// The last whole line of what came since the last call; none if there is none from 0 to 100.
    [[nodiscard]] std::optional<int> takePercent();

private:
    bool makeIn(const std::string& folder);

    std::string path_;
    FileDescriptor pipe_;
};

} // namespace base
