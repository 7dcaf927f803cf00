#include "app/platform/JobQueue.h"

#include "core/Log.h"

#include <utility>

#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

namespace {

/// A shell command keeps half a megabyte of output on the stack; some systems give threads no more.
constexpr std::size_t stackSize = std::size_t{4} << 20U;

/// What the end of the process has to know of the jobs of all queues.
class Account {
public:
    void handedOver(JobQueue::Service service) {
        const std::lock_guard lock(mutex_);
        if (service == JobQueue::Service::Default)
            ++unfinished_;
    }

    [[nodiscard]] bool begin(JobQueue::Service service) {
        const std::lock_guard lock(mutex_);
        if (closed_ || (ending_ && service == JobQueue::Service::Serial))
            return false;
        if (service == JobQueue::Service::Serial)
            ++unfinished_;
        return true;
    }

    void end(JobQueue::Service service) {
        const std::lock_guard lock(mutex_);
        if (service != JobQueue::Service::Background && --unfinished_ == 0)
            allEnded_.notify_all();
    }

    [[nodiscard]] bool close(std::chrono::milliseconds atMost) {
        std::unique_lock lock(mutex_);
        ending_ = true;
        const bool all = allEnded_.wait_for(lock, atMost, [this] { return unfinished_ == 0; });
        closed_ = true;
        return all;
    }

private:
    std::mutex mutex_;
    std::condition_variable allEnded_;
    std::size_t unfinished_ = 0; // serial and running, or default and handed over
    bool ending_ = false;
    bool closed_ = false;
};

/// Never destroyed: threads may come here while the process ends.
Account& account() {
    static Account& instance = *new Account;
    return instance;
}

void nameThisThread(const std::string& label) {
    const std::string name = label.substr(0, 15); // what Linux takes
#ifdef __APPLE__
    pthread_setname_np(name.c_str());
#else
    pthread_setname_np(pthread_self(), name.c_str());
#endif
}

void lowerThisThread() {
#ifdef __APPLE__
    pthread_set_qos_class_self_np(QOS_CLASS_BACKGROUND, 0);
#else
    setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), 19); // on Linux, this thread alone
#endif
}

[[noreturn]] void sleepUntilTheProcessIsGone() {
    for (;;)
        pause();
}

} // namespace

JobQueue::JobQueue(std::string label, Service service)
    : label_(std::move(label)), service_(service) {}

void JobQueue::async(std::function<void()> job) {
    account().handedOver(service_);
    bool started = true;
    {
        const std::lock_guard lock(mutex_);
        waiting_.push_back(std::move(job));
        const bool threadNeeded =
            service_ == Service::Serial ? threads_ == 0 : idleThreads_ < waiting_.size();
        if (threadNeeded)
            started = startThread();
    }
    arrival_.notify_one();
    if (!started)
        logEvent("queue %@: no thread could be started, a job waits for another one", label_);
}

void JobQueue::close() {
    const std::lock_guard lock(mutex_);
    closed_ = true;
    arrival_.notify_all();
}

bool JobQueue::endAll(std::chrono::milliseconds atMost) {
    return account().close(atMost);
}

bool JobQueue::startThread() {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, stackSize);
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    auto* self = new std::shared_ptr<JobQueue>(shared_from_this());
    pthread_t thread{};
    const bool started = pthread_create(&thread, &attributes, threadMain, self) == 0;
    pthread_attr_destroy(&attributes);
    if (started)
        ++threads_;
    else
        delete self;
    return started;
}

void* JobQueue::threadMain(void* queue) {
    const std::unique_ptr<std::shared_ptr<JobQueue>> self(
        static_cast<std::shared_ptr<JobQueue>*>(queue));
    nameThisThread((*self)->label_);
    if ((*self)->service_ == Service::Background)
        lowerThisThread();
    (*self)->runJobs();
    return nullptr;
}

void JobQueue::runJobs() {
    std::unique_lock lock(mutex_);
    for (;;) {
        ++idleThreads_;
        arrival_.wait(lock, [this] { return closed_ || !waiting_.empty(); });
        --idleThreads_;
        if (waiting_.empty())
            break;
        if (!account().begin(service_)) {
            lock.unlock();
            sleepUntilTheProcessIsGone();
        }
        std::function<void()> job = std::move(waiting_.front());
        waiting_.pop_front();
        lock.unlock();
        job();
        job = nullptr; // what it captured dies before it counts as ended
        account().end(service_);
        lock.lock();
    }
    --threads_;
}
