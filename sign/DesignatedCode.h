#pragma once

#include "sign/StaticCode.h"
#include "sign/bundle/ResourceSeal.h"
#include "sign/signature/Requirement.h"

#include <string>

namespace sign {

/// The requirement by which other code refers to this: the designated one of its signature, else
/// that its code directory is one of these (of ad hoc signed code). NotFound, with the platform's
/// message, if it is not signed. Any thread.
[[nodiscard]] base::Result<Requirement> designatedRequirement(const StaticCode& code);

/// What a seal keeps of the code at `path`; the error is one of signing its container. Any thread.
[[nodiscard]] base::Result<NestedSeal> lookUpNested(const std::string& path);

} // namespace sign
