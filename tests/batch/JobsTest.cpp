#include "batch/Jobs.h"

#include <array>
#include <atomic>
#include <thread>

#include <gtest/gtest.h>

TEST(Jobs, AreNeverMoreAtOnceThanAskedFor) {
    std::array<std::atomic<int>, 3> slots{};
    std::array<std::atomic<int>, 200> calls{};
    const auto job = [&](std::size_t number, unsigned slot) {
        EXPECT_EQ(++slots.at(slot), 1);
        std::this_thread::yield();
        ++calls.at(number);
        --slots.at(slot);
    };
    EXPECT_EQ(runJobs(
                  3, calls.size(), [] { return true; }, job),
              calls.size());
    for (const auto& count : calls)
        EXPECT_EQ(count, 1);
    EXPECT_LT(runJobs(
                  3, calls.size(), [&] { return calls[9] < 2; }, job),
              13U);
}

TEST(Jobs, AreAsManyAsThereIsRoomAndUseFor) {
    constexpr std::uint64_t gigabyte = 1U << 30U;
    EXPECT_EQ(jobsThatPayOff({.processors = 2, .freeMemory = 8 * gigabyte}, false), 2U);
    EXPECT_EQ(jobsThatPayOff({.processors = 2, .freeMemory = 8 * gigabyte}, true), 16U);
    EXPECT_EQ(jobsThatPayOff({.processors = 64, .freeMemory = {}}, true), 64U);
    EXPECT_LT(jobsThatPayOff({.processors = 64, .freeMemory = gigabyte}, false), 16U);
    EXPECT_EQ(jobsThatPayOff({.processors = 64, .freeMemory = 0}, false), 1U);
#ifdef __linux__
    EXPECT_GT(Machine::ofThisProcess().freeMemory.value_or(0), 1U << 24U);
#endif
}
