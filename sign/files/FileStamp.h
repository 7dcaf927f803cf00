#pragma once

#include "base/Result.h"

#include <cstdint>
#include <string>
#include <string_view>

#include <sys/stat.h>

namespace sign {

/// By which it shows that a file was written or replaced, be its size and time of change put back.
struct FileStamp {
    std::uint64_t size = 0;
    std::int64_t modified = 0; ///< nanoseconds since 1970, as the next one
    std::int64_t changed = 0;  ///< which no program can set
    std::uint64_t inode = 0;

    [[nodiscard]] static FileStamp of(const struct stat& status);
    bool operator==(const FileStamp&) const = default;
};

/// The error for a file whose stamp or size is another one after it was read.
[[nodiscard]] base::Error changedWhileRead(const std::string& path);
/// The error that a file "changed", "was added" or "went away" while work on its package went on.
[[nodiscard]] base::Error changedMeanwhile(const std::string& path, std::string_view what);

} // namespace sign
