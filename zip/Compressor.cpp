#include "zip/Compressor.h"

#include "zip/FinalBlock.h"

#include <algorithm>
#include <array>
#include <new>
#include <optional>

#include <libdeflate.h>

namespace zip {
namespace {

/// Up to this level the encoder makes the pieces, at this one with its usual effort.
constexpr int lastOwnLevel = 5;

/// The library's twelve levels for ours; 0 if all is the encoder's.
constexpr std::array<int, smallestLevel + 1> libraryLevel{0, 1, 0, 0, 0, 0, 6, 8, 9, 10};

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

Compressor::Compressor(int level) {
    if (level <= lastOwnLevel)
        encoder_ = std::make_unique<Encoder>(level == lastOwnLevel ? Effort::Usual : Effort::Quick);
    const int ofLibrary = libraryLevel.at(static_cast<std::size_t>(level));
    if (ofLibrary == 0)
        return;
    library_.reset(libdeflate_alloc_compressor(ofLibrary));
    if (!library_)
        throw std::bad_alloc();
}

bool Compressor::deflateWhole(const PaddedContent& content, base::ByteBuffer& to) {
    const base::Bytes bytes = content.bytes();
    if (bytes.empty())
        return false;
    if (!library_) {
        const std::size_t size =
            encoder_->encode(content, true, to.tail(Encoder::mostBytes(bytes.size())));
        if (size < bytes.size())
            to.extend(size);
        return size < bytes.size();
    }
    const std::size_t room = bytes.size() - 1;
    const std::size_t size = libdeflate_deflate_compress(library_.get(), bytes.data(), bytes.size(),
                                                         to.tail(room), room);
    to.extend(size);
    return size != 0;
}

void Compressor::deflatePiece(const PaddedContent& content, bool isLast, base::ByteBuffer& to) {
    const base::Bytes bytes = content.bytes();
    if (encoder_) {
        to.extend(encoder_->encode(content, isLast, to.tail(Encoder::mostBytes(bytes.size()))));
        return;
    }
    std::uint8_t* tail = to.tail(bytes.size() + joinSize);
    const std::size_t size =
        libdeflate_deflate_compress(library_.get(), bytes.data(), bytes.size(), tail, bytes.size());
    if (size != 0 && isLast) {
        to.extend(size);
    } else if (const auto opened = size == 0 ? std::nullopt : openEnd(tail, size)) {
        to.extend(*opened);
    } else {
        appendStoredBlocks(bytes, isLast, to);
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
