#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace base {

/// Tells those who wait that it is in vain. Any thread.
class StopSignal {
public:
    void stop() {
        {
            const std::lock_guard lock(mutex_);
            isStopped_ = true;
        }
        stopped_.notify_all();
    }

    /// Waits that long, or until it is stopped; whether it is.
    [[nodiscard]] bool waitFor(std::chrono::milliseconds time) const {
        std::unique_lock lock(mutex_);
        return stopped_.wait_for(lock, time, [this] { return isStopped_; });
    }
    [[nodiscard]] bool isStopped() const { return waitFor({}); }

private:
    mutable std::mutex mutex_;
    mutable std::condition_variable stopped_;
    bool isStopped_ = false;
};

} // namespace base
