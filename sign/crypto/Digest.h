#pragma once

#include "base/Bytes.h"

#include <array>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

namespace sign {

/// The hash of a code directory, numbered as in Apple's cs_blobs.h.
enum class HashType : std::uint8_t { Sha1 = 1, Sha256 = 2, Sha256Cut = 3, Sha384 = 4 };

/// How many bytes a hash of that type has in a code directory; 0 for a number that is no type.
[[nodiscard]] std::size_t digestSize(HashType type);

/// "sha1", "sha256", "sha256" cut as "sha256t", "sha384"; "unknown" for a number that is no type.
[[nodiscard]] std::string_view digestName(HashType type);

/// A hash of up to 48 bytes.
class Digest {
public:
    static constexpr std::size_t most = 48;

    Digest() = default;
    /// Only the first 48 bytes count.
    explicit Digest(base::Bytes bytes);

    [[nodiscard]] base::Bytes bytes() const { return {bytes_.data(), size_}; }
    [[nodiscard]] std::size_t size() const { return size_; }
    /// The first `size` bytes.
    [[nodiscard]] Digest cut(std::size_t size) const;

    bool operator==(const Digest&) const = default;

private:
    std::array<std::uint8_t, most> bytes_{};
    std::size_t size_ = 0;
};

/// Hashes bytes that come in pieces. One thread at a time.
class Hasher {
public:
    explicit Hasher(HashType type);
    Hasher(Hasher&&) noexcept;
    Hasher& operator=(Hasher&&) noexcept;
    ~Hasher();

    void update(base::Bytes bytes);
    /// The hash of all since the last call; the next update starts anew.
    [[nodiscard]] Digest finish();

private:
    struct Context;
    std::unique_ptr<Context> context_;
};

/// The hash of `bytes`, as long as digestSize() says. Any thread.
[[nodiscard]] Digest digestOf(HashType type, base::Bytes bytes);

} // namespace sign
