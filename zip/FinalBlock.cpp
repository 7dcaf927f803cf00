#include "zip/FinalBlock.h"

#include <array>
#include <new>

// Without it the library takes no constant input.
#define ZLIB_CONST
#include <zlib.h>

namespace zip {
namespace {

// What the library says about where it has stopped, beside the number of bits left of a byte.
constexpr int isInFinalBlock = 64;
constexpr int isAtEndOfBlock = 128;
constexpr int bitsLeft = 7;

class Inflater {
public:
    explicit Inflater(base::Bytes stream) {
        stream_.next_in = stream.data();
        stream_.avail_in = static_cast<uInt>(stream.size());
        // Negative: neither a header nor a check sum stands around the stream.
        if (inflateInit2(&stream_, -MAX_WBITS) != Z_OK)
            throw std::bad_alloc();
    }
    Inflater(const Inflater&) = delete;
    Inflater& operator=(const Inflater&) = delete;
    ~Inflater() { inflateEnd(&stream_); }

    /// Goes on to the end of the current block. False if there is none.
    bool finishBlock() {
        do {
            stream_.next_out = content_.data();
            stream_.avail_out = static_cast<uInt>(content_.size());
            if (inflate(&stream_, Z_BLOCK) != Z_OK)
                return false;
        } while ((stream_.data_type & isAtEndOfBlock) == 0);
        return true;
    }

    [[nodiscard]] bool wasFinal() const { return (stream_.data_type & isInFinalBlock) != 0; }

    /// In bits.
    [[nodiscard]] std::size_t position() const {
        return std::size_t{stream_.total_in} * 8 -
               static_cast<std::size_t>(stream_.data_type & bitsLeft);
    }

private:
    z_stream stream_{};
    std::array<std::uint8_t, std::size_t{64} << 10> content_;
};

} // namespace

std::optional<FinalBlock> findFinalBlock(base::Bytes stream) {
    Inflater inflater(stream);
    std::size_t start = 0;
    while (inflater.finishBlock()) {
        const std::size_t end = inflater.position();
        if (inflater.wasFinal())
            return FinalBlock{.headerBit = start, .endBit = end};
        start = end;
    }
    return std::nullopt;
}

} // namespace zip
