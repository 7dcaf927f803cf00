#pragma once

#include "base/Result.h"
#include "zip/PieceEnd.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>

namespace zip {

struct PackageTree;

struct VerifyOptions {
    /// At least 1.
    unsigned threads = 1;
    /// The time that the archive has instead of the entries' own, in seconds since 1970.
    std::optional<std::int64_t> fixedTime{};
    /// What ArchiveWriter::pieceEnds() gives.
    std::span<const PieceEnd> pieceEnds{};
    /// If set, the listing that the archive was made from. No file is then asked for its state
    /// twice: once it is read it has to be in the state that was listed.
    const PackageTree* listed = nullptr;
    /// If set, called with the bytes of content that were compared since its last call, by one
    /// thread at a time.
    std::function<void(std::uint64_t bytes)> progress{};
};

/// Reads the archive back and compares it with the folder it was made from. Fails unless both have
/// the same entries with the same types, permissions, times, link targets and bytes, and all
/// records of the archive agree. Shares with the writing side only the reading of the folder and
/// the conversion of times. `archive` is open for reading; `path` is for messages.
[[nodiscard]] base::Outcome verify(int archive, const std::string& path, const std::string& package,
                                   const VerifyOptions& options);

} // namespace zip
