#include "zip/JobCutter.h"

#include <algorithm>

namespace zip {
namespace {

// Large, as each run is one write; shorter towards the end, so that the threads finish together.
constexpr std::size_t longestRunSize = std::size_t{512} << 10;
constexpr std::size_t shortestRunSize = std::size_t{128} << 10;
constexpr std::size_t longestRun = 256;

std::uint64_t pieceSizeFor(std::uint64_t left) {
    return std::clamp<std::uint64_t>(left / 8, shortestPiece, longestPiece);
}

std::size_t runSizeFor(std::uint64_t left) {
    return std::clamp(static_cast<std::size_t>(left / 64), shortestRunSize, longestRunSize);
}

} // namespace

JobCutter::JobCutter(std::span<const Entry> entries)
    : entries_(entries), left_(contentSize(entries)) {}

std::optional<Job> JobCutter::next() {
    if (entry_ == entries_.size())
        return std::nullopt;
    const bool isCut = offset_ > 0 || entries_[entry_].contentSize() > pieceSizeFor(left_);
    const Job job = isCut ? nextPiece() : nextRun();
    left_ -= job.size;
    return job;
}

Job JobCutter::nextRun() {
    Job job{.firstEntry = entry_};
    const std::size_t runSize = runSizeFor(left_);
    while (entry_ < entries_.size() && job.entryCount < longestRun) {
        const auto size = static_cast<std::size_t>(entries_[entry_].contentSize());
        if (job.entryCount > 0 && size > runSize - std::min(job.size, runSize))
            break;
        job.size += size;
        ++job.entryCount;
        ++entry_;
    }
    return job;
}

Job JobCutter::nextPiece() {
    const std::uint64_t rest = entries_[entry_].contentSize() - offset_;
    const std::uint64_t pieceSize = pieceSizeFor(left_);
    const std::uint64_t pieceCount = (rest + pieceSize - 1) / pieceSize;
    const std::uint64_t length = (rest + pieceCount - 1) / pieceCount;
    const Job job{.firstEntry = entry_,
                  .entryCount = 1,
                  .size = static_cast<std::size_t>(length),
                  .isPiece = true,
                  .offset = offset_,
                  .isLastPiece = length == rest};
    offset_ = job.isLastPiece ? 0 : offset_ + length;
    entry_ += job.isLastPiece ? 1 : 0;
    return job;
}

} // namespace zip
