#include "zip/WorkerThreads.h"

#include <exception>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace zip {
namespace {

Outcome withoutThrowing(const std::function<Outcome()>& work) {
    try {
        return work();
    } catch (const std::exception& exception) {
        return Error{std::string("Cannot go on: ") + exception.what() + ". Use fewer threads."};
    }
}

} // namespace

Outcome runOnThreads(unsigned count, const std::function<Outcome()>& work,
                     const std::function<void()>& stop) {
    std::mutex mutex;
    std::optional<Error> first;
    const auto guarded = [&] {
        if (auto done = withoutThrowing(work); !done) {
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
    } catch (const std::exception&) {
        // Fewer threads than asked for do the work as well.
    }
    guarded();
    for (std::thread& other : others)
        other.join();
    if (first)
        return *first;
    return {};
}

} // namespace zip
