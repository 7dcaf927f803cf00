#pragma once

#include "base/Result.h"
#include "base/StopSignal.h"

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace sign {

/// Runs tasks, which may add more. Tasks that keep a processor busy, tasks that wait for a disk or
/// a server, and tasks of the calling thread each have threads of their own, so that none of a kind
/// keeps another one from running. Signals that end the process reach the calling thread only.
class TaskLanes {
public:
    using Task = std::function<base::Outcome()>;

    TaskLanes(unsigned processors, unsigned waiters)
        : mostProcessors_(processors), mostWaiters_(waiters) {}
    TaskLanes(const TaskLanes&) = delete;
    TaskLanes& operator=(const TaskLanes&) = delete;

    /// Adds a task, behind all others of its kind or before them. Any thread.
    void work(Task task) { add(work_, std::move(task), false); }
    void workFirst(Task task) { add(work_, std::move(task), true); }
    void wait(Task task) { add(waiting_, std::move(task), false); }
    void call(Task task) { add(calls_, std::move(task), false); }

    /// Stops after an error: for tasks that wait, and would keep run() from returning.
    [[nodiscard]] const base::StopSignal& stopSignal() const { return stop_; }

    /// Runs all that were added, until none is left. After an error no further task begins; the
    /// first error is returned. Once for each object.
    [[nodiscard]] base::Outcome run();

private:
    struct Lane {
        std::deque<Task> tasks{};
        std::condition_variable ready{};
        std::vector<std::thread> threads{};
        std::size_t idle = 0;
    };

    void add(Lane& lane, Task task, bool isFirst);
    void grow(Lane& lane, std::size_t most);
    void serve(Lane& lane);
    void finish(const base::Outcome& done);

    std::mutex mutex_;
    Lane work_;
    Lane waiting_;
    Lane calls_;
    const std::size_t mostProcessors_;
    const std::size_t mostWaiters_;
    std::size_t open_ = 0; ///< tasks that are not done
    bool isRunning_ = false;
    std::optional<base::Error> error_;
    base::StopSignal stop_;
};

} // namespace sign
