#pragma once

#include "base/Result.h"
#include "sign/bundle/Bundle.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace sign {

/// The signature of a bundle without a Mach-O file: files in its _CodeSignature. Its code directory
/// covers the bundle's `executable` as one page.
struct LooseSignature {
    std::vector<base::OwnedBytes> directories; ///< the primary one first, at most six
    std::optional<base::OwnedBytes> requirements;
    std::optional<base::OwnedBytes> entitlements;
    std::optional<base::OwnedBytes> entitlementsDer;
    std::optional<base::OwnedBytes> cms; ///< without the header of a blob; empty if signed ad hoc
};

/// Names, in _CodeSignature, of the files that a signature takes, with CodeResources.
[[nodiscard]] std::vector<std::string> signatureFiles(const LooseSignature& signature);

/// NotFound, with the platform's message, if there is no CodeDirectory. Any thread.
[[nodiscard]] base::Result<LooseSignature> readLooseSignature(const Bundle& bundle);

/// Writes all files aside, syncs them, then names them; takes away those that the signature does
/// not use. `seal` becomes CodeResources. One caller at a time.
[[nodiscard]] base::Outcome writeLooseSignature(const Bundle& bundle,
                                                const LooseSignature& signature, base::Bytes seal);

/// Deletes what an earlier signature left in _CodeSignature and the new one, which has the files
/// `kept`, does not use.
[[nodiscard]] base::Outcome removeUnusedSignatureFiles(const Bundle& bundle,
                                                       const std::vector<std::string>& kept);

} // namespace sign
