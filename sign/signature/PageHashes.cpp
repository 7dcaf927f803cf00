#include "sign/signature/PageHashes.h"

#include "base/WorkerThreads.h"

#include <algorithm>

namespace sign {
namespace {

/// It stays in the processor's cache while it is hashed.
constexpr std::uint64_t pieceSize = 256U << 10U;
constexpr std::uint64_t runSize = 4U << 20U;

/// A page may be larger than what is read at once, so each hash takes what comes of its page.
class PageHasher {
public:
    PageHasher(const PageJob& job, std::uint64_t firstPage) : job_(job) {
        for (const PageTarget& target : job.targets) {
            hashers_.emplace_back(target.type);
            to_.push_back(target.hashes.data() + firstPage * digestSize(target.type));
        }
    }

    void update(base::Bytes bytes) {
        while (!bytes.empty()) {
            const std::uint64_t left = job_.pageSize == 0 ? bytes.size() : job_.pageSize - inPage_;
            const base::Bytes part = bytes.first(std::min<std::uint64_t>(left, bytes.size()));
            for (Hasher& hasher : hashers_)
                hasher.update(part);
            inPage_ += part.size();
            bytes = bytes.subspan(part.size());
            if (inPage_ == job_.pageSize)
                finishPage();
        }
    }

    /// The last page may be shorter than the others.
    void finish() {
        if (inPage_ != 0)
            finishPage();
    }

private:
    void finishPage() {
        for (std::size_t index = 0; index < hashers_.size(); ++index)
            to_[index] = std::ranges::copy(hashers_[index].finish().bytes(), to_[index]).out;
        inPage_ = 0;
    }

    const PageJob& job_;
    std::vector<Hasher> hashers_;
    std::vector<std::uint8_t*> to_;
    std::uint64_t inPage_ = 0;
};

} // namespace

std::vector<PageRun> runsOf(const std::vector<PageJob>& jobs) {
    std::vector<PageRun> runs;
    for (const PageJob& job : jobs) {
        const std::uint64_t step = job.pageSize == 0 ? job.size : std::max(runSize, job.pageSize);
        for (std::uint64_t offset = 0; offset < job.size; offset += step)
            runs.push_back({&job, offset, std::min(step, job.size - offset)});
    }
    return runs;
}

base::Outcome hashRun(const PageRun& run) {
    const PageJob& job = *run.job;
    base::OwnedBytes buffer(std::min(pieceSize, run.size));
    PageHasher hasher(job, job.pageSize == 0 ? 0 : run.offset / job.pageSize);
    const std::uint64_t end = run.offset + run.size;
    for (std::uint64_t at = run.offset; at < end; at += buffer.size()) {
        const base::Bytes bytes(buffer.data(), std::min<std::uint64_t>(buffer.size(), end - at));
        if (auto read = job.read(buffer.data(), {at, bytes.size()}); !read)
            return read;
        if (auto seen = job.seen ? job.seen(bytes, at) : base::Outcome(); !seen)
            return seen;
        hasher.update(bytes);
    }
    hasher.finish();
    return {};
}

base::Outcome hashPages(const std::vector<PageJob>& jobs, unsigned threads) {
    const std::vector<PageRun> runs = runsOf(jobs);
    return base::forEach(runs.size(), threads, [&](std::size_t at) { return hashRun(runs[at]); });
}

} // namespace sign
