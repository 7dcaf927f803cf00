#pragma once

#include "zip/PackageTree.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace zip {

/// Files are cut into equal pieces of at most this many bytes. Each piece starts without knowledge
/// of the one before, so shorter ones make the archive larger.
constexpr std::size_t longestPiece = std::size_t{3} << 20;
/// In smaller packages the pieces are shorter, so that the threads finish together: a 32nd of the
/// package, but not less than this, or in one so small that this were most of it, a quarter.
constexpr std::size_t usualPiece = std::size_t{1} << 20;
constexpr std::size_t shortestPiece = std::size_t{256} << 10;

/// A part of the work that one thread does at a time: a run of whole entries, or a piece of a file.
struct Job {
    std::size_t firstEntry = 0;
    std::size_t entryCount = 0;
    /// Bytes of content.
    std::size_t size = 0;
    bool isPiece = false;
    /// Where in the file the piece starts.
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
    std::uint64_t pieceSize_;
    std::size_t entry_ = 0;
    std::uint64_t offset_ = 0;
};

} // namespace zip
