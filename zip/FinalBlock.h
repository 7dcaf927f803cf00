#pragma once

#include "base/Bytes.h"

#include <cstddef>
#include <optional>

namespace zip {

/// Positions in a deflate stream (RFC 1951), in bits from its start, lowest bit of a byte first.
struct FinalBlock {
    /// The first bit of the final block's header, the one that makes it final.
    std::size_t headerBit = 0;
    /// The bit after the last one of the stream.
    std::size_t endBit = 0;
};

/// Finds the final block by decompressing the stream, which is less than 4 GiB long. Absent if the
/// stream is malformed or ends early. Throws std::bad_alloc. Any thread may call it.
[[nodiscard]] std::optional<FinalBlock> findFinalBlock(base::Bytes stream);

} // namespace zip
