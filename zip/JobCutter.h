#pragma once

#include "zip/PackageTree.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace zip {

/// Files are cut into pieces of at most this many bytes. Each piece starts without knowledge of the
/// one before, so shorter ones make the archive larger.
constexpr std::size_t longestPiece = std::size_t{4} << 20;
/// Towards the end of the package pieces become shorter, down to this, so that the threads finish
/// together.
constexpr std::size_t shortestPiece = std::size_t{256} << 10;

/// A part of the work that one thread does at a time: a run of whole entries, or a piece of a file.
struct Job {
    std::size_t firstEntry = 0;
    std::size_t entryCount = 0;
    /// Bytes of content.
    std::size_t size = 0;
    bool isPiece = false;
    /// The offset in the file at which the piece starts.
    std::uint64_t offset = 0;
    bool isLastPiece = false;

    [[nodiscard]] bool isFirstPiece() const { return isPiece && offset == 0; }
};

/// Cuts the entries into jobs, in archive order.
class JobCutter {
public:
    /// The entries must outlive the cutter.
    explicit JobCutter(std::span<const Entry> entries);

    /// Absent when all is given out.
    [[nodiscard]] std::optional<Job> next();

private:
    Job nextRun();
    Job nextPiece();

    std::span<const Entry> entries_;
    /// Bytes of content that are not given out yet.
    std::uint64_t left_;
    std::size_t entry_ = 0;
    std::uint64_t offset_ = 0;
};

} // namespace zip
