#include "core/WorkSet.h"

#include "core/Format.h"

#include <thread>

#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::IsEmpty;

TEST(WorkSet, HoldsEachPathOnceInOrderOfArrival) {
    WorkSet set;
    EXPECT_TRUE(set.add("/b"));
    EXPECT_TRUE(set.add("/a"));
    EXPECT_FALSE(set.add("/b"));
    EXPECT_TRUE(set.add("/b/")) << "spelled differently";
    EXPECT_THAT(set.allObjects(), ElementsAre("/b", "/a", "/b/"));
    EXPECT_EQ(formatted("%@", set), "{(\n    /b,\n    /a,\n    /b/\n)}");
    EXPECT_TRUE(set.remove("/b"));
    EXPECT_FALSE(set.remove("/b"));
    EXPECT_TRUE(set.add("/b"));
    EXPECT_THAT(set.allObjects(), ElementsAre("/a", "/b/", "/b"));
    set.moveToEnd("/a");
    set.moveToEnd("/elsewhere");
    EXPECT_THAT(set.allObjects(), ElementsAre("/b/", "/b", "/a"));
}

TEST(WorkSet, LosesNothingBetweenTwoThreads) {
    WorkSet set;
    constexpr int entries = 2'000;
    std::thread adder([&] {
        for (int i = 0; i < entries; ++i)
            set.add(std::to_string(i));
    });
    int removed = 0;
    while (removed < entries) {
        for (const std::string& path : set.allObjects())
            removed += set.remove(path) ? 1 : 0;
    }
    adder.join();
    EXPECT_EQ(set.count(), 0U);
    EXPECT_THAT(set.allObjects(), IsEmpty());
}
