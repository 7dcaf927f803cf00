#pragma once

#include "sign/identity/IdentityFile.h"
#include "sign/identity/IdentityFolder.h"

#include <string>
#include <vector>

namespace sign {

/// What an import reads.
struct ImportOptions {
    std::string file;
    std::string keyFile;      ///< if the key is not in `file`
    std::string chainFile;    ///< more certificates of issuers
    bool mayDownload = false; ///< missing issuers, from the addresses that certificates name
};

/// An identity that is complete and can be stored.
struct FoundIdentity {
    std::vector<Certificate> chain; ///< the leaf first, the root last
    KeyOwner key;                   ///< null if the folder has it already
};

/// Puts together what the files and the folder have; nothing is stored. The error names what is
/// missing.
[[nodiscard]] base::Result<FoundIdentity>
findInFiles(const IdentityFolder& folder, const ImportOptions& options, const Secret& passphrase);

/// Unsupported, with the reason, if code cannot be signed with the certificate.
[[nodiscard]] base::Outcome checkLeaf(const Certificate& leaf);

/// The chain of a certificate from what is known and, if allowed, from the issuers' addresses.
[[nodiscard]] base::Result<std::vector<Certificate>>
chainFor(const Certificate& leaf, std::vector<Certificate> known, bool mayDownload);

} // namespace sign
