#pragma once

#include "base/Result.h"
#include "zip/PackageTree.h"

namespace zip {

/// Fails unless the package still holds the names and kinds that were listed, and each of its
/// folders and links is in the state that was listed. Files are not asked for theirs, so the caller
/// has to ask them (SourceFile does). Works on `threads` threads (at least 1).
[[nodiscard]] base::Outcome checkListing(const PackageTree& tree, unsigned threads);

} // namespace zip
