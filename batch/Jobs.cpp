#include "batch/Jobs.h"

#include <algorithm>
#include <fstream>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <pthread.h>
#include <unistd.h>

namespace {

/// More than a server should be asked for at once by one machine.
constexpr unsigned jobsThatWait = 16;

/// That a packer and a signer take at most for an application of ordinary size.
constexpr std::uint64_t memoryOfJob = 96U << 20U;

/// A thread with a stack of its own size, which std::thread cannot have.
class JobThread {
public:
    /// Null if the system has no room for it.
    static std::unique_ptr<JobThread> start(std::function<void()> work) {
        constexpr std::size_t stackSize = 4U << 20U;
        std::unique_ptr<JobThread> thread(new JobThread(std::move(work)));
        pthread_attr_t attributes;
        if (pthread_attr_init(&attributes) != 0)
            return nullptr;
        pthread_attr_setstacksize(&attributes, stackSize);
        const auto run = [](void* argument) -> void* {
            static_cast<JobThread*>(argument)->work_();
            return nullptr;
        };
        thread->started_ = pthread_create(&thread->thread_, &attributes, run, thread.get()) == 0;
        pthread_attr_destroy(&attributes);
        return thread->started_ ? std::move(thread) : nullptr;
    }
    ~JobThread() {
        if (started_)
            pthread_join(thread_, nullptr);
    }
    JobThread(const JobThread&) = delete;
    JobThread& operator=(const JobThread&) = delete;

private:
    explicit JobThread(std::function<void()> work) : work_(std::move(work)) {}

    std::function<void()> work_;
    pthread_t thread_{};
    bool started_ = false;
};

/// The number on the line of /proc/meminfo, in bytes.
std::optional<std::uint64_t> availableMemory() {
    std::ifstream lines("/proc/meminfo");
    std::string name;
    std::uint64_t kilobytes = 0;
    for (std::string rest; lines >> name >> kilobytes && std::getline(lines, rest);) {
        if (name == "MemAvailable:")
            return kilobytes << 10U;
    }
    return std::nullopt;
}

/// What a container may still take; none if nothing limits it.
std::optional<std::uint64_t> memoryOfContainer() {
    std::uint64_t limit = 0;
    std::uint64_t used = 0;
    if (!(std::ifstream("/sys/fs/cgroup/memory.max") >> limit) ||
        !(std::ifstream("/sys/fs/cgroup/memory.current") >> used))
        return std::nullopt;
    return limit - std::min(limit, used);
}

} // namespace

Machine Machine::ofThisProcess() {
    Machine machine{.processors = std::max(1U, std::thread::hardware_concurrency()),
                    .freeMemory = availableMemory()};
    if (const auto container = memoryOfContainer())
        machine.freeMemory = std::min(machine.freeMemory.value_or(*container), *container);
    return machine;
}

unsigned jobsThatPayOff(const Machine& machine, bool waitForTimeStamps) {
    const unsigned wanted =
        waitForTimeStamps ? std::max(machine.processors, jobsThatWait) : machine.processors;
    if (!machine.freeMemory)
        return wanted;
    const std::uint64_t fitting = std::max<std::uint64_t>(1, *machine.freeMemory / memoryOfJob);
    return static_cast<unsigned>(std::min<std::uint64_t>(wanted, fitting));
}

std::size_t runJobs(unsigned jobs, std::size_t count, const std::function<bool()>& goesOn,
                    const std::function<void(std::size_t number, unsigned slot)>& job) {
    std::mutex mutex;
    std::size_t next = 0;
    const auto work = [&](unsigned slot) {
        for (;;) {
            std::unique_lock lock(mutex);
            if (next == count || !goesOn())
                return;
            const std::size_t number = next++;
            lock.unlock();
            job(number, slot);
        }
    };
    std::vector<std::unique_ptr<JobThread>> others;
    const auto wanted = static_cast<unsigned>(std::min<std::size_t>(jobs, count));
    for (unsigned slot = 1; slot < wanted; ++slot) {
        auto thread = JobThread::start([&work, slot] { work(slot); });
        if (!thread)
            break;
        others.push_back(std::move(thread));
    }
    work(0);
    others.clear(); // waits
    return next;
}

bool runWithEnoughStack(std::function<void()> work) {
    return JobThread::start(std::move(work)) != nullptr;
}
