#include "sign/signature/PageHashes.h"

#include "base/WorkerThreads.h"

#include <algorithm>
#include <atomic>
#include <map>

namespace sign {
namespace {

/// What one thread takes at once: it stays in the processor's cache while it is hashed.
constexpr std::uint64_t pieceSize = 256U << 10U;

class PageHasher {
public:
    PageHasher() : buffer_(pieceSize) {}

    base::Outcome hashPiece(const PageJob& job, std::uint64_t piece) {
        const std::uint64_t step = stepOf(job);
        const std::uint64_t offset = piece * step;
        buffer_.resize(std::max(buffer_.size(), step));
        const base::Bytes bytes(buffer_.data(), std::min(step, job.size - offset));
        if (auto done = take(job, bytes, offset); !done)
            return done;
        for (const PageTarget& target : job.targets) {
            Hasher& hasher = hasherOf(target.type);
            std::uint8_t* to = &target.hashes[offset / job.pageSize * digestSize(target.type)];
            for (std::size_t at = 0; at < bytes.size(); at += job.pageSize) {
                hasher.update(bytes.subspan(at, std::min(job.pageSize, bytes.size() - at)));
                to = std::ranges::copy(hasher.finish().bytes(), to).out;
            }
        }
        return {};
    }

    base::Outcome hashWhole(const PageJob& job) {
        std::vector<Hasher> hashers;
        for (const PageTarget& target : job.targets)
            hashers.emplace_back(target.type);
        for (std::uint64_t offset = 0; offset < job.size; offset += pieceSize) {
            const base::Bytes bytes(buffer_.data(), std::min(pieceSize, job.size - offset));
            if (auto done = take(job, bytes, offset); !done)
                return done;
            for (Hasher& hasher : hashers)
                hasher.update(bytes);
        }
        for (std::size_t index = 0; index < hashers.size(); ++index)
            std::ranges::copy(hashers[index].finish().bytes(), job.targets[index].hashes.begin());
        return {};
    }

    static std::uint64_t stepOf(const PageJob& job) { return std::max(pieceSize, job.pageSize); }

private:
    base::Outcome take(const PageJob& job, base::Bytes bytes, std::uint64_t offset) {
        if (auto read = job.read(buffer_.data(), {offset, bytes.size()}); !read)
            return read;
        return job.seen ? job.seen(bytes, offset) : base::Outcome();
    }

    Hasher& hasherOf(HashType type) { return hashers_.try_emplace(type, type).first->second; }

    std::vector<std::uint8_t> buffer_;
    std::map<HashType, Hasher> hashers_;
};

std::uint64_t piecesOf(const PageJob& job) {
    if (job.size == 0)
        return 0;
    if (job.pageSize == 0)
        return 1;
    return (job.size - 1) / PageHasher::stepOf(job) + 1;
}

} // namespace

base::Outcome hashPages(const std::vector<PageJob>& jobs, unsigned threads) {
    std::vector<std::uint64_t> ends;
    std::uint64_t total = 0;
    for (const PageJob& job : jobs)
        ends.push_back(total += piecesOf(job));
    std::atomic<std::uint64_t> next = 0;
    const auto work = [&]() -> base::Outcome {
        PageHasher hasher;
        for (std::uint64_t piece = next++; piece < total; piece = next++) {
            const auto at = std::size_t(std::ranges::upper_bound(ends, piece) - ends.begin());
            const PageJob& job = jobs[at];
            const std::uint64_t first = ends[at] - piecesOf(job);
            if (auto done = job.pageSize == 0 ? hasher.hashWhole(job)
                                              : hasher.hashPiece(job, piece - first);
                !done)
                return done;
        }
        return {};
    };
    const auto useful = unsigned(std::clamp<std::uint64_t>(total, 1, threads));
    return base::runOnThreads(useful, work, [&next, total] { next = total; });
}

} // namespace sign
