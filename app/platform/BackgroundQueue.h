#pragma once

#include <functional>

/// The shared threads of lowest priority, for loops that may never end.
namespace BackgroundQueue {

/// Runs `job` beside whatever else runs. A job that is still running when the process ends is cut
/// off, so it must touch nothing that dies before. Any thread.
void async(std::function<void()> job);

} // namespace BackgroundQueue
