#include "base/WorkerThreads.h"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <new>
#include <optional>
#include <system_error>
#include <thread>
#include <vector>

namespace base {
namespace {

Outcome withoutBadAlloc(const std::function<Outcome()>& work) {
    try {
        return work();
    } catch (const std::bad_alloc&) {
        return Error{ErrorKind::System, "There is not enough memory. Use fewer threads."};
    }
}

} // namespace

Outcome runOnThreads(unsigned count, const std::function<Outcome()>& work,
                     const std::function<void()>& stop) {
    std::mutex mutex;
    std::optional<Error> first;
    const auto guarded = [&] {
        if (auto done = withoutBadAlloc(work); !done) {
            const std::lock_guard lock(mutex);
            if (!first)
                first = done.error();
            stop();
        }
    };
    std::vector<std::thread> others;
    others.reserve(count);
    try {
        while (others.size() + 1 < count)
            others.emplace_back(guarded);
    } catch (const std::system_error&) {
        // Fewer threads than asked for do the work as well.
    }
    guarded();
    for (std::thread& other : others)
        other.join();
    if (first)
        return *first;
    return {};
}

Outcome forEach(std::size_t count, unsigned threads,
                const std::function<Outcome(std::size_t)>& work) {
    std::atomic<std::size_t> next = 0;
    const auto loop = [&]() -> Outcome {
        for (std::size_t index = next++; index < count; index = next++)
            if (auto done = work(index); !done)
                return done;
        return {};
    };
    const auto useful = unsigned(std::clamp<std::size_t>(count, 1, threads));
    return runOnThreads(useful, loop, [&next, count] { next = count; });
}

} // namespace base
