#include "base/Sha256.h"

#include "base/FileDescriptor.h"

#include <bit>

#include <fcntl.h>

namespace base {
namespace {

constexpr std::array<std::uint32_t, 64> roundConstants = {
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
    0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
    0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
    0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
    0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
    0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
    0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2};

constexpr std::uint32_t smallSigma(std::uint32_t x, int first, int second, int shift) {
    return std::rotr(x, first) ^ std::rotr(x, second) ^ x >> shift;
}

constexpr std::uint32_t bigSigma(std::uint32_t x, int first, int second, int third) {
    return std::rotr(x, first) ^ std::rotr(x, second) ^ std::rotr(x, third);
}

} // namespace

void Sha256::addBlock(const std::uint8_t* block) {
    std::array<std::uint32_t, 64> w;
    for (std::size_t t = 0; t < 16; ++t, block += 4)
        w[t] = std::uint32_t{block[0]} << 24U | std::uint32_t{block[1]} << 16U |
               std::uint32_t{block[2]} << 8U | block[3];
    for (std::size_t t = 16; t < 64; ++t)
        w[t] = smallSigma(w[t - 2], 17, 19, 10) + w[t - 7] + smallSigma(w[t - 15], 7, 18, 3) +
               w[t - 16];
    auto [a, b, c, d, e, f, g, h] = state_;
    for (std::size_t t = 0; t < 64; ++t) {
        const std::uint32_t first =
            h + bigSigma(e, 6, 11, 25) + ((e & f) ^ (~e & g)) + roundConstants[t] + w[t];
        const std::uint32_t second = bigSigma(a, 2, 13, 22) + ((a & b) ^ (a & c) ^ (b & c));
        h = g;
        g = f;
        f = e;
        e = d + first;
        d = c;
        c = b;
        b = a;
        a = first + second;
    }
    const std::array<std::uint32_t, 8> added = {a, b, c, d, e, f, g, h};
    for (std::size_t index = 0; index < added.size(); ++index)
        state_[index] += added[index];
}

void Sha256::add(Bytes bytes) {
    const std::size_t held = size_ % pending_.size();
    size_ += bytes.size();
    if (held > 0) {
        const std::size_t taken = std::min(bytes.size(), pending_.size() - held);
        std::copy_n(bytes.data(), taken, pending_.data() + held);
        bytes = bytes.subspan(taken);
        if (held + taken < pending_.size())
            return;
        addBlock(pending_.data());
    }
    for (; bytes.size() >= pending_.size(); bytes = bytes.subspan(pending_.size()))
        addBlock(bytes.data());
    std::ranges::copy(bytes, pending_.begin());
}

Sha256::Digest Sha256::finish() {
    const std::uint64_t bits = size_ * 8;
    // One bit, then zeros up to the last eight bytes of a block, which hold the length.
    std::array<std::uint8_t, 72> padding{0x80};
    const std::size_t zeros = (64 + 56 - size_ % 64 - 1) % 64;
    for (std::size_t index = 0; index < 8; ++index)
        padding.at(1 + zeros + index) = static_cast<std::uint8_t>(bits >> (56 - 8 * index));
    add(Bytes(padding).first(1 + zeros + 8));
    Digest digest;
    for (std::size_t index = 0; index < digest.size(); ++index)
        digest.at(index) = static_cast<std::uint8_t>(state_.at(index / 4) >> (24 - index % 4 * 8));
    return digest;
}

std::optional<FileDigest> digestOfFile(const std::string& path) {
    const FileDescriptor file = FileDescriptor::openAt(AT_FDCWD, path.c_str(), O_RDONLY);
    if (!file.open())
        return std::nullopt;
    constexpr std::size_t chunk = std::size_t{256} << 10;
    const auto buffer = std::make_unique<std::uint8_t[]>(chunk);
    Sha256 sum;
    std::uint64_t size = 0;
    for (std::size_t count = chunk; count == chunk; size += count) {
        const auto read = readAt(file.get(), buffer.get(), chunk, size);
        if (!read)
            return std::nullopt;
        count = *read;
        sum.add({buffer.get(), count});
    }
    return FileDigest{size, hex(sum.finish())};
}

} // namespace base
