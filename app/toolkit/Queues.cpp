#include "app/toolkit/Queues.h"

#include "base/NeverDestroyed.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QEvent>
#include <QPointer>
#include <QThreadPool>
#include <QTimer>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <limits>
#include <mutex>
#include <utility>
#include <vector>

using Job = std::function<void()>;

namespace {

/// A shell command keeps half a megabyte of output on the stack; some systems give threads no more.
constexpr unsigned stackSize = 4U << 20U;

/// Jobs wait here and not in the toolkit's events and runnables: the sanitizers know this lock, and
/// so see that it hands over what the jobs captured.
class WaitingJobs {
public:
    void add(Job job) {
        const std::lock_guard lock(mutex_);
        jobs_.push_back(std::move(job));
    }
    [[nodiscard]] Job takeFirst() {
        const std::lock_guard lock(mutex_);
        Job job = std::move(jobs_.front());
        jobs_.pop_front();
        return job;
    }

private:
    std::mutex mutex_;
    std::deque<Job> jobs_;
};

enum class Stage { Running, Ending, Ended };
std::atomic<Stage> stage = Stage::Running;

WaitingJobs& mainJobs() {
    static WaitingJobs& jobs = base::neverDestroyed<WaitingJobs>();
    return jobs;
}

/// Runs the first waiting job at each event. Events that came before the application object wait.
class Runner : public QObject {
protected:
    void customEvent(QEvent*) override { mainJobs().takeFirst()(); }
};

Runner& runner() {
    static Runner& instance = base::neverDestroyed<Runner>();
    return instance;
}
// On the main thread, before there is another one.
[[maybe_unused]] const Runner& madeAtStart = runner();

} // namespace

/// Jobs on threads of the toolkit's pool.
class JobQueue {
public:
    enum class AtEnd { GiveUp, Await, Ignore };

    JobQueue(const std::string& label, int threads, AtEnd atEnd) : atEnd_(atEnd) {
        threads_.setObjectName(QString::fromStdString(label)); // which names the threads
        threads_.setMaxThreadCount(threads);
        threads_.setStackSize(stackSize);
        if (threads == 1)
            threads_.setExpiryTimeout(-1);
        if (atEnd == AtEnd::Ignore)
            threads_.setThreadPriority(QThread::IdlePriority);
        const std::lock_guard lock(allMutex());
        all().push_back(this);
    }

    void async(Job job) {
        waiting_.add(std::move(job));
        threads_.start([this] { runFirst(); });
    }

    /// Begins no job any more that would be given up, then none at all. True if all ended in time.
    [[nodiscard]] static bool endAll(std::chrono::milliseconds atMost) {
        const QDeadlineTimer deadline(atMost);
        stage = Stage::Ending;
        bool ended = true;
        const std::lock_guard lock(allMutex());
        for (const AtEnd atEnd :
             {AtEnd::GiveUp, AtEnd::Await}) { // the former may add to the latter
            for (JobQueue* queue : all()) {
                if (queue->atEnd_ == atEnd)
                    ended = queue->threads_.waitForDone(int(deadline.remainingTime())) && ended;
            }
        }
        stage = Stage::Ended;
        return ended;
    }

private:
    static std::mutex& allMutex() {
        static std::mutex& mutex = base::neverDestroyed<std::mutex>();
        return mutex;
    }
    static std::vector<JobQueue*>& all() {
        static auto& queues = base::neverDestroyed<std::vector<JobQueue*>>();
        return queues;
    }

    void runFirst() {
        if (stage == Stage::Ended || (stage == Stage::Ending && atEnd_ == AtEnd::GiveUp))
            return;
        waiting_.takeFirst()();
    }

    const AtEnd atEnd_;
    WaitingJobs waiting_;
    QThreadPool threads_;
};

void MainQueue::async(Job job) {
    mainJobs().add(std::move(job));
    QCoreApplication::postEvent(&runner(), new QEvent(QEvent::User));
}

void MainQueue::async(const QObject* owner, Job job) {
    async([owner = QPointer(owner), job = std::move(job)] {
        if (owner)
            job();
    });
}

void MainQueue::after(std::chrono::milliseconds delay, const QObject* owner, Job job) {
    // On the main thread, since a thread without an event loop has no timers.
    const QDeadlineTimer due(delay, Qt::PreciseTimer);
    async(owner, [due, owner, job = std::move(job)] {
        QTimer::singleShot(std::chrono::milliseconds(due.remainingTime()), Qt::PreciseTimer, owner,
                           job);
    });
}

SerialQueue::SerialQueue(const std::string& label)
    : jobs_(base::neverDestroyed<JobQueue>(label, 1, JobQueue::AtEnd::GiveUp)) {}

void SerialQueue::async(Job job) {
    jobs_.async(std::move(job));
}

void GlobalQueue::async(Job job) {
    static JobQueue& jobs = base::neverDestroyed<JobQueue>(
        "global", std::numeric_limits<int>::max(), JobQueue::AtEnd::Await);
    jobs.async(std::move(job));
}

void BackgroundQueue::async(Job job) {
    static JobQueue& jobs = base::neverDestroyed<JobQueue>(
        "background", std::numeric_limits<int>::max(), JobQueue::AtEnd::Ignore);
    jobs.async(std::move(job));
}

int endJobs(int status) {
    if (JobQueue::endAll(std::chrono::milliseconds(500)))
        return status;
    // Not all streams: the one that a job is reading from is locked until its script ends.
    std::fflush(stdout);
    std::fflush(stderr);
    std::_Exit(status);
}
