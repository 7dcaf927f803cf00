#pragma once

#include <QPointer>
#include <QRect>
#include <QWidget>

#include <chrono>
#include <functional>
#include <memory>

/// Changes widgets over time instead of at once. Main thread.
class Animator {
public:
    /// What a change takes outside any group.
    static constexpr std::chrono::milliseconds defaultDuration{250};

    explicit Animator(std::chrono::milliseconds duration = defaultDuration);
    ~Animator();
    Animator(const Animator&) = delete;
    Animator& operator=(const Animator&) = delete;

    /// Each starts from the present value when the Animator dies, and takes the place of a change
    /// of the same value that still runs.
    void setFrame(QWidget* widget, const QRect& frame);
    void setAlphaValue(QWidget* widget, double alpha);

private:
    friend void runAnimationGroup(std::chrono::milliseconds, const std::function<void(Animator&)>&,
                                  std::function<void()>);
    class Group;
    std::unique_ptr<Group> group_;
};

/// Runs the changes that `changes` asks for, all in `duration`, then calls `completion` (also when
/// there was nothing to change, or a widget has gone meanwhile).
void runAnimationGroup(std::chrono::milliseconds duration,
                       const std::function<void(Animator&)>& changes,
                       std::function<void()> completion);

/// The opacity of a widget, from 0 to 1.
[[nodiscard]] double alphaValue(const QWidget* widget);
void setAlphaValue(QWidget* widget, double alpha);
