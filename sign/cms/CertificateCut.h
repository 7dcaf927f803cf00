#pragma once

#include "base/Bytes.h"
#include "sign/crypto/OpenSsl.h"
#include "sign/identity/Certificate.h"

#include <optional>
#include <vector>

// OpenSSL takes longer to decode the certificates of a message than for all else, and the messages
// of one package hold the same ones. So they are cut out, decoded once in a process and put back.
namespace sign {

/// A ContentInfo with SignedData (RFC 5652) in two parts.
struct CutMessage {
    base::OwnedBytes rest;                 ///< a SignedData without certificates, in BER
    std::vector<Certificate> certificates; ///< in their order
};

/// Absent if it is no such message or a certificate cannot be decoded. Any thread.
[[nodiscard]] std::optional<CutMessage> cutCertificates(base::Bytes message);

} // namespace sign
