#include "zip/JobCutter.h"

#include <algorithm>

namespace zip {
namespace {

// Small enough that the threads finish together even on a small package.
constexpr std::size_t runSize = std::size_t{128} << 10;
constexpr std::size_t longestRun = 256;

std::uint64_t pieceSizeFor(std::uint64_t packageSize) {
    const auto least = std::clamp<std::uint64_t>(packageSize / 4, shortestPiece, usualPiece);
    return std::clamp<std::uint64_t>(packageSize / 32, least, longestPiece);
}

} // namespace

JobCutter::JobCutter(std::span<const Entry> entries)
    : entries_(entries), pieceSize_(pieceSizeFor(contentSize(entries))) {}

std::optional<Job> JobCutter::next() {
    if (entry_ == entries_.size())
        return std::nullopt;
    return entries_[entry_].contentSize() > pieceSize_ ? nextPiece() : nextRun();
}

Job JobCutter::nextRun() {
    Job job{.firstEntry = entry_};
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
    const std::uint64_t size = entries_[entry_].contentSize();
    const std::uint64_t pieceCount = (size + pieceSize_ - 1) / pieceSize_;
    const std::uint64_t left = size - offset_;
    const std::uint64_t length = std::min(left, (size + pieceCount - 1) / pieceCount);
    const Job job{.firstEntry = entry_,
                  .entryCount = 1,
                  .size = static_cast<std::size_t>(length),
                  .isPiece = true,
                  .offset = offset_,
                  .isLastPiece = length == left};
    offset_ = job.isLastPiece ? 0 : offset_ + length;
    entry_ += job.isLastPiece ? 1 : 0;
    return job;
}

} // namespace zip
