#include "zip/Compressor.h"

#include "zip/BlockWalker.h"

#include <algorithm>
#include <array>
#include <new>
#include <optional>

#include <libdeflate.h>

namespace zip {
namespace {

/// The library's levels for ours: it has twelve.
constexpr std::array<int, smallestLevel + 1> libraryLevel{0, 1, 2, 3, 4, 5, 6, 8, 9, 10};

/// An empty stored block needs three bits of header and four bytes that start on a byte.
constexpr std::size_t joinSize = 5;

/// The last block is an empty one, which ends every piece.
void appendStoredBlocks(base::Bytes content, bool isLast, base::ByteBuffer& to) {
    constexpr std::size_t longestBlock = 0xFFFF;
    bool isEmpty = false;
    while (!isEmpty) {
        const base::Bytes block = content.first(std::min(content.size(), longestBlock));
        content = content.subspan(block.size());
        isEmpty = block.empty();
        const auto low = static_cast<std::uint8_t>(block.size());
        const auto high = static_cast<std::uint8_t>(block.size() >> 8);
        const std::uint8_t isFinal = isLast && isEmpty ? 1 : 0;
        to.append(std::array<std::uint8_t, joinSize>{
            isFinal, low, high, static_cast<std::uint8_t>(~low), static_cast<std::uint8_t>(~high)});
        to.append(block);
    }
}

/// Makes the stream at `data` one that goes on: its final block becomes an ordinary one and an
/// empty stored block fills its last byte. Returns the new size, or none if it is malformed.
std::optional<std::size_t> openEnd(std::uint8_t* data, std::size_t size) {
    const auto last = findFinalBlock({data, size});
    if (!last)
        return std::nullopt;
    data[last->headerBit / 8] &= static_cast<std::uint8_t>(~(1U << (last->headerBit % 8)));
    const std::size_t usedBytes = last->endBit / 8;
    const std::size_t headerBytes = (last->endBit + 3 + 7) / 8;
    data[usedBytes] &= static_cast<std::uint8_t>((1U << (last->endBit % 8)) - 1);
    std::fill(data + usedBytes + 1, data + headerBytes, std::uint8_t{0});
    constexpr std::array<std::uint8_t, 4> lengthZero{0x00, 0x00, 0xFF, 0xFF};
    std::copy(lengthZero.begin(), lengthZero.end(), data + headerBytes);
    return headerBytes + lengthZero.size();
}

// Polynomials over GF(2) modulo the one of CRC-32, coefficients mirrored: the top bit is x^0.
constexpr std::uint32_t one = 0x80000000;
constexpr std::uint32_t xToThe8th = 0x00800000;
constexpr std::uint32_t modulus = 0xEDB88320;

std::uint32_t multiply(std::uint32_t a, std::uint32_t b) {
    std::uint32_t product = 0;
    for (std::uint32_t bit = one; bit != 0; bit >>= 1) {
        if ((a & bit) != 0)
            product ^= b;
        b = (b >> 1) ^ ((b & 1) != 0 ? modulus : 0);
    }
    return product;
}

} // namespace

void Compressor::Free::operator()(libdeflate_compressor* compressor) const {
    libdeflate_free_compressor(compressor);
}

Compressor::Compressor(int level)
    : compressor_(libdeflate_alloc_compressor(libraryLevel.at(static_cast<std::size_t>(level)))) {
    if (!compressor_)
        throw std::bad_alloc();
}

bool Compressor::deflateWhole(base::Bytes content, base::ByteBuffer& to) {
    if (content.empty())
        return false;
    const std::size_t room = content.size() - 1;
    const std::size_t size = libdeflate_deflate_compress(compressor_.get(), content.data(),
                                                         content.size(), to.tail(room), room);
    to.extend(size);
    return size != 0;
}

void Compressor::deflatePiece(base::Bytes content, bool isLast, base::ByteBuffer& to) {
    const std::size_t room = content.size();
    std::uint8_t* tail = to.tail(room + joinSize);
    const std::size_t size =
        libdeflate_deflate_compress(compressor_.get(), content.data(), content.size(), tail, room);
    if (size != 0 && isLast) {
        to.extend(size);
    } else if (const auto opened = size == 0 ? std::nullopt : openEnd(tail, size)) {
        to.extend(*opened);
    } else {
        appendStoredBlocks(content, isLast, to);
    }
}

std::uint32_t crc32OfJoined(std::uint32_t first, std::uint32_t second, std::uint64_t secondLength) {
    // Each byte that follows multiplies what came before by x^8.
    std::uint32_t shift = one;
    for (std::uint32_t square = xToThe8th; secondLength != 0; secondLength >>= 1) {
        if ((secondLength & 1) != 0)
            shift = multiply(shift, square);
        square = multiply(square, square);
    }
    return multiply(first, shift) ^ second;
}

} // namespace zip
