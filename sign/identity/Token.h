#pragma once

#include "sign/identity/Identity.h"

#include <memory>
#include <optional>
#include <string>

// Keys on tokens: smart cards, security keys and their like, reached through PKCS#11.
namespace sign {

/// What a token has for an identity.
struct TokenKey {
    std::shared_ptr<SigningKey> key;
    std::optional<Certificate> certificate{}; ///< beside the key, with the same identifier
};

/// Opens the private key that a URI names (RFC 7512): by token, serial, object and id; module-path
/// and pin-source are understood. Without a module the ones known to p11-kit are asked; without a
/// pin-source the PIN is in the file that KELPMORAY_PIN_FILE names. Unavailable if the token, the
/// key or the PIN is missing.
[[nodiscard]] base::Result<TokenKey> openTokenKey(const std::string& uri);

} // namespace sign
