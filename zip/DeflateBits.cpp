#include "zip/DeflateBits.h"

namespace zip {
namespace {

/// Codes are packed starting with their highest bit, so the lookup sees them mirrored.
std::size_t mirrored(std::size_t code, unsigned length) {
    std::size_t result = 0;
    for (unsigned bit = 0; bit < length; ++bit)
        result |= ((code >> bit) & 1) << (length - 1 - bit);
    return result;
}

} // namespace

bool HuffmanTable::build(std::span<const std::uint8_t> lengths) {
    codesOfLength_.fill(0);
    for (const std::uint8_t length : lengths)
        ++codesOfLength_[length];
    codesOfLength_[0] = 0;

    std::array<std::size_t, longestCode + 2> nextCode{};
    std::array<std::size_t, longestCode + 2> nextPlace{};
    for (unsigned length = 1; length <= longestCode; ++length) {
        if (nextCode[length] + codesOfLength_[length] > std::size_t{1} << length)
            return false;
        nextCode[length + 1] = (nextCode[length] + codesOfLength_[length]) << 1;
        nextPlace[length + 1] = nextPlace[length] + codesOfLength_[length];
    }

    table_.fill({});
    for (std::size_t symbol = 0; symbol < lengths.size(); ++symbol) {
        const std::uint8_t length = lengths[symbol];
        if (length == 0)
            continue;
        const auto value = static_cast<std::uint16_t>(symbol);
        sorted_[nextPlace[length]++] = value;
        const std::size_t code = nextCode[length]++;
        if (length > tableBits)
            continue;
        for (std::size_t index = mirrored(code, length); index < table_.size();
             index += std::size_t{1} << length)
            table_[index] = {value, length};
    }
    return true;
}

HuffmanTable::Symbol HuffmanTable::anyCode(std::uint64_t bits) const {
    // Codes of one length are consecutive numbers, those of the next start at twice the one after.
    std::size_t code = 0;
    std::size_t first = 0;
    std::size_t place = 0;
    for (std::uint8_t length = 1; length <= longestCode; ++length) {
        code = code << 1 | (bits & 1);
        bits >>= 1;
        first <<= 1;
        if (code < first + codesOfLength_[length])
            return {sorted_[place + (code - first)], length};
        first += codesOfLength_[length];
        place += codesOfLength_[length];
    }
    return {};
}

} // namespace zip
