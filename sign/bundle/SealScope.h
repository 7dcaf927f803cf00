#pragma once

#include "sign/bundle/SealRules.h"

#include <memory>
#include <string>

namespace sign {

/// A bundle whose seal is being checked, and the one that holds it.
struct SealScope {
    std::string realCodeRoot; ///< without links
    SealRules rules;
    std::shared_ptr<const SealScope> outer;
};

/// The bundle that holds what is at `path`, which has no links in it, and those around that; with
/// the rules that signing writes. Null if none does.
[[nodiscard]] std::shared_ptr<const SealScope> scopeAround(const std::string& path);

/// Whether a link may be where it is: it leads to something that this seal, or that of a bundle
/// around it, covers; or, with an absolute path, into the system. `path` is the link itself.
[[nodiscard]] bool leadsToSealed(const std::string& path, const std::string& target,
                                 const SealScope& scope);

} // namespace sign
