#include "app/toolkit/Layer.h"

#include "tests/app/Support.h"

#include <QImage>

#include <limits>
#include <numbers>

#include <gmock/gmock.h>

using testing::ElementsAre;
using namespace std::chrono_literals;

namespace {

/// A white window with a black child whose left half is red.
class LayerTest : public testing::Test {
protected:
    LayerTest() {
        window.resize(200, 100);
        window.setStyleSheet("background: white");
        view.setGeometry(50, 40, 40, 20);
        view.setStyleSheet("background: black");
        auto* half = new QWidget(&view);
        half->setGeometry(0, 0, 20, 20);
        half->setStyleSheet("background: red");
        setWantsLayer(&view, true);
        layer = layerOf(&view);
        window.show();
    }
    [[nodiscard]] QColor seenAt(int x, int y) { return window.grab().toImage().pixelColor(x, y); }
    [[nodiscard]] BasicAnimation turn(double to) {
        return {
            .to = to, .duration = 40ms, .didStop = [this](const BasicAnimation&, bool finished) {
                stops.push_back(finished);
            }};
    }

    QWidget window;
    QWidget view{&window};
    Layer* layer = nullptr;
    std::vector<bool> stops;
};

constexpr float withoutEnd = std::numeric_limits<float>::infinity();

} // namespace

TEST_F(LayerTest, DrawsTheWidgetTransformedAndFaded) {
    EXPECT_EQ(seenAt(55, 50), QColor(Qt::red));
    EXPECT_EQ(seenAt(85, 50), QColor(Qt::black));
    layer->setAffineTransform(QTransform::fromTranslate(60, 0));
    EXPECT_EQ(seenAt(55, 50), QColor(Qt::white));
    EXPECT_EQ(seenAt(115, 50), QColor(Qt::red));
    layer->setOpacity(0.5);
    EXPECT_NEAR(seenAt(115, 50).green(), 127, 2);
    EXPECT_NEAR(seenAt(145, 50).red(), 127, 2);
}

TEST_F(LayerTest, CountsPositiveAnglesCounterClockwiseOnScreen) {
    layer->setAnchorPoint({0.5, 0.5});
    layer->setPosition({70, 50});
    BasicAnimation quarter = turn(std::numbers::pi / 2.0);
    quarter.from = quarter.to;
    quarter.repeatCount = withoutEnd;
    layer->addAnimation(quarter, "quarter");
    EXPECT_EQ(seenAt(70, 65), QColor(Qt::red)); // what was left is below
    EXPECT_EQ(seenAt(70, 35), QColor(Qt::black));
    EXPECT_EQ(seenAt(55, 50), QColor(Qt::white));
    layer->removeAllAnimations();
    EXPECT_EQ(seenAt(55, 50), QColor(Qt::red));
    EXPECT_THAT(stops, ElementsAre(false));
}

TEST_F(LayerTest, HoldsAnimationsByKeyUntilTheyEnd) {
    BasicAnimation endless = turn(1.0);
    endless.repeatCount = withoutEnd;
    layer->addAnimation(endless, "endless");
    layer->addAnimation(turn(1.0), "once");
    EXPECT_THAT(layer->animationKeys(), ElementsAre("endless", "once"));
    layer->addAnimation(turn(2.0), "once");
    EXPECT_THAT(stops, ElementsAre(false));
    ASSERT_TRUE(waitUntil([&] { return stops.size() == 2; }));
    EXPECT_THAT(stops, ElementsAre(false, true));
    EXPECT_THAT(layer->animationKeys(), ElementsAre("endless"));
    layer->removeAllAnimations();
    EXPECT_TRUE(layer->animationKeys().empty());
}

TEST_F(LayerTest, DrawsNoFramesWhileItCanNotBeSeen) {
    BasicAnimation endless = turn(1.0);
    endless.repeatCount = withoutEnd;
    layer->addAnimation(endless, "endless");
    EXPECT_TRUE(layer->isAnimating());
    view.hide();
    EXPECT_FALSE(layer->isAnimating());
    view.show();
    EXPECT_TRUE(layer->isAnimating());
    window.showMinimized();
    EXPECT_TRUE(waitUntil([&] { return !layer->isAnimating(); }));
    window.showNormal();
    EXPECT_TRUE(waitUntil([&] { return layer->isAnimating(); }));
    window.hide();
    EXPECT_FALSE(layer->isAnimating());
}
