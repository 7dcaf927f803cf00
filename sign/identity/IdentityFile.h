#pragma once

#include "sign/identity/Identity.h"
#include "sign/identity/Secret.h"

#include <string>
#include <vector>

namespace sign {

/// What a file brings for an identity.
struct IdentityFile {
    std::vector<Certificate> certificates;
    KeyOwner key; ///< null if the file has none
};

/// Reads PKCS#12 (RFC 7292, of today and of old programs), or PEM or DER with certificates, a key,
/// or both. Denied if the passphrase does not fit. Any thread.
[[nodiscard]] base::Result<IdentityFile> readIdentityFile(const std::string& path,
                                                          const Secret& passphrase);

} // namespace sign
