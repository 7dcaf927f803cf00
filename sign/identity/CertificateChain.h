#pragma once

#include "sign/identity/Certificate.h"

#include <span>
#include <vector>

namespace sign {

/// The chain from `leaf` to its root, each certificate issued by the next. The issuers are looked
/// for among `others`, which may hold anything. NotFound names the one that is missing and tells
/// where to get it; a chain that does not end at its root would be taken for another's signature.
/// Any thread.
[[nodiscard]] base::Result<std::vector<Certificate>>
completeChain(const Certificate& leaf, std::span<const Certificate> others);

/// Same, but what was found if the chain does not reach a root.
[[nodiscard]] std::vector<Certificate> chainAsFarAsKnown(const Certificate& leaf,
                                                         std::span<const Certificate> others);

} // namespace sign
