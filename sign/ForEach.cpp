#include "sign/ForEach.h"

#include "base/WorkerThreads.h"

#include <algorithm>
#include <atomic>

namespace sign {

base::Outcome forEach(std::size_t count, unsigned threads,
                      const std::function<base::Outcome(std::size_t)>& work) {
    std::atomic<std::size_t> next = 0;
    const auto loop = [&]() -> base::Outcome {
        for (std::size_t index = next++; index < count; index = next++)
            if (auto done = work(index); !done)
                return done;
        return {};
    };
    const auto useful = unsigned(std::clamp<std::size_t>(count, 1, threads));
    return base::runOnThreads(useful, loop, [&next, count] { next = count; });
}

} // namespace sign
