#include "zip/WorkerThreads.h"

#include <atomic>
#include <stdexcept>

#include <gtest/gtest.h>

namespace {

TEST(WorkerThreads, stop_at_the_first_error_and_return_it) {
    std::atomic<bool> stopped = false;
    std::atomic<int> started = 0;
    const auto work = [&]() -> zip::Outcome {
        if (++started == 3)
            return zip::Error{"It broke."};
        // Comes to an end only if all three work at once.
        stopped.wait(false);
        return {};
    };
    const auto stop = [&] {
        stopped = true;
        stopped.notify_all();
    };
    auto outcome = zip::runOnThreads(3, work, stop);
    ASSERT_FALSE(outcome);
    EXPECT_EQ(outcome.error().sentence, "It broke.");
}

TEST(WorkerThreads, turn_what_is_thrown_into_an_error) {
    const auto work = []() -> zip::Outcome { throw std::runtime_error("no room"); };
    auto outcome = zip::runOnThreads(2, work, [] {});
    ASSERT_FALSE(outcome);
    EXPECT_NE(outcome.error().sentence.find("no room"), std::string::npos);
}

} // namespace
