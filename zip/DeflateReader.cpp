#include "zip/DeflateReader.h"

#include <algorithm>
#include <array>
#include <new>

#include <libdeflate.h>

namespace zip {
namespace {

/// An empty final block with fixed codes: makes a whole stream of a piece.
constexpr std::array<std::uint8_t, 2> emptyFinalBlock{0x03, 0x00};

/// A piece that does not shrink is a little longer than its content.
constexpr std::uint64_t longestStream = DeflateReader::longestPiece + 4096;

base::Error malformed(const ArchivedEntry& entry) {
    return {base::ErrorKind::Damaged,
            "The content of " + entry.name +
                " cannot be read back. Check the memory and the disk and pack again."};
}

} // namespace

void DeflateReader::Free::operator()(libdeflate_decompressor* decompressor) const {
    libdeflate_free_decompressor(decompressor);
}

DeflateReader::DeflateReader(std::span<const std::uint64_t> pieceEnds)
    : decompressor_(libdeflate_alloc_decompressor()), pieceEnds_(pieceEnds) {
    if (!decompressor_)
        throw std::bad_alloc();
}

base::Outcome DeflateReader::read(const ArchiveReader& archive, const ArchivedEntry& entry,
                                  std::uint64_t dataOffset,
                                  const std::function<base::Outcome(base::Bytes)>& sink) {
    const std::uint64_t dataEnd = dataOffset + entry.compressedSize;
    std::uint64_t contentLeft = entry.size;
    for (std::uint64_t start = dataOffset; start < dataEnd;) {
        const auto found = std::upper_bound(pieceEnds_.begin(), pieceEnds_.end(), start);
        const std::uint64_t end = found == pieceEnds_.end() ? dataEnd : std::min(*found, dataEnd);
        if (end - start > longestStream)
            return malformed(entry);
        const auto size = static_cast<std::size_t>(end - start);
        stream_.clear();
        if (auto read = archive.read(stream_.tail(size), size, start); !read)
            return read;
        stream_.extend(size);
        if (end != dataEnd)
            stream_.append(emptyFinalBlock);
        if (!decompress() || content_.size() > contentLeft)
            return malformed(entry);
        contentLeft -= content_.size();
        if (auto done = sink(content_.bytes()); !done)
            return done;
        start = end;
    }
    return contentLeft == 0 ? base::Outcome() : malformed(entry);
}

/// Decompresses stream_ to content_; false unless all of it is one stream.
bool DeflateReader::decompress() {
    std::size_t used = 0;
    std::size_t contentSize = 0;
    content_.clear();
    const auto result = libdeflate_deflate_decompress_ex(
        decompressor_.get(), stream_.data(), stream_.size(), content_.tail(longestPiece),
        longestPiece, &used, &contentSize);
    content_.extend(contentSize);
    return result == LIBDEFLATE_SUCCESS && used == stream_.size();
}

} // namespace zip
