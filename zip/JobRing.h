#pragma once

#include "base/Result.h"
#include "zip/JobCutter.h"
#include "zip/JobEncoder.h"

#include <condition_variable>
#include <cstddef>
#include <functional>
#include <mutex>
#include <optional>
#include <vector>

namespace zip {

/// Gives out jobs in archive order and takes them back done, in any order. The thread that brings
/// the job that is next in the archive writes it, and the jobs behind it that are done. The number
/// of jobs that are not written yet is bounded, and so is the memory. Any thread may call it.
class JobRing {
public:
    /// At most `slots` jobs are under way at once, with at most `bytes` bytes of content together;
    /// a single job may be larger. `write` is called for one job at a time, in archive order, while
    /// no lock is held.
    JobRing(std::size_t slots, std::size_t bytes, JobCutter cutter,
            std::function<base::Outcome(EncodedJob&)> write);

    /// The next job to do, once there is room; null when there is none left or after stop().
    [[nodiscard]] EncodedJob* take();
    /// Hands in a job that take() gave. Fails if writing on this thread fails.
    [[nodiscard]] base::Outcome finish(const EncodedJob& done);
    /// Ends the work early: nothing more is given out or written.
    void stop();

private:
    [[nodiscard]] bool hasRoom() const;
    [[nodiscard]] base::Outcome writeReady(std::unique_lock<std::mutex>& lock);

    std::vector<EncodedJob> slots_;
    std::vector<bool> isDone_;
    JobCutter cutter_;
    std::function<base::Outcome(EncodedJob&)> write_;

    std::mutex mutex_;
    std::condition_variable roomMade_;
    std::optional<Job> next_;
    const std::size_t bytesAtMost_;
    std::size_t bytes_ = 0;
    std::size_t taken_ = 0;
    std::size_t written_ = 0;
    bool isWriting_ = false;
    bool isStopped_ = false;
};

} // namespace zip
