#pragma once

#include "base/Bytes.h"
#include "base/Result.h"
#include "zip/ArchiveReader.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

struct libdeflate_decompressor;

namespace zip {

/// Decompresses the pieces that deflate streams (RFC 1951) in archives of this packer are made of:
/// whole bytes, and no match that reaches back into the piece before. Each thread needs a reader of
/// its own.
class DeflateReader {
public:
    /// Of content.
    static constexpr std::size_t longestPiece = std::size_t{4} << 20;

    /// Throws std::bad_alloc.
    DeflateReader();

    /// The `size` bytes of content that the archive holds from `start` to `end`; valid until the
    /// next call. `isLast` tells whether the stream ends there. `name` is for messages. Fails on a
    /// malformed piece and on one of another size.
    [[nodiscard]] base::Result<base::Bytes> read(ArchiveWindow& archive, const std::string& name,
                                                 std::uint64_t start, std::uint64_t end,
                                                 std::size_t size, bool isLast);

private:
    [[nodiscard]] base::Result<base::Bytes> decompressed(base::Bytes stream,
                                                         const std::string& name, std::size_t size);

    struct Free {
        void operator()(libdeflate_decompressor* decompressor) const;
    };
    std::unique_ptr<libdeflate_decompressor, Free> decompressor_;
    base::ByteBuffer stream_;
    base::ByteBuffer content_;
};

} // namespace zip
