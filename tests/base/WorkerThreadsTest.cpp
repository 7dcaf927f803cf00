#include "base/WorkerThreads.h"

#include "tests/support/ExpectFails.h"

#include <atomic>
#include <new>

#include <gtest/gtest.h>

namespace {

TEST(WorkerThreads, StopAtTheFirstErrorAndReturnIt) {
    std::atomic<bool> stopped = false;
    std::atomic<int> started = 0;
    const auto work = [&]() -> base::Outcome {
        if (++started == 3)
            return base::Error{base::ErrorKind::Conflict, "It broke."};
        // Comes to an end only if all three work at once.
        stopped.wait(false);
        return {};
    };
    const auto stop = [&] {
        stopped = true;
        stopped.notify_all();
    };
    auto outcome = base::runOnThreads(3, work, stop);
    EXPECT_FAILS(outcome, Conflict);
}

TEST(WorkerThreads, TurnALackOfMemoryIntoAnError) {
    const auto work = []() -> base::Outcome { throw std::bad_alloc(); };
    EXPECT_FAILS(base::runOnThreads(2, work, [] {}), System);
}

} // namespace
