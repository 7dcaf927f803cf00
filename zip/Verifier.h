#pragma once

#include "base/FileDescriptor.h"
#include "base/Result.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace zip {

struct VerifyOptions {
    /// At least 1.
    unsigned threads = 1;
    /// The time that the archive has instead of the entries' own, in seconds since 1970.
    std::optional<std::int64_t> fixedTime{};
    /// If set, told the bytes of content that were compared since the last call, by one thread at a
    /// time.
    std::function<void(std::uint64_t bytes)> progress{};
};

/// Reads the archive back and compares it with the folder it was made from: the same entries, no
/// more and no less, with the same types, permissions, times, link targets and bytes, in an archive
/// whose records agree with each other. Shares no code with the writing side but the reading of
/// files.
[[nodiscard]] base::Outcome verify(const std::string& archive, const std::string& package,
                                   const VerifyOptions& options);

/// The same for an archive that is open for reading; `path` is for messages.
[[nodiscard]] base::Outcome verify(base::FileDescriptor archive, const std::string& path,
                                   const std::string& package, const VerifyOptions& options);

} // namespace zip
