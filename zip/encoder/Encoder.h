#pragma once

#include "zip/encoder/BlockWriter.h"
#include "zip/encoder/LookUp.h"
#include "zip/encoder/PaddedContent.h"
#include "zip/encoder/Path.h"

#include <vector>

namespace zip {

/// Makes deflate streams (RFC 1951), quicker than general encoders do, of the kind of content that
/// application packages have. Its output depends on the content alone: not on the processor, nor on
/// what it encoded before.
///
/// Chunk by chunk it looks up where the bytes of each position were seen last, finds the cheapest
/// way through them at the prices of the chunks before, and adds the chunk to the block or starts a
/// new one. It is large, so make one of it and keep it; each thread needs its own.
class Encoder {
public:
    explicit Encoder(Effort effort) : lookUp_(effort), sequences_(mostSequences) {}

    /// Room for this many bytes is enough for content of that size.
    [[nodiscard]] static constexpr std::size_t mostBytes(std::size_t contentSize) {
        const std::size_t blocks = contentSize / chunkSize + 1;
        return contentSize + blocks * BlockWriter::mostOverhead(0) +
               BlockWriter::mostOverhead(contentSize) + BlockWriter::mostEmptySize +
               BitWriter::slack;
    }

    /// Writes the content to `to` and returns the size. If it is not the last of its stream, it
    /// ends in whole bytes with an empty stored block, and the next part may follow.
    std::size_t encode(const PaddedContent& content, bool isLast, std::uint8_t* to);

private:
    // Bounds the memory, and what a prefix code has to count.
    static constexpr std::size_t longestBlock = 32 * chunkSize;
    static constexpr std::size_t mostSequences =
        (longestBlock / chunkSize + 1) * Path::mostSequences;

    /// The block's end and how many sequences it has.
    struct Mark {
        std::size_t position = 0;
        std::size_t sequences = 0;
    };

    void start(const PaddedContent& content);
    void closeChunk(BitWriter& out);
    void startBlock(const Histogram& first, std::uint64_t bits);
    void writeBlock(BitWriter& out, Mark end, bool isFinal);

    LookUp lookUp_;
    Prices prices_{usualHistogram()};
    Path path_;
    BlockWriter writer_;

    base::Bytes content_;
    std::size_t blockStart_ = 0;
    /// What is in the block, without the current chunk; then with it.
    Mark blockEnd_;
    Mark reached_;
    std::vector<Sequence> sequences_;
    Histogram block_;
    std::uint64_t blockBits_ = 0;
    Histogram chunk_;
    /// The chunks so far, the newer the more they count.
    Histogram recent_;
};

} // namespace zip
