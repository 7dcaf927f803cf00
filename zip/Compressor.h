#pragma once

#include "base/Bytes.h"
#include "zip/encoder/Encoder.h"

#include <cstdint>
#include <memory>

struct libdeflate_compressor;

namespace zip {

constexpr int quickestLevel = 1;
constexpr int smallestLevel = 9;

/// Makes deflate streams (RFC 1951). Each thread needs one of its own.
class Compressor {
public:
    /// `level` from quickestLevel to smallestLevel. Throws std::bad_alloc.
    explicit Compressor(int level);

    /// Appends `content` as a whole stream, if that is shorter than the content itself; otherwise
    /// appends nothing and returns false.
    [[nodiscard]] bool deflateWhole(const PaddedContent& content, base::ByteBuffer& to);

    /// Appends the next piece of a stream: whole bytes, so that the pieces in order make one
    /// stream. A piece that does not shrink becomes stored blocks.
    void deflatePiece(const PaddedContent& content, bool isLast, base::ByteBuffer& to);

private:
    struct Free {
        void operator()(libdeflate_compressor* compressor) const;
    };
    // Whole streams are the library's if it is there; pieces are the encoder's if that is there.
    std::unique_ptr<libdeflate_compressor, Free> library_;
    std::unique_ptr<Encoder> encoder_;
};

/// The CRC-32 of two pieces joined, from the CRC-32 of each and the length of the second in bytes.
[[nodiscard]] std::uint32_t crc32OfJoined(std::uint32_t first, std::uint32_t second,
                                          std::uint64_t secondLength);

} // namespace zip
