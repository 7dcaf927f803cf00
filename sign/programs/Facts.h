#pragma once

#include "base/Json.h"
#include "sign/SignatureVerifier.h"
#include "sign/StaticCode.h"

namespace sign {

/// What the signature of the code says, for programs; the members are in the man page. NotFound,
/// with the platform's message, if the code is not signed. Any thread.
[[nodiscard]] base::Result<base::Json::Object> signatureFacts(const StaticCode& code);

/// Whether code is valid, and all that is wrong with it, for programs. Any thread.
[[nodiscard]] base::Json::Object validityFacts(const VerifyReport& report);

} // namespace sign
