#pragma once

#include "base/Result.h"
#include "sign/StaticCode.h"
#include "sign/cms/Cms.h"
#include "sign/cms/TimeStamp.h"
#include "sign/signature/FaultCode.h"
#include "sign/signature/RequirementCheck.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace sign {

/// What requirements ask about the certificates of an identity, the leaf first. Any thread.
[[nodiscard]] std::vector<CertificateFacts> signingChain(const Identity& identity);

/// The CMS over code directories, the primary one first, signed now. Any thread.
[[nodiscard]] base::Result<CmsSignature>
makeSignature(const Identity& identity, const std::vector<CodeDirectory>& directories);

/// Puts the time stamp for the signature into it, after checks. Any thread.
[[nodiscard]] base::Outcome stampSignature(CmsSignature& cms, const TimeStampReply& reply);

/// What a description tells of a CMS, whether or not it is valid. Times are seconds since 1970.
struct SignerFacts {
    std::vector<std::string> authorities; ///< common names of the certificates, the leaf first
    std::optional<std::int64_t> signingTime;
    std::optional<std::int64_t> timestamp;
};
[[nodiscard]] SignerFacts signerFactsOf(const base::OwnedBytes& cms);

/// Checks the CMS of a signature: who signed, that it covers all code directories, its time stamp.
/// Gives what is wrong, if something is; `chain` becomes the certificates, the leaf first, none if
/// the code is signed ad hoc. Any thread.
[[nodiscard]] std::optional<FaultCode> checkSigner(const SignatureParts& parts,
                                                   std::vector<CertificateFacts>& chain);

} // namespace sign
