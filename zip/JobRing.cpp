#include "zip/JobRing.h"

#include <utility>

namespace zip {

JobRing::JobRing(std::size_t slots, JobCutter cutter, std::function<Outcome(EncodedJob&)> write)
    : slots_(slots), isDone_(slots), cutter_(cutter), write_(std::move(write)) {}

EncodedJob* JobRing::take() {
    std::unique_lock lock(mutex_);
    slotFreed_.wait(lock, [&] { return isStopped_ || taken_ < written_ + slots_.size(); });
    const auto job = isStopped_ ? std::nullopt : cutter_.next();
    if (!job)
        return nullptr;
    EncodedJob& encoded = slots_[taken_++ % slots_.size()];
    encoded.job = *job;
    return &encoded;
}

Outcome JobRing::finish(const EncodedJob& done) {
    std::unique_lock lock(mutex_);
    isDone_[static_cast<std::size_t>(&done - slots_.data())] = true;
    return isWriting_ ? Outcome() : writeReady(lock);
}

Outcome JobRing::writeReady(std::unique_lock<std::mutex>& lock) {
    Outcome outcome;
    isWriting_ = true;
    while (outcome && !isStopped_ && isDone_[written_ % slots_.size()]) {
        const std::size_t slot = written_ % slots_.size();
        lock.unlock();
        outcome = write_(slots_[slot]);
        lock.lock();
        isDone_[slot] = false;
        ++written_;
        slotFreed_.notify_all();
    }
    isWriting_ = false;
    return outcome;
}

void JobRing::stop() {
    const std::lock_guard lock(mutex_);
    isStopped_ = true;
    slotFreed_.notify_all();
}

} // namespace zip
