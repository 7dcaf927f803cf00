#pragma once

#include "sign/identity/Identity.h"

#include <string>

namespace sign {

/// A certificate signing request (PKCS#10, RFC 2986) as PEM, as the developer portal takes it.
[[nodiscard]] base::Result<base::OwnedBytes>
certificateRequest(EVP_PKEY* key, const std::string& name, const std::string& email);

/// A certificate for code signing, valid for ten years, that its own key has signed.
[[nodiscard]] base::Result<Certificate> selfSignedCertificate(EVP_PKEY* key,
                                                              const std::string& name);

} // namespace sign
