#include "zip/encoder/Encoder.h"

#include <algorithm>
#include <cstring>

namespace zip {
namespace {

/// Whether each byte is equal to the one before it, as in the holes of a sparse file.
bool isRun(base::Bytes content, std::size_t from, std::size_t to) {
    return from > 0 &&
           std::memcmp(content.data() + from - 1, content.data() + from, to - from) == 0;
}

} // namespace

std::size_t Encoder::encode(const PaddedContent& content, bool isLast, std::uint8_t* to) {
    start(content);
    BitWriter out(to);
    const Prices* prices = &usualPrices();
    for (std::size_t searched = 0; reached_.position < content_.size();) {
        const std::size_t from = searched;
        searched = std::min(content_.size(), from + chunkSize);
        if (isRun(content_, from, searched)) {
            path_.findRun(content_, from, searched);
        } else {
            lookUp_.find(content_.data(), from, searched, path_.candidates());
            path_.find(content_, from, searched, *prices);
        }
        Sequence* next = sequences_.data() + reached_.sequences;
        reached_.position = path_.follow(reached_.position, chunk_, next);
        reached_.sequences = static_cast<std::size_t>(next - sequences_.data());
        closeChunk(out);
        prices = &prices_;
    }
    if (!content_.empty())
        writeBlock(out, reached_, isLast);
    if (!isLast || content_.empty())
        BlockWriter::writeStored(out, {}, isLast);
    out.align();
    return out.size();
}

void Encoder::start(const PaddedContent& content) {
    content_ = content.bytes();
    lookUp_.start(content_.size() <= chunkSize);
    blockStart_ = 0;
    blockEnd_ = reached_ = {};
    chunk_ = block_ = {};
    recent_ = usualHistogram();
}

/// Adds the chunk to the block, or makes a new block of it if that is shorter.
void Encoder::closeChunk(BitWriter& out) {
    const std::uint64_t chunkBits = estimatedBits(chunk_);
    if (blockEnd_.position == blockStart_) {
        startBlock(chunk_, chunkBits);
    } else {
        Histogram merged = block_;
        merged.add(chunk_);
        const std::uint64_t mergedBits = estimatedBits(merged);
        if (mergedBits > blockBits_ + chunkBits ||
            blockEnd_.position - blockStart_ > longestBlock - 2 * chunkSize) {
            writeBlock(out, blockEnd_, false);
            startBlock(chunk_, chunkBits);
        } else {
            startBlock(merged, mergedBits);
        }
    }
    blockEnd_ = reached_;
    if (reached_.position == content_.size())
        return;
    recent_.halve();
    recent_.add(chunk_);
    prices_.set(recent_);
    chunk_ = {};
}

void Encoder::startBlock(const Histogram& first, std::uint64_t bits) {
    block_ = first;
    blockBits_ = bits;
}

void Encoder::writeBlock(BitWriter& out, Mark end, bool isFinal) {
    Block block{.content = content_.subspan(blockStart_, end.position - blockStart_),
                .sequences = std::span(sequences_).first(end.sequences),
                .histogram = block_,
                .isFinal = isFinal};
    block.histogram.content[endSymbol] = 1;
    writer_.write(out, block);
    std::copy(sequences_.begin() + static_cast<std::ptrdiff_t>(end.sequences),
              sequences_.begin() + static_cast<std::ptrdiff_t>(reached_.sequences),
              sequences_.begin());
    reached_.sequences -= end.sequences;
    blockStart_ = end.position;
}

} // namespace zip
