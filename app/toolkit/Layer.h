#pragma once

#include <QBasicTimer>
#include <QEasingCurve>
#include <QElapsedTimer>
#include <QGraphicsEffect>
#include <QPointF>
#include <QTransform>
#include <QWidget>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

/// One value of a layer that goes from one number to another, again and again if wanted.
struct BasicAnimation {
    enum class KeyPath {
        TransformRotation, ///< an angle in radians; positive turns counter-clockwise on screen
        Opacity
    };

    KeyPath keyPath = KeyPath::TransformRotation;
    double from = 0.0;
    double to = 0.0;
    std::chrono::milliseconds duration{250};
    float repeatCount = 0.0F; ///< 0 runs once, like 1; infinity runs without end
    QEasingCurve timing = QEasingCurve::Linear;
    /// Called when the animation has run to its end (true) or was removed before (false).
    std::function<void(const BasicAnimation&, bool finished)> didStop = {};
};

/// How a widget appears: turned, moved and faded against its own geometry, which stays as it is.
/// Coordinates are the widget's, y downwards. Main thread.
class Layer : public QGraphicsEffect {
    Q_OBJECT
public:
    explicit Layer(QWidget& widget);

    /// The keys of the running animations, in the order they were added.
    [[nodiscard]] std::vector<std::string> animationKeys() const;
    /// The animation that runs under `key`; null if none does. Valid until one starts or ends.
    [[nodiscard]] const BasicAnimation* animationForKey(const std::string& key) const;
    /// Starts `animation`; one that runs under the same key is removed.
    void addAnimation(BasicAnimation animation, const std::string& key);
    void removeAllAnimations();

    /// The fixed point of the transform, in units of the widget's width and height. At first (0,
    /// 0).
    [[nodiscard]] QPointF anchorPoint() const { return anchorPoint_; }
    /// Leaves position() as it is, so what is seen moves.
    void setAnchorPoint(QPointF point);
    /// Where the anchor point lies, in the parent's coordinates; goes along with the widget.
    [[nodiscard]] QPointF position() const;
    void setPosition(QPointF position);
    [[nodiscard]] QTransform affineTransform() const { return transform_; }
    void setAffineTransform(const QTransform& transform);
    [[nodiscard]] double opacity() const { return opacity_; }
    void setOpacity(double opacity);

    /// From the widget's coordinates to where they are seen at this moment, in the same
    /// coordinates.
    [[nodiscard]] QTransform presentationTransform() const;
    /// The opacity at this moment.
    [[nodiscard]] double presentationOpacity() const;
    /// Whether frames are drawn now: something runs, and the widget can be seen.
    [[nodiscard]] bool isAnimating() const { return frames_.isActive(); }

    [[nodiscard]] QRectF boundingRectFor(const QRectF& sourceRect) const override;
    bool eventFilter(QObject* object, QEvent* event) override;

protected:
    void draw(QPainter* painter) override;
    void timerEvent(QTimerEvent* event) override;

private:
    struct Running {
        std::string key;
        BasicAnimation animation;
        QElapsedTimer clock;
        quint64 number;
    };

    [[nodiscard]] QPointF anchorInWidget() const;
    [[nodiscard]] double animated(BasicAnimation::KeyPath keyPath, double still) const;
    void remove(quint64 number, bool finished);
    void changed();
    void watchWindow();
    void updateFrames();

    QWidget& widget_;
    QPointF anchorPoint_;
    QPointF displacement_; // of the anchor point from its place in the widget
    QTransform transform_;
    double opacity_ = 1.0;
    std::vector<Running> running_;
    quint64 lastNumber_ = 0;
    QBasicTimer frames_;
};

/// The layer of a widget; null if it has none.
[[nodiscard]] Layer* layerOf(const QWidget* widget);
/// Gives the widget a layer, or takes it away.
void setWantsLayer(QWidget* widget, bool wanted);
