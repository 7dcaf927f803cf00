#include "app/VornNSViewAdditions.h"
#include "app/toolkit/Animator.h"
#include "app/toolkit/NamedImage.h"
#include "app/toolkit/QtDescription.h"
#include "app/toolkit/Queues.h"
#include "core/Log.h"

#include <QLabel>
#include <QPointer>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

namespace {

using namespace std::chrono_literals;
using VornNSViewAdditions::Completion;
using View = QPointer<QWidget>;

/// One link of a chain of timed changes.
struct Step {
    std::chrono::milliseconds duration;
    std::function<void(Animator&, QWidget*)> change;
    std::function<void(QWidget*)> before = [](QWidget*) {};
};

/// Runs the steps one after the other, each from the completion of the one before; ends without
/// completion when the view has gone.
void runSteps(const View& view, std::vector<Step> steps, const Completion& completion,
              std::size_t first = 0) {
    if (!view)
        return;
    if (first == steps.size()) {
        completion();
        return;
    }
    const Step step = steps[first];
    step.before(view);
    runAnimationGroup(
        step.duration, [&](Animator& animator) { step.change(animator, view); },
        [view, steps = std::move(steps), completion, first]() mutable {
            runSteps(view, std::move(steps), completion, first + 1);
        });
}

void nod(const View& view, Completion completion) {
    MainQueue::async([view, completion = std::move(completion)] {
        if (!view)
            return;
        const QRect frame = view->geometry();
        logEvent(" self.animator.frame = %@", frame);
        logEvent("          self.frame = %@", frame);
        const auto moveTo = [](const QRect& target) {
            return [target](Animator& animator, QWidget* self) { animator.setFrame(self, target); };
        };
        const auto say = [](const char* text) { return [text](QWidget*) { logEvent(text); }; };
        const auto sayAndSettle = [frame](const char* text) {
            return [frame, text](QWidget* self) {
                logEvent(text);
                Animator().setFrame(self, frame);
            };
        };
        runSteps(view,
                 {{50ms, moveTo(frame.translated(10, 0)), say("111111...")},
                  {50ms, moveTo(frame), say("2222222...")},
                  {50ms, moveTo(frame.translated(-10, 0)), sayAndSettle("3333...")},
                  {50ms, moveTo(frame), sayAndSettle("4444...")}},
                 [completion] {
                     logEvent("DONE...");
                     completion();
                 });
    });
}

void fade(const View& view, Completion completion) {
    MainQueue::async([view, completion = std::move(completion)] {
        auto* imageView = qobject_cast<QLabel*>(view.data());
        if (imageView == nullptr || imageView->pixmap().isNull())
            return;
        const auto setImage = [imageView](const char* name) {
            imageView->setPixmap(imageNamed(QLatin1String(name)));
        };
        const auto appear = [](Animator& animator, QWidget* self) {
            self->show();
            animator.setAlphaValue(self, 1.0);
        };
        const auto vanish = [](Animator& animator, QWidget* self) {
            animator.setAlphaValue(self, 0.0);
        };
        const auto hideAndSet = [setImage](const char* name) {
            return [setImage, name](QWidget* self) {
                self->hide();
                setImage(name);
            };
        };
        const auto start = [setImage](Animator& animator, QWidget* self) {
            animator.setAlphaValue(self, 1.0);
            setImage("Recording_text.png");
        };
        runSteps(view,
                 {{1s, start},
                  {1s, vanish},
                  {1s, appear, hideAndSet("Complete_text.png")},
                  {1s, vanish},
                  {1s, appear, hideAndSet("Recording_text.png")}},
                 completion);
    });
}

void flash(const View& view, Completion completion) {
    MainQueue::async([view, completion = std::move(completion)] {
        const auto fadeTo = [](double alpha) {
            return
                [alpha](Animator& animator, QWidget* self) { animator.setAlphaValue(self, alpha); };
        };
        runSteps(view, {{200ms, fadeTo(0.0)}, {150ms, fadeTo(1.0)}}, completion);
    });
}

void rotateOnce(const View& view, Completion completion) {
    MainQueue::async([view, completion = std::move(completion)] {
        if (view)
            VornNSViewAdditions::rotateNSViewWithCompletionHandler(view, completion);
    });
}

using Effect = void (*)(const View&, Completion);

using Flag = std::shared_ptr<std::atomic<bool>>;

/// A flag that is set once the view has gone.
Flag goneFlag(const View& view) {
    Flag gone = std::make_shared<std::atomic<bool>>(false);
    MainQueue::async([view, gone] {
        if (view)
            QObject::connect(view, &QObject::destroyed, [gone] { *gone = true; });
        else
            *gone = true;
    });
    return gone;
}

/// Runs the effect again and again on a thread that sleeps until each run is done: for ever if it
/// never completes, though not after the view has gone. With a name given, logs the counter.
void repeat(const View& target, int count, Effect effect, std::chrono::microseconds pause,
            const char* loggedName = nullptr) {
    auto loop = [view = View(target), gone = goneFlag(target), effect, pause, loggedName,
                 left = static_cast<std::uint32_t>(count == 0 ? 3 : count)]() mutable {
        const auto log = [&](const char* text) {
            if (loggedName != nullptr)
                logEvent(text, loggedName, static_cast<int>(left));
        };
        while (left-- != 0) {
            log("%@-> myloopcount[%i] start...");
            const Flag done = std::make_shared<std::atomic<bool>>(false);
            effect(view, [done] { BackgroundQueue::async([done] { *done = true; }); });
            while (!*done && !*gone)
                std::this_thread::sleep_for(pause);
            if (!*done)
                break;
            log("%@-> myloopcount[%i] ended...");
        }
        MainQueue::async([view = std::move(view)] {}); // the main thread destroys the pointer
    };
    BackgroundQueue::async(std::move(loop));
}

} // namespace

void VornNSViewAdditions::nodLeftRightWithCompletionHandler(QWidget* view, Completion completion) {
    nod(view, std::move(completion));
}

void VornNSViewAdditions::fadeImageWithCompletionHandler(QWidget* view, Completion completion) {
    fade(view, std::move(completion));
}

void VornNSViewAdditions::flashOnOffWithCompletionHandler(QWidget* view, Completion completion) {
    flash(view, std::move(completion));
}

void VornNSViewAdditions::nodLeftRight(QWidget* view, int count) {
    repeat(view, count, nod, 1'000us, "nodLeftRight:");
}

void VornNSViewAdditions::fadeInOut(QWidget* view, int count) {
    repeat(view, count, fade, 100'000us);
}

void VornNSViewAdditions::rotateImage(QWidget* view, int count) {
    repeat(view, count, rotateOnce, 100'000us);
}

void VornNSViewAdditions::flashOnOff(QWidget* view, int count) {
    repeat(view, count, flash, 100'000us);
}
