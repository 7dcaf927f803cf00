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

/// Whether a link leads to anything at all, or with an absolute path into the system.
[[nodiscard]] bool leadsOn(const std::string& path, const std::string& target);

/// Whether a link may be where it is: it leads to something that this seal, or that of a bundle
/// around it, covers; or, with an absolute path, into the system. `path` is the link itself.
[[nodiscard]] bool leadsToSealed(const std::string& path, const std::string& target,
                                 const SealScope& scope);

} // namespace sign
