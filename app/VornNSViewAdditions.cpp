#include "app/VornNSViewAdditions.h"

#include "app/toolkit/Layer.h"
#include "app/toolkit/QtDescription.h"
#include "app/toolkit/Queues.h"
#include "core/Log.h"

#include <limits>
#include <numbers>
#include <utility>

void VornNSViewAdditions::clearAnimationKeys(QWidget* view) {
    MainQueue::async(view, [view] {
        setWantsLayer(view, true);
        Layer* layer = layerOf(view);
        if (layer->animationKeys().empty())
            layer->removeAllAnimations();
    });
}

void VornNSViewAdditions::setAnchorPoint(QWidget* view, QPointF point) {
    Layer* layer = layerOf(view);
    if (layer == nullptr)
        return;
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
    MainQueue::async(view, [view, completion = std::move(completion)] {
        setWantsLayer(view, true);
        setAnchorPoint(view, {0.5, 0.5});
        Layer* layer = layerOf(view);
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
    MainQueue::async(view, [view] {
        setWantsLayer(view, true);
        Layer* layer = layerOf(view);
        // The layer's own anchor, so the view may shift; only the method above keeps it in place.
        layer->setAnchorPoint({0.5, 1.0});
        layer->setAnchorPoint({0.5, 0.5});
        layer->addAnimation(
            {.from = 0.0F,
             .to = 2.0F * std::numbers::pi_v<float>,
             .duration = std::chrono::seconds(1),
             .timing = QEasingCurve::Linear,
             .didStop = [view](const BasicAnimation& animation,
                               bool finished) { animationDidStop(view, animation, finished); }},
            "transform");
    });
}

void VornNSViewAdditions::animationDidStop(QWidget* view, const BasicAnimation&, bool) {
    logEvent("%@-%@-> ...", view, "animationDidStop:finished:");
}
