#include "app/toolkit/Animator.h"

#include "app/toolkit/Layer.h"

#include <QCoreApplication>
#include <QVariantAnimation>

#include <utility>
#include <vector>

namespace {

/// Dynamic properties of a widget: the number of the change that may set the value.
constexpr const char* frameClaim = "animatedFrame";
constexpr const char* alphaClaim = "animatedAlpha";

int between(int from, int to, double progress) {
    return from + qRound((to - from) * progress);
}

QRect between(const QRect& from, const QRect& to, double progress) {
    return {between(from.x(), to.x(), progress), between(from.y(), to.y(), progress),
            between(from.width(), to.width(), progress),
            between(from.height(), to.height(), progress)};
}

} // namespace

class Animator::Group : public QVariantAnimation {
public:
    explicit Group(std::chrono::milliseconds duration)
        : QVariantAnimation(QCoreApplication::instance()) {
        setStartValue(0.0);
        setEndValue(1.0);
        setDuration(static_cast<int>(duration.count()));
        setEasingCurve(QEasingCurve::InOutQuad);
    }

    void add(QWidget* widget, const char* claim, std::function<void(QWidget&, double)> apply) {
        static int lastNumber = 0;
        changes_.push_back({widget, claim, ++lastNumber, std::move(apply)});
        widget->setProperty(claim, lastNumber);
    }

    [[nodiscard]] bool isEmpty() const { return changes_.empty(); }

protected:
    void updateCurrentValue(const QVariant& value) override {
        for (const Change& change : changes_)
            if (change.widget && change.widget->property(change.claim) == change.number)
                change.apply(*change.widget, value.toDouble());
    }

private:
    struct Change {
        QPointer<QWidget> widget;
        const char* claim;
        int number;
        std::function<void(QWidget&, double)> apply;
    };
    std::vector<Change> changes_;
};

Animator::Animator(std::chrono::milliseconds duration) : group_(new Group(duration)) {}

Animator::~Animator() {
    if (group_ && !group_->isEmpty())
        group_.release()->start(QAbstractAnimation::DeleteWhenStopped);
}

void Animator::setFrame(QWidget* widget, const QRect& frame) {
    group_->add(widget, frameClaim,
                [from = widget->geometry(), frame](QWidget& changing, double progress) {
                    changing.setGeometry(between(from, frame, progress));
                });
}

void Animator::setAlphaValue(QWidget* widget, double alpha) {
    group_->add(widget, alphaClaim,
                [from = alphaValue(widget), alpha](QWidget& changing, double progress) {
                    ::setAlphaValue(&changing, from + (alpha - from) * progress);
                });
}

void runAnimationGroup(std::chrono::milliseconds duration,
                       const std::function<void(Animator&)>& changes,
                       std::function<void()> completion) {
    Animator animator(duration);
    changes(animator);
    QObject::connect(animator.group_.get(), &QAbstractAnimation::finished, std::move(completion));
    animator.group_.release()->start(QAbstractAnimation::DeleteWhenStopped);
}

double alphaValue(const QWidget* widget) {
    const Layer* layer = layerOf(widget);
    return layer == nullptr ? 1.0 : layer->opacity();
}

void setAlphaValue(QWidget* widget, double alpha) {
    setWantsLayer(widget, true);
    layerOf(widget)->setOpacity(alpha);
}
