#include "app/VornNSViewAdditions.h"
#include "app/toolkit/Animator.h"
#include "app/toolkit/Layer.h"
#include "app/toolkit/NamedImage.h"
#include "app/toolkit/QtDescription.h"
#include "app/toolkit/Queues.h"
#include "tests/app/Support.h"
#include "tests/support/LogCapture.h"

#include <QElapsedTimer>
#include <QLabel>
#include <QPointer>
#include <QPushButton>
#include <QVariantAnimation>
#include <QtMath>

#include <atomic>
#include <chrono>
#include <cmath>
#include <memory>
#include <thread>

#include <gmock/gmock.h>
#include <sched.h>
#include <sys/resource.h>

using namespace VornNSViewAdditions;
using testing::ElementsAre;

using namespace std::chrono_literals;

namespace {

/// The durations in milliseconds of all that is animated, in the order in which it begins.
class Durations : public QObject {
public:
    Durations() { qApp->installEventFilter(this); }
    /// Takes down the animation that began last; not before it knows its duration.
    void takeLast() {
        if (const auto* animation = qobject_cast<QVariantAnimation*>(last_.data()))
            values.push_back(animation->duration());
        last_ = nullptr;
    }
    std::vector<int> values;

protected:
    bool eventFilter(QObject* object, QEvent* event) override {
        if (object == qApp && event->type() == QEvent::ChildAdded) {
            takeLast();
            last_ = static_cast<QChildEvent*>(event)->child();
        }
        return false;
    }

private:
    QPointer<QObject> last_;
};

class Effects : public testing::Test {
protected:
    Effects() {
        window.resize(300, 100);
        button.setGeometry(100, 40, 100, 40);
        window.show();
        clock.start();
    }
    /// Returns when all that was queued on the main queue before has run.
    static void settle() {
        bool reached = false;
        MainQueue::async([&] { reached = true; });
        ASSERT_TRUE(waitUntil([&] { return reached; }));
    }
    /// Expects one turn in a second: counter-clockwise if positive.
    void expectTurn(const char* key, double turns) const {
        const BasicAnimation* animation = layerOf(&button)->animationForKey(key);
        ASSERT_NE(animation, nullptr);
        EXPECT_EQ(animation->duration, 1s);
        EXPECT_NEAR(animation->to - animation->from, turns * 2 * M_PI, 1e-6);
    }
    /// Awaits the completion of an effect whose changes take these milliseconds, one by one.
    void expectCompletion(const std::vector<int>& milliseconds) {
        ASSERT_TRUE(waitUntil([&] { return completions == 1; }));
        EXPECT_EQ(durations.values, milliseconds);
    }
    /// How often threads other than this one have slept since the process started.
    [[nodiscard]] static long sleepsOfOthers() {
        rusage all{};
        rusage own{};
#ifdef __linux__ // elsewhere nothing is seen of it
        getrusage(RUSAGE_SELF, &all);
        getrusage(RUSAGE_THREAD, &own);
#endif
        return all.ru_nvcsw - own.ru_nvcsw;
    }
    /// Lets time pass in which a loop that goes on would have begun its next run.
    void letLoopsGoOn() {
        nodLeftRight(&window, 2);
        ASSERT_TRUE(
            waitUntil([&] { return log.contains("nodLeftRight:-> myloopcount[0] ended..."); }));
    }
    [[nodiscard]] Completion count() {
        return [this] {
            ++completions;
            durations.takeLast();
        };
    }

    LogCapture log;
    QWidget window;
    QPushButton button{&window};
    QElapsedTimer clock;
    Durations durations;
    int completions = 0;
};

/// The values that something takes, one after the other.
class Watch : public QObject {
public:
    explicit Watch(std::function<int()> value) : value_(std::move(value)) {
        connect(&timer_, &QTimer::timeout, this, [this] {
            if (values.empty() || values.back() != value_())
                values.push_back(value_());
        });
        timer_.start(1);
    }
    std::vector<int> values;

private:
    std::function<int()> value_;
    QTimer timer_;
};

} // namespace

