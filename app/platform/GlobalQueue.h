#pragma once

#include <functional>

/// The shared threads of default priority.
namespace GlobalQueue {

/// Runs `job` beside whatever else runs, on a thread with 4 MB of stack. Any thread.
void async(std::function<void()> job);

} // namespace GlobalQueue
