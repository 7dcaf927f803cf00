#pragma once

#include "sign/identity/Identity.h"
#include "sign/identity/Secret.h"

#include <string>

// Private keys in files: PKCS#8 (RFC 5958), encrypted with AES-256 under a key that scrypt (RFC
// 7914) makes of a passphrase.
namespace sign {

/// The SHA-1 of a public key as certificates have it: what a key and its certificates share. 40
/// lower case digits.
[[nodiscard]] std::string keyIdOf(EVP_PKEY* key);
[[nodiscard]] std::string keyIdOf(const Certificate& certificate);

/// A new RSA key of 2,048 bits, the kind that Apple's portal takes.
[[nodiscard]] base::Result<KeyOwner> newKey();

/// The key as encrypted PEM.
[[nodiscard]] base::Result<base::OwnedBytes> encryptedPem(EVP_PKEY* key, const Secret& passphrase);

/// The key in a PEM or DER file, encrypted or not. Denied if the passphrase does not fit; Damaged
/// if there is no key. `name` is what an error names.
[[nodiscard]] base::Result<KeyOwner> decodedKey(base::Bytes bytes, const Secret& passphrase,
                                                const std::string& name);

} // namespace sign
