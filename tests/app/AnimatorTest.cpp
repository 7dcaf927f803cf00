#include "app/toolkit/Animator.h"

#include "tests/app/Support.h"

#include <memory>

#include <gtest/gtest.h>

using namespace std::chrono_literals;

namespace {

class AnimatorTest : public testing::Test {
protected:
    AnimatorTest() { view.setGeometry(50, 40, 40, 20); }

    QWidget window;
    QWidget view{&window};
};

} // namespace

TEST_F(AnimatorTest, ALaterChangeTakesThePlaceOfTheOneThatRuns) {
    int completions = 0;
    const auto complete = [&] { ++completions; };
    runAnimationGroup(
        80ms,
        [&](Animator& animator) {
            animator.setFrame(&view, {0, 0, 10, 10});
        },
        complete);
    runAnimationGroup(
        20ms,
        [&](Animator& animator) {
            animator.setFrame(&view, {5, 5, 20, 20});
        },
        complete);
    ASSERT_TRUE(waitUntil([&] { return completions == 2; }));
    EXPECT_EQ(view.geometry(), QRect(5, 5, 20, 20));
}

TEST_F(AnimatorTest, CompletesThoughTheWidgetHasGone) {
    auto passing = std::make_unique<QWidget>();
    bool completed = false;
    runAnimationGroup(
        30ms,
        [&](Animator& animator) {
            animator.setFrame(passing.get(), {0, 0, 10, 10});
        },
        [&] { completed = true; });
    passing.reset();
    EXPECT_TRUE(waitUntil([&] { return completed; }));
}