TEST_F(Effects, TheBusySignTurnsOnceHoweverOftenItIsStarted) {
    for (int i = 0; i < 3; ++i) {
        clearAnimationKeys(&button);
        std::thread([this] { rotateViewWithCompletionBlock(&button, count()); }).join();
    }
    settle();
    const Layer* layer = layerOf(&button);
    EXPECT_THAT(layer->animationKeys(), ElementsAre("rotation"));
    EXPECT_EQ(completions, 1);
    expectTurn("rotation", -1);
    EXPECT_EQ(layer->anchorPoint(), QPointF(0.5, 0.5));
    const QPointF centre(50, 20);
    const auto angleOnScreen = [&] { // clockwise, in degrees
        const QPointF right = layer->presentationTransform().map(centre + QPointF(10, 0)) - centre;
        return qRadiansToDegrees(std::atan2(right.y(), right.x()));
    };
    EXPECT_TRUE(waitUntil([&] { return angleOnScreen() > 10.0 && angleOnScreen() < 80.0; }));
    EXPECT_EQ(layer->presentationTransform().map(centre), centre);
}

TEST_F(Effects, TheAnchorMovesThePositionSoThatTheViewStays) {
    setWantsLayer(&button, true);
    Layer* layer = layerOf(&button);
    setAnchorPoint(&button, {0.5, 0.5});
    EXPECT_EQ(layer->position(), QPointF(150, 60));
    EXPECT_TRUE(layer->presentationTransform().isIdentity());

    layer->setAffineTransform(QTransform(0, 2, -1, 0, 3, 4));
    const QPointF corner = layer->presentationTransform().map(QPointF(0, 0));
    setAnchorPoint(&button, {1.0, 0.0});
    EXPECT_EQ(layer->position(), QPointF(150 + 20, 60 + 100));
    EXPECT_EQ(layer->presentationTransform().map(QPointF(0, 0)), corner);
}

TEST_F(Effects, OneTurnEndsInALogLineOnly) {
    rotateNSViewWithCompletionHandler(&button, count());
    settle();
    EXPECT_THAT(layerOf(&button)->animationKeys(), ElementsAre("transform"));
    EXPECT_EQ(layerOf(&button)->position(), QPointF(100, 40)); // so the view has shifted
    expectTurn("transform", 1);
    const std::string line = formatted("%@-animationDidStop:finished:-> ...", &button);
    ASSERT_TRUE(waitUntil([&] { return log.contains(line); }));
    EXPECT_GE(clock.elapsed(), 990);
    EXPECT_TRUE(layerOf(&button)->animationKeys().empty());
    EXPECT_EQ(completions, 0);
}

TEST_F(Effects, TheShakeGoesRightThenLeftAndEndsWhereItBegan) {
    const Watch watch([this] { return button.x(); });
    nodLeftRightWithCompletionHandler(&button, count());
    expectCompletion({50, 50, 250, 50, 250, 50});
    EXPECT_EQ(button.geometry(), QRect(100, 40, 100, 40));
    EXPECT_THAT(log.messages(),
                ElementsAre(" self.animator.frame = {{100, 40}, {100, 40}}",
                            "          self.frame = {{100, 40}, {100, 40}}", "111111...",
                            "2222222...", "3333...", "4444...", "DONE..."));
    const auto right = std::ranges::max_element(watch.values);
    const auto left = std::ranges::min_element(watch.values);
    EXPECT_GT(*right, 100);
    EXPECT_LE(*right, 110);
    EXPECT_LT(*left, 100);
    EXPECT_GE(*left, 90);
    EXPECT_LT(right, left);
}

