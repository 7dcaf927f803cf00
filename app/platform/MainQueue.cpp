#include "app/platform/MainQueue.h"

#include <QCoreApplication>
#include <QEvent>
#include <QTimer>

#include <algorithm>
#include <deque>
#include <mutex>
#include <utility>

namespace {

using Clock = std::chrono::steady_clock;
using Job = std::function<void()>;

/// Runs the first waiting job at each event; lives as long as the application object.
class Runner : public QObject {
protected:
    void customEvent(QEvent* event) override;
};

/// The jobs wait here and not in the events: this lock also hands over what they captured.
struct State {
    std::mutex mutex;
    std::deque<Job> waiting;
    Runner* runner = nullptr;
    bool ended = false;
};

/// Never destroyed: worker threads may come here while the process ends.
State& state() {
    static State& instance = *new State;
    return instance;
}

void postEvent(Runner* runner) {
    QCoreApplication::postEvent(runner, new QEvent(QEvent::User));
}

void Runner::customEvent(QEvent*) {
    Job job;
    {
        const std::lock_guard lock(state().mutex);
        job = std::move(state().waiting.front());
        state().waiting.pop_front();
    }
    job();
}

void close() {
    std::deque<Job> givenUp; // destroyed without the lock, since their captures may come back here
    const std::lock_guard lock(state().mutex);
    givenUp.swap(state().waiting);
    delete std::exchange(state().runner, nullptr);
    state().ended = true;
}

void open() {
    const std::lock_guard lock(state().mutex);
    state().ended = false;
    state().runner = new Runner;
    for (std::size_t i = 0; i < state().waiting.size(); ++i)
        postEvent(state().runner);
    qAddPostRoutine(close);
}
Q_COREAPP_STARTUP_FUNCTION(open)

} // namespace

void MainQueue::async(std::function<void()> job) {
    const std::lock_guard lock(state().mutex);
    if (state().ended)
        return;
    state().waiting.push_back(std::move(job));
    if (state().runner != nullptr)
        postEvent(state().runner);
}

void MainQueue::after(std::chrono::milliseconds delay, std::function<void()> job) {
    const Clock::time_point due = Clock::now() + delay;
    async([due, job = std::move(job)]() mutable {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(due - Clock::now());
        QTimer::singleShot(std::max(left, std::chrono::milliseconds(0)), Qt::PreciseTimer,
                           state().runner, std::move(job));
    });
}
