#pragma once

#include "base/Result.h"
#include "sign/crypto/Digest.h"

#include <cstdint>
#include <map>
#include <string_view>

namespace sign {

/// The first number of each blob (Apple's cs_blobs.h). All numbers of a signature are big endian.
enum class BlobMagic : std::uint32_t {
    OneRequirement = 0xFADE0C00,
    Requirements = 0xFADE0C01,
    CodeDirectory = 0xFADE0C02,
    EmbeddedSignature = 0xFADE0CC0,
    Entitlements = 0xFADE7171,
    EntitlementsDer = 0xFADE7172,
    Constraint = 0xFADE8181,
    Wrapper = 0xFADE0B01,
};

/// What a blob of a signature is for; those below `firstAlternate` are also the numbers of the
/// special slots of a code directory.
namespace slot {
constexpr std::uint32_t codeDirectory = 0;
constexpr std::uint32_t infoPlist = 1;
constexpr std::uint32_t requirements = 2;
constexpr std::uint32_t resources = 3;
constexpr std::uint32_t entitlements = 5;
constexpr std::uint32_t entitlementsDer = 7;
constexpr std::uint32_t firstConstraint = 8;
constexpr std::uint32_t lastConstraint = 11;
constexpr std::uint32_t firstAlternate = 0x1000;
constexpr std::uint32_t lastAlternate = 0x1004;
constexpr std::uint32_t cms = 0x10000;
constexpr std::uint32_t ticket = 0x10002;
} // namespace slot

/// Blobs by their slots (or requirements by their types).
using BlobMap = std::map<std::uint32_t, base::OwnedBytes>;

constexpr std::size_t blobHeaderSize = 8;

/// `what` completes "The signature of NAME is damaged: ...".
[[nodiscard]] base::Error damagedSignature(std::string_view name, const char* what);

/// Magic, length and `content`.
[[nodiscard]] base::OwnedBytes makeBlob(BlobMagic magic, base::Bytes content);

/// The magic that starts `bytes`; 0 if there are less than 4.
[[nodiscard]] std::uint32_t magicOf(base::Bytes bytes);

/// What a blob has behind its header; empty if it is shorter than that.
[[nodiscard]] base::Bytes contentOf(base::Bytes blob);

/// A blob that holds blobs, packed in the order of their slots.
[[nodiscard]] base::OwnedBytes makeSuperBlob(BlobMagic magic, const BlobMap& blobs);

/// Same, to be written in place: how many bytes it has.
[[nodiscard]] std::size_t superBlobSize(std::size_t count, std::size_t sizeOfBlobs);

/// The blobs of a super blob. `bytes` may go on behind its end. Damaged if the magic is another, a
/// slot comes twice or a blob reaches past the end. Any thread.
[[nodiscard]] base::Result<BlobMap> readSuperBlob(BlobMagic magic, base::Bytes bytes,
                                                  std::string_view name);

} // namespace sign