TEST_F(Effects, TheFadeShowsBothImagesInTurn) {
    QLabel image(&window);
    image.setPixmap(QPixmap(8, 8));
    image.show();
    const QImage recording = imageNamed("Recording_text.png").toImage();
    const QImage complete = imageNamed("Complete_text.png").toImage();
    ASSERT_FALSE(recording.isNull());
    ASSERT_FALSE(complete.isNull());
    const Watch watch([&] {
        const QImage shown = image.pixmap().toImage();
        return shown == recording ? 1 : shown == complete ? 2 : 0;
    });
    fadeImageWithCompletionHandler(&image, count());
    expectCompletion({1'000, 1'000, 1'000, 1'000, 1'000});
    EXPECT_THAT(watch.values, ElementsAre(1, 2, 1));
    EXPECT_TRUE(image.isVisible());
    EXPECT_DOUBLE_EQ(alphaValue(&image), 1.0);
}

TEST_F(Effects, TheFadeOfAViewWithoutImageDoesNothing) {
    QLabel text(QStringLiteral("text"), &window);
    fadeImageWithCompletionHandler(&button, count());
    fadeImageWithCompletionHandler(&text, count());
    settle();
    EXPECT_EQ(layerOf(&button), nullptr);
    EXPECT_EQ(layerOf(&text), nullptr);
    EXPECT_EQ(text.text(), "text");
    EXPECT_EQ(completions, 0);
}

TEST_F(Effects, ACountOfZeroShakesThreeTimes) {
    nodLeftRight(&button, 0);
    ASSERT_TRUE(waitUntil([&] { return log.contains("nodLeftRight:-> myloopcount[0] ended..."); }));
    std::vector<std::string> loop = log.messages();
    std::erase_if(loop, [](const std::string& line) { return !line.starts_with("nodLeft"); });
    EXPECT_THAT(loop, ElementsAre("nodLeftRight:-> myloopcount[2] start...",
                                  "nodLeftRight:-> myloopcount[2] ended...",
                                  "nodLeftRight:-> myloopcount[1] start...",
                                  "nodLeftRight:-> myloopcount[1] ended...",
                                  "nodLeftRight:-> myloopcount[0] start...",
                                  "nodLeftRight:-> myloopcount[0] ended..."));
    EXPECT_EQ(button.geometry(), QRect(100, 40, 100, 40));
}

#ifdef __linux__
TEST_F(Effects, LoopsRunInTheBackground) {
    std::atomic<int> policy = -1;
    Log::capture([&](Log::Severity, std::string_view message) {
        if (message.starts_with("nodLeftRight:"))
            policy = sched_getscheduler(0);
    });
    nodLeftRight(&button, 1);
    EXPECT_TRUE(waitUntil([&] { return policy != -1; }));
    EXPECT_EQ(policy, SCHED_IDLE);
}
#endif

TEST_F(Effects, FlashingBlinksFiveTimes) {
    int blinks = 0;
    bool out = false;
    QTimer look;
    QObject::connect(&look, &QTimer::timeout, &look, [&] {
        if (!out && alphaValue(&button) < 0.5)
            ++blinks;
        out = alphaValue(&button) < 0.5;
    });
    look.start(1);
    flashOnOffWithCompletionHandler(&button, count());
    expectCompletion({200, 150});
    blinks = 0;
    clock.restart();
    const long sleeps = sleepsOfOthers();
    flashOnOff(&button);
    ASSERT_TRUE(waitUntil([&] { return blinks == 5 && alphaValue(&button) >= 1.0; }));
    EXPECT_LT(sleepsOfOthers() - sleeps, clock.elapsed() / 20)
        << "looks each tenth of a second whether a blink is over";
    letLoopsGoOn();
    EXPECT_EQ(blinks, 5);
}

TEST_F(Effects, ALoopWhoseEffectNeverCompletesRunsItOnce) {
    const long sleeps = sleepsOfOthers();
    fadeInOut(&button, 1); // which has no image
    rotateImage(&button, 3);
    const std::string line = formatted("%@-animationDidStop:finished:-> ...", &button);
    ASSERT_TRUE(waitUntil([&] { return log.contains(line); }));
    EXPECT_LT(sleepsOfOthers() - sleeps, clock.elapsed() / 20)
        << "both look each tenth of a second";
    letLoopsGoOn();
    EXPECT_TRUE(layerOf(&button)->animationKeys().empty());
}

TEST(EffectsOnAViewThatGoes, EndWithoutCompletion) {
    bool completed = false;
    auto view = std::make_unique<QPushButton>();
    const auto complete = [&] { completed = true; };
    rotateViewWithCompletionBlock(view.get(), complete);
    nodLeftRightWithCompletionHandler(view.get(), complete);
    flashOnOff(view.get());
    view.reset();
    bool after = false;
    flashOnOffWithCompletionHandler(std::make_unique<QPushButton>().get(), complete);
    MainQueue::async([&] { after = true; });
    ASSERT_TRUE(waitUntil([&] { return after; }));
    EXPECT_FALSE(completed);
}
