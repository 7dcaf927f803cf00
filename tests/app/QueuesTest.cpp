#include "app/toolkit/Queues.h"

#include "tests/app/Support.h"

#include <QElapsedTimer>
#include <QThread>

#include <atomic>
#include <latch>
#include <memory>
#include <thread>

#include <gmock/gmock.h>
#include <pthread.h>
#include <sched.h>

using testing::ElementsAre;
using namespace std::chrono_literals;

TEST(MainQueue, RunsJobsOfAllThreadsInOrderAndNeverAtOnce) {
    std::vector<int> order;
    MainQueue::async([&] {
        MainQueue::async([&] { order.push_back(3); });
        order.push_back(1);
    });
    std::thread([&] {
        MainQueue::async(
            [&] { order.push_back(QThread::currentThread() == qApp->thread() ? 2 : -1); });
    }).join();
    auto gone = std::make_unique<QObject>();
    MainQueue::async(gone.get(), [&] { order.push_back(-2); });
    gone.reset();
    EXPECT_TRUE(order.empty());
    ASSERT_TRUE(waitUntil([&] { return order.size() == 3; }));
    EXPECT_THAT(order, ElementsAre(1, 2, 3));
}

TEST(MainQueue, DelaysFromTheMomentOfTheCall) {
    QElapsedTimer clock;
    clock.start();
    std::vector<std::pair<char, qint64>> order;
    const auto note = [&](char which) {
        return [&, which] { order.emplace_back(which, clock.elapsed()); };
    };
    std::thread([&] { MainQueue::after(60ms, qApp, note('b')); }).join();
    MainQueue::after(20ms, qApp, note('a'));
    ASSERT_TRUE(waitUntil([&] { return order.size() == 2; }));
    EXPECT_EQ(order[0].first, 'a');
    EXPECT_GE(order[0].second, 20);
    EXPECT_EQ(order[1].first, 'b');
    EXPECT_GE(order[1].second, 60);
}

TEST(SerialQueue, RunsEverythingInOrderOnOneThreadOfItsName) {
    std::vector<int> order;
    std::vector<std::thread::id> threads;
    std::string name(16, '\0');
    std::latch done(1);
    {
        SerialQueue queue("processing");
        for (int i = 0; i < 100; ++i)
            queue.async([&, i] {
                order.push_back(i);
                threads.push_back(std::this_thread::get_id());
            });
        queue.async([&] {
            pthread_getname_np(pthread_self(), name.data(), name.size());
            done.count_down();
        });
    } // what was handed over outlives the queue
    done.wait();
    EXPECT_EQ(order.size(), 100U);
    EXPECT_TRUE(std::ranges::is_sorted(order));
    EXPECT_THAT(threads, testing::Each(threads.front()));
    EXPECT_NE(threads.front(), std::this_thread::get_id());
    EXPECT_STREQ(name.c_str(), "processing");
}

TEST(SharedQueues, RunJobsSideBySide) {
    for (void (*const async)(std::function<void()>) :
         {GlobalQueue::async, BackgroundQueue::async}) {
        std::latch allAtOnce(3);
        std::atomic<int> met = 0;
        for (int i = 0; i < 3; ++i)
            async([&] {
                allAtOnce.arrive_and_wait();
                ++met;
            });
        EXPECT_TRUE(waitUntil([&] { return met == 3; }));
    }
}

#ifdef __linux__
TEST(SharedQueues, OnlyTheBackgroundStepsBack) {
    const auto policy = [](void (*async)(std::function<void()>)) {
        std::atomic<int> value = -100;
        async([&] { value = sched_getscheduler(0); });
        EXPECT_TRUE(waitUntil([&] { return value != -100; }));
        return value.load();
    };
    EXPECT_EQ(policy(GlobalQueue::async), sched_getscheduler(0));
    EXPECT_EQ(policy(BackgroundQueue::async), SCHED_IDLE);
}
#endif
