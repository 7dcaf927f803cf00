#pragma once

#include <functional>
#include <memory>
#include <string>

class JobQueue;

/// Runs jobs one after the other, in the order they came, on a thread of its own that is started by
/// the first job and bears the queue's label.
class SerialQueue {
public:
    explicit SerialQueue(const std::string& label);
    /// Does not wait: jobs that were handed over are still run.
    ~SerialQueue();
    SerialQueue(const SerialQueue&) = delete;
    SerialQueue& operator=(const SerialQueue&) = delete;

    /// Any thread. The thread that runs `job` has 4 MB of stack.
    void async(std::function<void()> job);

private:
    std::shared_ptr<JobQueue> jobs_;
};
