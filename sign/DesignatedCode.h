#pragma once

#include "sign/StaticCode.h"
#include "sign/bundle/FileWatch.h"
#include "sign/bundle/ResourceSeal.h"
#include "sign/signature/Requirement.h"

#include <functional>
#include <string>

namespace sign {

/// The requirement by which other code refers to this: the designated one of its signature, else
/// that its code directory is one of these (of ad hoc signed code). NotFound, with the platform's
/// message, if it is not signed. Any thread.
[[nodiscard]] base::Result<Requirement> designatedRequirement(const StaticCode& code);

/// Gives the signature of the slice with that index.
using SignatureReader = std::function<base::Result<SignatureParts>(std::size_t index)>;

/// What a seal keeps of `code` with these signatures, be they on the disk or not yet. Any thread.
[[nodiscard]] base::Result<NestedSeal> nestedSealOf(const StaticCode& code,
                                                    const SignatureReader& signatures);

/// What a seal keeps of the code at `path`, whose main executable is watched from then on; the
/// error is one of signing its container. Any thread.
[[nodiscard]] base::Result<NestedSeal> lookUpNested(const std::string& path, FileWatch& watch);

} // namespace sign
