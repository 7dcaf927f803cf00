#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

/// Jobs and the detached threads that run them, started as they are needed: what the other queues
/// are made of. The threads keep their queue alive, but never the process.
class JobQueue : public std::enable_shared_from_this<JobQueue> {
public:
    enum class Service {
        Serial,    ///< one thread; its waiting jobs are given up when the process ends
        Default,   ///< jobs side by side; the end of the process waits a moment for them
        Background ///< jobs side by side at lowest priority; the end of the process ignores them
    };

    JobQueue(std::string label, Service service);
    /// Hands over a job; first in, first started. Any thread.
    void async(std::function<void()> job);
    /// The waiting jobs are still run, then the threads end. Any thread.
    void close();

    /// Of all queues: begins no serial job any more, and after `atMost` no job at all. True if
    /// every running or default job ended within that time.
    [[nodiscard]] static bool endAll(std::chrono::milliseconds atMost);

private:
    [[nodiscard]] bool startThread();
    void runJobs();
    static void* threadMain(void* queue);

    const std::string label_;
    const Service service_;
    std::mutex mutex_;
    std::condition_variable arrival_;
    std::deque<std::function<void()>> waiting_;
    std::size_t threads_ = 0;
    std::size_t idleThreads_ = 0;
    bool closed_ = false;
};
