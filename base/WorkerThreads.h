#pragma once

#include "base/Result.h"

#include <cstddef>
#include <functional>

namespace base {

/// Runs `work` on `count` threads at once, the calling thread among them, and waits for all.
/// Returns the first error, or success; bad_alloc becomes an error. At each error `stop` is called
/// by the thread that has it, and should make the others return soon.
[[nodiscard]] Outcome runOnThreads(unsigned count, const std::function<Outcome()>& work,
                                   const std::function<void()>& stop);

/// Calls `work` for each number below `count` on up to `threads` threads, the calling one among
/// them. The first error stops it.
[[nodiscard]] Outcome forEach(std::size_t count, unsigned threads,
                              const std::function<Outcome(std::size_t)>& work);

} // namespace base
