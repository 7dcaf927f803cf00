#pragma once

#include "base/Result.h"

#include <functional>

namespace base {

/// Runs `work` on `count` threads at once, the calling one among them, and returns when all have
/// returned: the first error, or success. `work` may throw bad_alloc; on the first error `stop` is
/// called (by any of the threads, perhaps again by others), which should make the others return
/// soon.
[[nodiscard]] Outcome runOnThreads(unsigned count, const std::function<Outcome()>& work,
                                   const std::function<void()>& stop);

} // namespace base
