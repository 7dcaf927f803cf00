#pragma once

#include "base/Result.h"
#include "sign/bundle/SealWalk.h"

#include <string>
#include <string_view>
#include <vector>

namespace sign {

/// One thing of a package that has a signature of its own.
struct CodeObject {
    std::string path;   ///< a bundle's folder, or a file; starts with the package's path
    unsigned depth = 0; ///< how many code objects hold it
    bool isBundle = false;
    /// Whether the seal around it has hashes of its files, so that these must be whole before.
    bool isHashed = false;
    /// The main executable of a bundle, if it has one. Seals name a bundle without a dot in its
    /// name by that.
    std::string executable{};

    bool operator==(const CodeObject&) const = default;
};

/// All code objects of the package `path`, in the order in which they are to be signed: from inside
/// out, the package last. Those of one depth do not hold each other and can be signed at once.
/// `path` may also be a lone file. Beside what the platform calls nested, each Mach-O file anywhere
/// counts; a bundle's main executable goes with its bundle. Refuses, in a sentence, a package that
/// cannot be signed whole: folders with a dot in a place for code that are no bundles, breaches of
/// the layout, AppleDouble files, rules of its own. `leftovers` of a killed signing are
/// skipped or removed. If the package is a framework, `version` is the one of it that is signed as
/// the package, the current one if empty; the others come before. Any thread.
[[nodiscard]] base::Result<std::vector<CodeObject>>
planOf(std::string_view path, Leftovers leftovers = Leftovers::AreSkipped,
       std::string_view version = {});

/// Why what holds `folder` cannot be signed, if openBundle() refuses that for `reason`: it is
/// nested by its name and place, and no bundle.
[[nodiscard]] base::Error noBundle(const std::string& folder, const base::Error& reason);

} // namespace sign
