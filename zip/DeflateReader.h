#pragma once

#include "base/Bytes.h"
#include "base/Result.h"
#include "zip/ArchiveReader.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>

struct libdeflate_decompressor;

namespace zip {

/// Decompresses deflate streams (RFC 1951) in bounded memory. A stream is made of pieces of whole
/// bytes, each with at most `longestPiece` bytes of content and no match that reaches back into the
/// piece before. Each thread needs a reader of its own.
class DeflateReader {
public:
    static constexpr std::size_t longestPiece = std::size_t{4} << 20;

    /// `pieceEnds` is what ArchiveWriter::pieceEnds() gives; it must outlive the reader. Throws
    /// std::bad_alloc.
    explicit DeflateReader(std::span<const std::uint64_t> pieceEnds);

    /// Hands the entry's content to `sink`, in order. Its data starts at `dataOffset`. Fails if the
    /// sink does, and on a stream that is malformed or not as long as the entry says.
    [[nodiscard]] base::Outcome read(const ArchiveReader& archive, const ArchivedEntry& entry,
                                     std::uint64_t dataOffset,
                                     const std::function<base::Outcome(base::Bytes)>& sink);

private:
    [[nodiscard]] bool decompress();

    struct Free {
        void operator()(libdeflate_decompressor* decompressor) const;
    };
    std::unique_ptr<libdeflate_decompressor, Free> decompressor_;
    std::span<const std::uint64_t> pieceEnds_;
    base::ByteBuffer stream_;
    base::ByteBuffer content_;
};

} // namespace zip
