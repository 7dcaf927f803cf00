#pragma once

#include "base/Bytes.h"

#include <array>
#include <optional>
#include <string>

namespace base {

/// The SHA-256 digest of bytes that come piece by piece (FIPS 180-4). One thread at a time.
class Sha256 {
public:
    using Digest = std::array<std::uint8_t, 32>;

    void add(Bytes bytes);
    /// The digest of all that was added; nothing may be added after that.
    [[nodiscard]] Digest finish();

private:
    void addBlock(const std::uint8_t* block);

    std::array<std::uint32_t, 8> state_ = {0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
                                           0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};
    std::array<std::uint8_t, 64> pending_{};
    std::uint64_t size_ = 0; ///< of all bytes so far
};

/// How many bytes a file has, and their SHA-256 digest in hexadecimal.
struct FileDigest {
    std::uint64_t size;
    std::string sha256;
};

/// Reads the whole file; none if it cannot be read. Any thread.
[[nodiscard]] std::optional<FileDigest> digestOfFile(const std::string& path);

} // namespace base
