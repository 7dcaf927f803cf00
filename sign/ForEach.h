#pragma once

#include "base/Result.h"

#include <cstddef>
#include <functional>

namespace sign {

/// Calls `work` for each number below `count` on up to `threads` threads, the calling one among
/// them. The first error stops it.
[[nodiscard]] base::Outcome forEach(std::size_t count, unsigned threads,
                                    const std::function<base::Outcome(std::size_t)>& work);

} // namespace sign
