#pragma once

#include "base/Result.h"
#include "sign/bundle/Bundle.h"

#include <string>
#include <vector>

namespace sign {

/// What lies beside Contents in a bundle and is not covered by its seal.
[[nodiscard]] base::Result<std::vector<LayoutFault>>
applicationRootFaults(const std::string& bundle);

/// Same, beside the versions of a framework: only links into the current version belong there.
[[nodiscard]] base::Result<std::vector<LayoutFault>>
frameworkRootFaults(const std::string& framework);

} // namespace sign
