#include "app/VornNSViewAdditions.h"

#include "app/platform/Layer.h"
#include "app/platform/MainQueue.h"
#include "app/platform/QtDescription.h"
#include "core/Log.h"

#include <QPointer>

#include <limits>
#include <numbers>
#include <utility>

namespace {

/// Runs `work` on the main queue if the view is still there then.
void onMainQueue(QWidget* view, std::function<void(QWidget*)> work) {
    MainQueue::async([view = QPointer<QWidget>(view), work = std::move(work)] {
        if (view)
            work(view);
    });
}

} // namespace

void VornNSViewAdditions::clearAnimationKeys(QWidget* view) {
    onMainQueue(view, [](QWidget* self) {
        setWantsLayer(self, true);
        Layer* layer = layerOf(self);
        if (layer->animationKeys().empty())
            layer->removeAllAnimations();
    });
}

void VornNSViewAdditions::setAnchorPoint(QWidget* view, QPointF point) {
    Layer* layer = layerOf(view);
    const auto inUnits = [view, layer](QPointF anchor) {
        return layer->affineTransform().map(
            QPointF(view->width() * anchor.x(), view->height() * anchor.y()));
    };
    const QPointF before = inUnits(layer->anchorPoint());
    const QPointF after = inUnits(point);
    const QPointF position = layer->position();
    layer->setAnchorPoint(point);
    layer->setPosition(position - before + after);
}

void VornNSViewAdditions::rotateViewWithCompletionBlock(QWidget* view, Completion completion) {
    onMainQueue(view, [completion = std::move(completion)](QWidget* self) {
        setWantsLayer(self, true);
        setAnchorPoint(self, {0.5, 0.5});
        Layer* layer = layerOf(self);
        if (!layer->animationKeys().empty())
            return;
        layer->addAnimation({.from = 0.0,
                             .to = -2.0 * std::numbers::pi,
                             .duration = std::chrono::seconds(1),
                             .repeatCount = std::numeric_limits<float>::infinity()},
                            "rotation");
        completion();
    });
}

void VornNSViewAdditions::rotateNSViewWithCompletionHandler(QWidget* view, const Completion&) {
    onMainQueue(view, [](QWidget* self) {
        setWantsLayer(self, true);
        Layer* layer = layerOf(self);
        // The layer's own anchor, so the view may shift; only the method above keeps it in place.
        layer->setAnchorPoint({0.5, 1.0});
        layer->setAnchorPoint({0.5, 0.5});
        layer->addAnimation(
            {.from = 0.0F,
             .to = 2.0F * std::numbers::pi_v<float>,
             .duration = std::chrono::seconds(1),
             .timing = QEasingCurve::Linear,
             .didStop = [self](const BasicAnimation& animation,
                               bool finished) { animationDidStop(self, animation, finished); }},
            "transform");
    });
}

void VornNSViewAdditions::animationDidStop(QWidget* view, const BasicAnimation&, bool) {
    logEvent("%@-%@-> ...", view, "animationDidStop:finished:");
}
