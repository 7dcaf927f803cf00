#pragma once

#include "sign/crypto/OpenSsl.h"
#include "sign/identity/Certificate.h"

#include <cstdint>
#include <string>

namespace sign {

using TimeStampContentOwner = OpenSslOwner<TS_TST_INFO, TS_TST_INFO_free>;
using Pkcs7Owner = OpenSslOwner<PKCS7, PKCS7_free>;

/// Which roots a token's chain may end in.
enum class TokenRoots {
    Any,   ///< the system's, and those that the token brings
    Apple, ///< those that count as Apple's; that the token holds one is not enough
};

/// Those that may stamp code under the root `codeRoot`.
[[nodiscard]] TokenRoots rootsFor(const Certificate& codeRoot);

/// A token in DER; null if it is none. Any thread.
[[nodiscard]] Pkcs7Owner decodedToken(base::Bytes token);

/// Empty if it is fine; else why it is not. `token` is checked against the bytes of a signature,
/// and against the nonce if there is one.
[[nodiscard]] std::string faultOfToken(PKCS7* token, base::Bytes signatureValue,
                                       const ASN1_INTEGER* nonce, TokenRoots roots);

/// In seconds since 1970.
[[nodiscard]] std::int64_t timeOf(const TS_TST_INFO* content);

/// The certificates in a token.
[[nodiscard]] std::vector<Certificate> certificatesOf(PKCS7* token);

} // namespace sign
