#pragma once

#include "sign/identity/IdentityFolder.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace sign {

/// Why an identity cannot sign.
enum class IdentityFault {
    None,
    NoKey,
    NotForCode,
    WrongKey, ///< neither plain RSA nor ECDSA
    NoTeam,   ///< a Developer ID without one
    Expired,
    NotYetValid,
    ChainIncomplete,
    NotTrusted, ///< its root is neither Apple's nor the user's
};

/// As the platform's tool names it, in parentheses behind an identity; empty for None.
[[nodiscard]] std::string_view nameOf(IdentityFault fault);

/// What a certificate itself lacks. One without extended key usages will do if `withoutUsages` is
/// set: the platform's tool lists it, but what it signs is not valid.
[[nodiscard]] IdentityFault faultOf(const Certificate& leaf, bool withoutUsages);

/// What the certificate that is kept lacks at a time, in seconds since 1970.
[[nodiscard]] IdentityFault faultOf(const KeptCertificate& kept, std::int64_t now);

/// An identity and whether it can sign.
struct ListedIdentity {
    std::string hash;
    std::string label;
    IdentityFault fault = IdentityFault::None;
};

/// NotFound: "WANTED: no identity found".
[[nodiscard]] base::Error noIdentity(std::string_view wanted);

/// Those of the user, in the order of their labels.
[[nodiscard]] base::Result<std::vector<ListedIdentity>> listIdentities();

/// The one identity whose hash (40 digits) is given, or whose label has the text in it, with its
/// key opened. noIdentity() if none fits, Conflict if several fit, Unavailable if its key is locked
/// or its certificate cannot sign.
[[nodiscard]] base::Result<Identity> findIdentity(std::string_view hashOrNamePart);

} // namespace sign
