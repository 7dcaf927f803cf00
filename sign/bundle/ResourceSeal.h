#pragma once

#include "base/Result.h"
#include "sign/bundle/Bundle.h"
#include "sign/bundle/SealWalk.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace sign {

/// What a seal keeps of the code that it holds.
struct NestedSeal {
    base::OwnedBytes cdhash; ///< 20 bytes
    std::string requirement; ///< text of its designated requirement
};

/// Tells it of the signed code at a path (a bundle's folder or a Mach-O file), or why it cannot.
/// Called on the thread that makes the seal, one at a time.
using NestedLookup = std::function<base::Result<NestedSeal>(const std::string& path)>;

struct SealMaking {
    bool withSha1 = false; ///< beside SHA-256, if the code directories have both
    unsigned threads = 1;  ///< how many hash files at once
    Leftovers leftovers = Leftovers::AreSkipped;
    const NewFiles* newFiles = nullptr; ///< sealed in place of those that they will replace
    FileWatch* watch = nullptr;         ///< gets what the seal is of
};

struct ResourceSeal {
    std::string xml; ///< the bytes of _CodeSignature/CodeResources
    /// Sentences about what is sealed but hardly meant: links and versions of frameworks that a
    /// strict check refuses, and files in places for code that are no Mach-O files. The platform's
    /// own tool keeps signatures of such in extended attributes, which archives lose.
    std::vector<std::string> warnings;
};

/// Makes the seal of a bundle whose nested code is signed, be it in its place or not yet: the same
/// bytes as the platform's tool.
/// Reads each sealed file once and writes nothing. Changed if one changes while it is read, or
/// is code that is unknown to `newFiles`.
[[nodiscard]] base::Result<ResourceSeal> makeSeal(const Bundle& bundle, const SealMaking& making,
                                                  const NestedLookup& nested);

/// What a description says of a seal.
struct SealFacts {
    int version = 2;
    std::size_t rules = 0;
    std::size_t files = 0;
};
[[nodiscard]] base::Result<SealFacts> sealFacts(base::Bytes seal, std::string_view name);

} // namespace sign
