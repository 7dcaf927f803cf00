#pragma once

#include <chrono>
#include <functional>

/// The event loop of the main thread, as a queue of jobs that run one after the other in the order
/// they came. Jobs that come before the application object exists wait for it; those that come
/// after its end are dropped.
namespace MainQueue {

/// Runs `job` in a later turn of the event loop, also when called on the main thread. Any thread.
void async(std::function<void()> job);

/// The same, not before `delay` has passed. Any thread.
void after(std::chrono::milliseconds delay, std::function<void()> job);

} // namespace MainQueue
