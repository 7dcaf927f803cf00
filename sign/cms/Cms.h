#pragma once

#include "sign/identity/Identity.h"

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

// The Cryptographic Message Syntax (RFC 5652) as code signatures hold it: a detached signature over
// the primary code directory, with attributes of Apple's that bind every code directory.
namespace sign {

/// The hash of one whole code directory, with that directory's own type of hash.
struct DirectoryDigest {
    HashType type = HashType::Sha256;
    Digest digest; ///< in full, even of a type that is cut
};

/// A CMS that is made here. Each on one thread at a time.
class CmsSignature {
public:
    /// Signs the primary code directory. `signingTime` is in seconds since 1970. Any thread.
    [[nodiscard]] static base::Result<CmsSignature>
    make(const Identity& identity, base::Bytes primaryDirectory,
         std::span<const DirectoryDigest> directories, std::int64_t signingTime);

    /// The bytes that a time stamp has to be asked for; valid as long as this object.
    [[nodiscard]] base::Bytes value() const;
    /// Of the signer, the leaf first.
    [[nodiscard]] const std::vector<Certificate>& chain() const { return chain_; }
    /// Puts a time stamp token (RFC 3161) beside the signature.
    [[nodiscard]] base::Outcome addTimeStamp(base::Bytes token);
    [[nodiscard]] base::Result<base::OwnedBytes> encoded() const;

private:
    CmsSignature(CmsOwner handle, std::vector<Certificate> chain)
        : handle_(std::move(handle)), chain_(std::move(chain)) {}

    CmsOwner handle_;
    std::vector<Certificate> chain_;
};

/// What a CMS says. Times are seconds since 1970.
struct CmsFacts {
    std::vector<Certificate> chain{}; ///< the leaf first, as far as the CMS has it
    std::optional<std::int64_t> signingTime{};
    std::optional<std::int64_t> timeStamp{};
};

/// What a CMS says, whether or not it is right. Damaged if it is no CMS. Any thread.
[[nodiscard]] base::Result<CmsFacts> readCms(base::Bytes cms);

/// Same, after all has been checked: signature, attributes, chain, usages, validity at the time of
/// signing, time stamp. The error says what is wrong. Any thread.
[[nodiscard]] base::Result<CmsFacts> checkCms(base::Bytes cms, base::Bytes primaryDirectory,
                                              std::span<const DirectoryDigest> directories);

} // namespace sign
