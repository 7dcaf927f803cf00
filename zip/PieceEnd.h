#pragma once

#include <cstdint>

namespace zip {

/// Where a piece of a deflated file ends and the next one starts.
struct PieceEnd {
    /// In the archive.
    std::uint64_t position = 0;
    /// In the file.
    std::uint64_t offset = 0;
};

} // namespace zip
