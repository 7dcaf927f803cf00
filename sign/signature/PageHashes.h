#pragma once

#include "base/Result.h"
#include "sign/crypto/Digest.h"
#include "sign/macho/MachFile.h"

#include <functional>
#include <span>
#include <vector>

namespace sign {

/// Where the hashes of all pages go: as many as there are pages, one behind the other.
struct PageTarget {
    HashType type;
    std::span<std::uint8_t> hashes;
};

/// The pages of one slice. `read` gives its bytes and `seen` (if set) is shown each piece after it
/// was read; both are called by several threads at once.
struct PageJob {
    std::function<base::Outcome(std::uint8_t* to, FileRange range)> read;
    std::function<base::Outcome(base::Bytes piece, std::uint64_t offset)> seen;
    std::uint64_t size = 0;     ///< the last page is hashed as long as it is
    std::uint64_t pageSize = 0; ///< 0: all is one page; else a power of two
    std::vector<PageTarget> targets;
};

/// What one thread takes of a job at once: enough that no two threads write into one small file,
/// and little enough that no thread is busy for long when the others have nothing left.
struct PageRun {
    const PageJob* job;
    std::uint64_t offset;
    std::uint64_t size;
};

/// The runs of all jobs, which have to outlive them.
[[nodiscard]] std::vector<PageRun> runsOf(const std::vector<PageJob>& jobs);

/// Hashes the pages of one run; reads every byte once, whatever the number of targets. Needs 256
/// KiB. Any thread, others of the same job at once.
[[nodiscard]] base::Outcome hashRun(const PageRun& run);

/// Does so for all runs of all jobs on `threads` threads.
[[nodiscard]] base::Outcome hashPages(const std::vector<PageJob>& jobs, unsigned threads);

} // namespace sign
