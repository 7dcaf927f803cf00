#pragma once

#include <QObject>

#include <chrono>
#include <functional>
#include <string>

/// The event loop of the main thread, as a queue of jobs that run one after the other in the order
/// they came. Jobs that come before the application object exists wait for it; those that come
/// after its end are dropped.
namespace MainQueue {

/// Runs `job` in a later turn of the event loop, also when called on the main thread. Any thread.
void async(std::function<void()> job);
/// The same, unless `owner` has gone by then. Any thread, while `owner` lives.
void async(const QObject* owner, std::function<void()> job);
/// The same, not before `delay` has passed.
void after(std::chrono::milliseconds delay, const QObject* owner, std::function<void()> job);

} // namespace MainQueue

class JobQueue;

/// Runs jobs one after the other, in the order they came, on a thread of its own that bears the
/// queue's label and has 4 MB of stack. What waits is given up when the process ends.
class SerialQueue {
public:
    /// The queue stays until the process ends, also after this object.
    explicit SerialQueue(const std::string& label);

    /// Any thread.
    void async(std::function<void()> job);

private:
    JobQueue& jobs_;
};

/// The shared threads of default priority, with 4 MB of stack.
namespace GlobalQueue {

/// Runs `job` beside all others. Any thread.
void async(std::function<void()> job);

} // namespace GlobalQueue

/// The shared threads of lowest priority, for loops that may never end.
namespace BackgroundQueue {

/// Runs `job` beside all others. A job that still runs when the process ends is cut off, so it must
/// not touch anything that dies before. Any thread.
void async(std::function<void()> job);

} // namespace BackgroundQueue

/// The last call in main(), on the event loop's exit status. Jobs that run, and those handed to
/// GlobalQueue, get half a second to end (a reveal thus gets its command started); no job is begun
/// after that. When all have ended, returns `status`: destroying what they used is safe. Otherwise
/// ends the process on the spot, so that no destructor takes something away from a running job.
[[nodiscard]] int endJobs(int status);
