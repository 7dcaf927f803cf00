#pragma once

#include "base/Bytes.h"
#include "zip/ArchiveReader.h"

#include <functional>
#include <memory>

struct libdeflate_decompressor;

namespace zip {

/// Decompresses deflate streams (RFC 1951) of any length in bounded memory, provided that they are
/// made of pieces: after at most `longestPiece` bytes of content an empty stored block, and no
/// match that reaches back over it. Each thread needs one of its own.
class DeflateReader {
public:
    static constexpr std::size_t longestPiece = std::size_t{4} << 20;

    /// Throws std::bad_alloc.
    DeflateReader();

    /// Hands the entry's content to `sink`, in order. `dataOffset` is where its data starts. Fails
    /// with the sink, or on a stream that is malformed or not as long as the entry says.
    [[nodiscard]] base::Outcome read(const ArchiveReader& archive, const ArchivedEntry& entry,
                                     std::uint64_t dataOffset,
                                     const std::function<base::Outcome(base::Bytes)>& sink);

private:
    [[nodiscard]] std::size_t decompressPiece();
    [[nodiscard]] std::size_t decompressRest();
    [[nodiscard]] bool decompress(std::size_t size);

    struct Free {
        void operator()(libdeflate_decompressor* decompressor) const;
    };
    std::unique_ptr<libdeflate_decompressor, Free> decompressor_;
    /// What was read of the stream, from the current piece on.
    base::ByteBuffer stream_;
    base::ByteBuffer content_;
    bool streamIsComplete_ = false;
};

} // namespace zip
