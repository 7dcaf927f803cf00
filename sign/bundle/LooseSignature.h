#pragma once

#include "base/Result.h"
#include "sign/bundle/Bundle.h"
#include "sign/files/AsideFile.h"

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

/// All files of a signature, written aside, on the disk and closed. `seal` becomes CodeResources.
/// Any thread.
[[nodiscard]] base::Result<std::vector<AsideFile>>
writeLooseSignature(const Bundle& bundle, const LooseSignature& signature, base::Bytes seal);

/// Conflict if the _CodeSignature, given its path, holds anything but files that signing writes or
/// takes away.
[[nodiscard]] base::Outcome checkSignatureFolder(const std::string& folder);

/// The paths of what an earlier signature left in _CodeSignature and the new one, which has the
/// files with the names `kept`, does not use. Any thread.
[[nodiscard]] base::Result<std::vector<std::string>>
unusedSignatureFiles(const Bundle& bundle, const std::vector<std::string>& kept);

} // namespace sign
