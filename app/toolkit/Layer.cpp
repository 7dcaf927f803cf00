#include "app/toolkit/Layer.h"

#include "app/toolkit/Queues.h"

#include <QEvent>
#include <QPainter>
#include <QTimerEvent>

#include <algorithm>
#include <cmath>
#include <utility>

namespace {

/// 25 frames a second: smooth for a small control, and next to nothing for the processor.
constexpr int frameMilliseconds = 40;

double repetitions(const BasicAnimation& animation) {
    return std::max(1.0, static_cast<double>(animation.repeatCount));
}

double milliseconds(const BasicAnimation& animation) {
    return std::max(1.0, static_cast<double>(animation.duration.count()));
}

} // namespace

Layer::Layer(QWidget& widget) : widget_(widget) {
    widget.installEventFilter(this);
}

std::vector<std::string> Layer::animationKeys() const {
    std::vector<std::string> keys;
    for (const Running& running : running_)
        keys.push_back(running.key);
    return keys;
}

const BasicAnimation* Layer::animationForKey(const std::string& key) const {
    const auto found = std::ranges::find(running_, key, &Running::key);
    return found == running_.end() ? nullptr : &found->animation;
}

void Layer::addAnimation(BasicAnimation animation, const std::string& key) {
    const auto same = std::ranges::find(running_, key, &Running::key);
    if (same != running_.end())
        remove(same->number, false);

    const quint64 number = ++lastNumber_;
    const double total = milliseconds(animation) * repetitions(animation);
    if (std::isfinite(total))
        MainQueue::after(std::chrono::milliseconds(std::llround(total)), this,
                         [this, number] { remove(number, true); });
    running_.push_back({key, std::move(animation), {}, number});
    running_.back().clock.start();
    watchWindow();
    changed();
}

void Layer::removeAllAnimations() {
    while (!running_.empty())
        remove(running_.front().number, false);
}

void Layer::remove(quint64 number, bool finished) {
    const auto found = std::ranges::find(running_, number, &Running::number);
    if (found == running_.end())
        return;
    const BasicAnimation animation = std::move(found->animation);
    running_.erase(found);
    changed();
    if (animation.didStop)
        animation.didStop(animation, finished);
}

QPointF Layer::anchorInWidget() const {
    return {anchorPoint_.x() * widget_.width(), anchorPoint_.y() * widget_.height()};
}

void Layer::setAnchorPoint(QPointF point) {
    const QPointF before = anchorInWidget();
    anchorPoint_ = point;
    displacement_ += before - anchorInWidget();
    changed();
}

QPointF Layer::position() const {
    return widget_.pos() + anchorInWidget() + displacement_;
}

void Layer::setPosition(QPointF position) {
    displacement_ = position - widget_.pos() - anchorInWidget();
    changed();
}

void Layer::setAffineTransform(const QTransform& transform) {
    transform_ = transform;
    changed();
}

void Layer::setOpacity(double opacity) {
    opacity_ = opacity;
    update();
}

double Layer::animated(BasicAnimation::KeyPath keyPath, double still) const {
    for (auto running = running_.rbegin(); running != running_.rend(); ++running) {
        const BasicAnimation& animation = running->animation;
        if (animation.keyPath != keyPath)
            continue;
        const double turns =
            static_cast<double>(running->clock.elapsed()) / milliseconds(animation);
        const double progress = turns >= repetitions(animation) ? 1.0 : turns - std::floor(turns);
        return animation.from +
               (animation.to - animation.from) * animation.timing.valueForProgress(progress);
    }
    return still;
}

QTransform Layer::presentationTransform() const {
    const QPointF anchor = anchorInWidget();
    const QPointF place = anchor + displacement_;
    const double angle = animated(BasicAnimation::KeyPath::TransformRotation, 0.0);
    // With y downwards a positive angle would turn clockwise.
    return QTransform::fromTranslate(-anchor.x(), -anchor.y()) *
           QTransform().rotateRadians(-angle) * transform_ *
           QTransform::fromTranslate(place.x(), place.y());
}

double Layer::presentationOpacity() const {
    return animated(BasicAnimation::KeyPath::Opacity, opacity_);
}

QRectF Layer::boundingRectFor(const QRectF& sourceRect) const {
    const bool turns = std::ranges::any_of(running_, [](const Running& running) {
        return running.animation.keyPath == BasicAnimation::KeyPath::TransformRotation;
    });
    if (!turns)
        return presentationTransform().mapRect(sourceRect);
    const QPointF anchor = anchorInWidget();
    double reach = 0.0;
    for (const QPointF corner : {sourceRect.topLeft(), sourceRect.topRight(),
                                 sourceRect.bottomLeft(), sourceRect.bottomRight()})
        reach = std::max(reach, std::hypot(corner.x() - anchor.x(), corner.y() - anchor.y()));
    const QRectF circle(-reach, -reach, 2.0 * reach, 2.0 * reach);
    return transform_.mapRect(circle).translated(anchor + displacement_);
}

void Layer::draw(QPainter* painter) {
    const QTransform transform = presentationTransform();
    const double opacity = presentationOpacity();
    if (transform.isIdentity() && opacity >= 1.0) {
        drawSource(painter);
        return;
    }
    QPoint offset;
    const QPixmap picture = sourcePixmap(Qt::LogicalCoordinates, &offset, NoPad);
    painter->save();
    painter->setRenderHint(QPainter::SmoothPixmapTransform);
    painter->setOpacity(painter->opacity() * opacity);
    painter->setTransform(transform, true);
    painter->drawPixmap(offset, picture);
    painter->restore();
}

void Layer::changed() {
    updateFrames();
    updateBoundingRect();
    update();
}

void Layer::watchWindow() {
    if (widget_.window() != &widget_)
        widget_.window()->installEventFilter(this);
}

void Layer::updateFrames() {
    const bool seen = widget_.isVisible() && !widget_.window()->isMinimized();
    if (running_.empty() || !seen)
        frames_.stop();
    else if (!frames_.isActive())
        frames_.start(frameMilliseconds, Qt::PreciseTimer, this);
}

void Layer::timerEvent(QTimerEvent* event) {
    if (event->timerId() == frames_.timerId())
        update();
    else
        QGraphicsEffect::timerEvent(event);
}

bool Layer::eventFilter(QObject* object, QEvent* event) {
    switch (event->type()) {
    case QEvent::Show:
        watchWindow(); // it may have got another one
        updateFrames();
        break;
    case QEvent::Hide:
    case QEvent::WindowStateChange:
        updateFrames();
        break;
    default:
        break;
    }
    return QGraphicsEffect::eventFilter(object, event);
}

Layer* layerOf(const QWidget* widget) {
    return qobject_cast<Layer*>(widget->graphicsEffect());
}

void setWantsLayer(QWidget* widget, bool wanted) {
    if (wanted && layerOf(widget) == nullptr)
        widget->setGraphicsEffect(new Layer(*widget));
    else if (!wanted)
        widget->setGraphicsEffect(nullptr);
}
