#pragma once

#include "sign/cms/Cms.h"

#include <span>
#include <string>
#include <vector>

namespace sign {

/// The object identifiers of Apple's attributes, and of the token in an unsigned one.
inline constexpr const char* hashListOid = "1.2.840.113635.100.9.1";
inline constexpr const char* hashAgilityOid = "1.2.840.113635.100.9.2";

[[nodiscard]] Asn1ObjectOwner objectOf(const char* dotted);

/// The property list of all code directory hashes, in the order of their types, each of 20 bytes.
[[nodiscard]] std::string hashListXml(std::span<const DirectoryDigest> directories);

/// One element of the hash agility attribute: SEQUENCE { type, hash }.
[[nodiscard]] base::OwnedBytes hashAgilityElement(const DirectoryDigest& directory);

/// The values of a signed attribute as DER, of all if it comes more than once; empty if there is
/// none.
[[nodiscard]] std::vector<base::OwnedBytes> signedValues(const CMS_SignerInfo* signer,
                                                         const ASN1_OBJECT* oid);

} // namespace sign
