#include "zip/DeflateReader.h"

#include <algorithm>
#include <array>
#include <new>
#include <string_view>

#include <libdeflate.h>

namespace zip {
namespace {

/// What an empty stored block ends in. The same bytes may also stand inside of a piece.
constexpr std::string_view pieceEnd("\x00\x00\xFF\xFF", 4);

/// An empty final block with fixed codes: makes a whole stream of a piece.
constexpr std::array<std::uint8_t, 2> emptyFinalBlock{0x03, 0x00};

/// A piece that does not shrink is a little longer than its content.
constexpr std::size_t windowSize = DeflateReader::longestPiece + 4096;

} // namespace

void DeflateReader::Free::operator()(libdeflate_decompressor* decompressor) const {
    libdeflate_free_decompressor(decompressor);
}

DeflateReader::DeflateReader() : decompressor_(libdeflate_alloc_decompressor()) {
    if (!decompressor_)
        throw std::bad_alloc();
}

base::Outcome DeflateReader::read(const ArchiveReader& archive, const ArchivedEntry& entry,
                                  std::uint64_t dataOffset,
                                  const std::function<base::Outcome(base::Bytes)>& sink) {
    std::uint64_t unread = entry.compressedSize;
    std::uint64_t contentLeft = entry.size;
    stream_.clear();
    do {
        const auto size =
            static_cast<std::size_t>(std::min<std::uint64_t>(unread, windowSize - stream_.size()));
        if (auto done = archive.read(stream_.tail(size + emptyFinalBlock.size()), size,
                                     dataOffset + entry.compressedSize - unread);
            !done)
            return done;
        stream_.extend(size);
        unread -= size;
        streamIsComplete_ = unread == 0;

        const bool isOnePiece = entry.size <= longestPiece;
        const std::size_t used = isOnePiece ? decompressRest() : decompressPiece();
        if (used == 0 || content_.size() > contentLeft)
            return base::Error{
                base::ErrorKind::Damaged,
                "The content of " + entry.name +
                    " cannot be read back. Check the memory and the disk and pack again."};
        contentLeft -= content_.size();
        if (auto done = sink(content_.bytes()); !done)
            return done;
        stream_.drop(used);
    } while (unread != 0 || stream_.size() != 0);
    if (contentLeft != 0)
        return base::Error{base::ErrorKind::Damaged,
                           "The content of " + entry.name +
                               " is cut short in the archive. Check the disk and pack again."};
    return {};
}

/// Decompresses the stream's next piece to content_; returns its length in the stream, 0 if it is
/// malformed.
std::size_t DeflateReader::decompressPiece() {
    const std::string_view stream(reinterpret_cast<const char*>(stream_.data()), stream_.size());
    for (std::size_t found = stream.find(pieceEnd); found != std::string_view::npos;
         found = stream.find(pieceEnd, found + 1)) {
        const std::size_t size = found + pieceEnd.size();
        if (size == stream.size())
            break;
        std::uint8_t* const behind = stream_.data() + size;
        std::array<std::uint8_t, emptyFinalBlock.size()> covered{};
        std::copy_n(behind, covered.size(), covered.begin());
        std::copy_n(emptyFinalBlock.begin(), covered.size(), behind);
        const bool isPiece = decompress(size + emptyFinalBlock.size());
        std::copy_n(covered.begin(), covered.size(), behind);
        if (isPiece)
            return size;
    }
    return decompressRest();
}

/// The same for the last piece.
std::size_t DeflateReader::decompressRest() {
    return streamIsComplete_ && decompress(stream_.size()) ? stream_.size() : 0;
}

bool DeflateReader::decompress(std::size_t size) {
    std::size_t used = 0;
    std::size_t contentSize = 0;
    content_.clear();
    const auto result = libdeflate_deflate_decompress_ex(decompressor_.get(), stream_.data(), size,
                                                         content_.tail(longestPiece), longestPiece,
                                                         &used, &contentSize);
    content_.extend(contentSize);
    return result == LIBDEFLATE_SUCCESS && used == size;
}

} // namespace zip
