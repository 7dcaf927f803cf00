#include "sign/TaskLanes.h"

#include "base/WorkerThreads.h"
#include "sign/files/SignalPause.h"

#include <algorithm>
#include <iterator>
#include <system_error>

namespace sign {

void TaskLanes::add(Lane& lane, Task task, bool isFirst) {
    const std::lock_guard lock(mutex_);
    if (error_)
        return;
    if (isFirst)
        lane.tasks.push_front(std::move(task));
    else
        lane.tasks.push_back(std::move(task));
    ++open_;
    if (isRunning_ && &lane == &work_)
        grow(work_, mostProcessors_);
    if (isRunning_ && &lane == &waiting_)
        grow(waiting_, mostWaiters_);
    lane.ready.notify_one();
}

/// One thread for each task that finds none idle, up to `most`.
void TaskLanes::grow(Lane& lane, std::size_t most) {
    const SignalPause pause;
    try {
        while (lane.threads.size() < most && lane.idle < lane.tasks.size()) {
            lane.threads.emplace_back([this, &lane] { serve(lane); });
            ++lane.idle;
        }
    } catch (const std::system_error&) {
        // Fewer threads do the work as well; without one the calling thread does it.
        if (lane.threads.empty()) {
            std::ranges::move(lane.tasks, std::back_inserter(calls_.tasks));
            lane.tasks.clear();
            calls_.ready.notify_one();
        }
    }
}

void TaskLanes::serve(Lane& lane) {
    std::unique_lock lock(mutex_);
    for (;;) {
        lane.ready.wait(lock, [&] { return !lane.tasks.empty() || open_ == 0 || error_; });
        if (lane.tasks.empty())
            return;
        const Task task = std::move(lane.tasks.front());
        lane.tasks.pop_front();
        --lane.idle;
        lock.unlock();
        const auto done = base::runOnThreads(1, task, [] {});
        lock.lock();
        ++lane.idle;
        finish(done);
    }
}

void TaskLanes::finish(const base::Outcome& done) {
    --open_;
    if (!done && !error_) {
        error_ = done.error();
        stop_.stop();
    }
    if (!error_ && open_ != 0)
        return;
    for (Lane* lane : {&work_, &waiting_, &calls_}) {
        lane->tasks.clear();
        lane->ready.notify_all();
    }
}

base::Outcome TaskLanes::run() {
    {
        const std::lock_guard lock(mutex_);
        isRunning_ = true;
        grow(work_, mostProcessors_);
        grow(waiting_, mostWaiters_);
        ++calls_.idle;
    }
    serve(calls_);
    for (Lane* lane : {&work_, &waiting_})
        for (std::thread& thread : lane->threads)
            thread.join();
    if (error_)
        return *error_;
    return {};
}

} // namespace sign
