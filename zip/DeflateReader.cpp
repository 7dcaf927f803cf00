#include "zip/DeflateReader.h"

#include <array>
#include <new>

#include <libdeflate.h>

namespace zip {
namespace {

/// An empty final block with fixed codes: makes a whole stream of a piece.
constexpr std::array<std::uint8_t, 2> emptyFinalBlock{0x03, 0x00};

/// A piece that does not shrink is a little longer than its content.
constexpr std::uint64_t longestStream = DeflateReader::longestPiece + 4096;

base::Error malformed(const std::string& name) {
    return {base::ErrorKind::Damaged,
            "The content of " + name +
                " cannot be read back. Check the memory and the disk and pack again."};
}

} // namespace

void DeflateReader::Free::operator()(libdeflate_decompressor* decompressor) const {
    libdeflate_free_decompressor(decompressor);
}

DeflateReader::DeflateReader() : decompressor_(libdeflate_alloc_decompressor()) {
    if (!decompressor_)
        throw std::bad_alloc();
}

base::Result<base::Bytes> DeflateReader::read(ArchiveWindow& archive, const std::string& name,
                                              std::uint64_t start, std::uint64_t end,
                                              std::size_t size, bool isLast) {
    if (end < start || end - start > longestStream || size > longestPiece)
        return malformed(name);
    const auto streamSize = static_cast<std::size_t>(end - start);
    if (isLast && streamSize <= ArchiveWindow::usualSize) {
        auto stream = archive.bytes(start, streamSize);
        return stream ? decompressed(*stream, name, size) : stream;
    }
    stream_.clear();
    if (auto read = archive.archive().read(stream_.tail(streamSize), streamSize, start); !read)
        return read.error();
    stream_.extend(streamSize);
    if (!isLast)
        stream_.append(emptyFinalBlock);
    return decompressed(stream_.bytes(), name, size);
}

base::Result<base::Bytes> DeflateReader::decompressed(base::Bytes stream, const std::string& name,
                                                      std::size_t size) {
    content_.clear();
    std::size_t used = 0;
    const auto result =
        libdeflate_deflate_decompress_ex(decompressor_.get(), stream.data(), stream.size(),
                                         content_.tail(size), size, &used, nullptr);
    if (result != LIBDEFLATE_SUCCESS || used != stream.size())
        return malformed(name);
    content_.extend(size);
    return content_.bytes();
}

} // namespace zip
