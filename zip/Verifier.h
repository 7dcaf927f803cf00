#pragma once

#include "base/Result.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>

namespace zip {

struct VerifyOptions {
    /// At least 1.
    unsigned threads = 1;
    /// The time that the archive has instead of the entries' own, in seconds since 1970.
    std::optional<std::int64_t> fixedTime{};
    /// Where the pieces of its long files end, as ArchiveWriter tells it.
    std::span<const std::uint64_t> pieceEnds{};
    /// If set, told the bytes of content that were compared since the last call, by one thread at a
    /// time.
    std::function<void(std::uint64_t bytes)> progress{};
};

/// Reads the archive back and compares it with the folder it was made from: the same entries, no
/// more and no less, with the same types, permissions, times, link targets and bytes, in an archive
/// whose records agree with each other. Shares with the writing side only the reading of the folder
/// and the conversion of times. `archive` is open for reading; `path` is for messages.
[[nodiscard]] base::Outcome verify(int archive, const std::string& path, const std::string& package,
                                   const VerifyOptions& options);

} // namespace zip
