#include "zip/JobRing.h"

#include <utility>

namespace zip {

JobRing::JobRing(std::size_t slots, std::size_t bytes, JobCutter cutter,
                 std::function<base::Outcome(EncodedJob&)> write)
    : slots_(slots), isDone_(slots), cutter_(cutter), write_(std::move(write)),
      next_(cutter_.next()), bytesAtMost_(bytes) {}

bool JobRing::hasRoom() const {
    const std::size_t underWay = taken_ - written_;
    return underWay == 0 || (underWay < slots_.size() && bytes_ + next_->size <= bytesAtMost_);
}

EncodedJob* JobRing::take() {
    std::unique_lock lock(mutex_);
    roomMade_.wait(lock, [&] { return isStopped_ || !next_ || hasRoom(); });
    if (isStopped_ || !next_)
        return nullptr;
    EncodedJob& encoded = slots_[taken_++ % slots_.size()];
    encoded.job = *next_;
    bytes_ += next_->size;
    next_ = cutter_.next();
    return &encoded;
}

base::Outcome JobRing::finish(const EncodedJob& done) {
    std::unique_lock lock(mutex_);
    isDone_[static_cast<std::size_t>(&done - slots_.data())] = true;
    return isWriting_ ? base::Outcome() : writeReady(lock);
}

base::Outcome JobRing::writeReady(std::unique_lock<std::mutex>& lock) {
    base::Outcome outcome;
    isWriting_ = true;
    while (outcome && !isStopped_ && isDone_[written_ % slots_.size()]) {
        const std::size_t slot = written_ % slots_.size();
        lock.unlock();
        outcome = write_(slots_[slot]);
        // Otherwise each slot would keep the memory of its longest job.
        if (slots_[slot].job.size > shortestPiece)
            slots_[slot].bytes = base::ByteBuffer();
        lock.lock();
        bytes_ -= slots_[slot].job.size;
        isDone_[slot] = false;
        ++written_;
        roomMade_.notify_all();
    }
    isWriting_ = false;
    return outcome;
}

void JobRing::stop() {
    const std::lock_guard lock(mutex_);
    isStopped_ = true;
    roomMade_.notify_all();
}

} // namespace zip
