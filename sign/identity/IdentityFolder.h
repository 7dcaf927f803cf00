#pragma once

#include "sign/identity/Identity.h"
#include "sign/identity/Secret.h"

#include <string>
#include <vector>

// Where the user's identities are kept: a folder that only the user can enter, with
//   certificates/HASH.pem  a certificate and its issuers, named by the certificate's SHA-1
//   keys/ID.pem            an encrypted private key, named by the SHA-1 of its public key
//   tokens/ID              the PKCS#11 URI of a key that is on a token, named alike
//   roots/                 certificates of test authorities (TrustedRoots.h)
// A certificate and the key of the same public key make an identity.
namespace sign {

/// A certificate that is kept, with its issuers as far as they are known.
struct KeptCertificate {
    std::string hash;               ///< SHA-1, 40 capital digits
    std::vector<Certificate> chain; ///< the leaf first
    std::vector<Certificate> known; ///< all that its file has
    std::string keyId;              ///< of its public key
    bool hasKey = false;            ///< in a file or on a token
};

class IdentityFolder {
public:
    /// That of the user (identityFolderPath). Denied if others can enter it; one that is not there
    /// yet is empty, and made by the first write.
    [[nodiscard]] static base::Result<IdentityFolder> ofUser();

    /// In the order of their names and hashes. A file that is damaged is named on standard error.
    [[nodiscard]] std::vector<KeptCertificate> certificates() const;
    /// Every certificate in the folder, issuers too.
    [[nodiscard]] std::vector<Certificate> pool() const;
    [[nodiscard]] bool hasKey(const std::string& keyId) const;

    /// Opens the key of a certificate that is kept, and lets no core file have it from then on.
    /// Unavailable, with the remedy, if it is locked.
    [[nodiscard]] base::Result<std::shared_ptr<SigningKey>>
    openKey(const KeptCertificate& kept) const;

    /// Adds what makes an identity; what is there already stays. Each is on the disk afterwards.
    [[nodiscard]] base::Outcome addKey(EVP_PKEY* key) const;
    [[nodiscard]] base::Outcome addToken(const std::string& keyId, const std::string& uri) const;
    [[nodiscard]] base::Outcome addCertificate(const std::vector<Certificate>& chain) const;
    /// Removes a certificate, and its key if no other certificate has the same.
    [[nodiscard]] base::Outcome remove(const KeptCertificate& kept) const;

    /// The passphrase of the keys: from KELPMORAY_PASSPHRASE_FILE, the service manager's
    /// credentials, or the desktop's service of secrets, which is given a random one if
    /// `mayCreate`. Unavailable, with the remedy, if there is none.
    [[nodiscard]] static base::Result<Secret> passphrase(bool mayCreate);

private:
    explicit IdentityFolder(std::string path) : path_(std::move(path)) {}

    [[nodiscard]] base::Outcome make() const;
    [[nodiscard]] base::Outcome write(const std::string& name, base::Bytes bytes) const;
    [[nodiscard]] base::Result<base::OwnedBytes> readPrivate(const std::string& name) const;

    std::string path_;
};

} // namespace sign
