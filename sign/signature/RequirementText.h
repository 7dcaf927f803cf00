#pragma once

#include "sign/signature/Requirement.h"

#include <string>
#include <string_view>

namespace sign {

/// The text of a requirement, as Apple's tools print it and seals hold it. Any thread.
[[nodiscard]] std::string requirementText(const Requirement& requirement);

/// "designated", "host" and so on.
[[nodiscard]] std::string_view requirementKindName(RequirementKind kind);

/// Reads the text of one requirement. The error says what is not understood. Any thread.
[[nodiscard]] base::Result<Requirement> parsedRequirement(std::string_view text);

/// Reads the text of a set, "KIND => REQUIREMENT" each. Any thread.
[[nodiscard]] base::Result<RequirementSet> parsedRequirementSet(std::string_view text);

} // namespace sign
