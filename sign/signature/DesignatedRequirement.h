#pragma once

#include "sign/signature/RequirementCheck.h"

#include <optional>
#include <span>
#include <string>

namespace sign {

/// The requirement that code signed with this chain (leaf first, root last) designates for itself
/// if the user gives none: later versions meet it, other makers' code does not. Any thread.
[[nodiscard]] Requirement defaultDesignatedRequirement(const std::string& identifier,
                                                       std::span<const CertificateFacts> chain);

/// That of ad hoc signed code, which is nowhere stored: any of these code directories, each hash of
/// 20 bytes. Any thread.
[[nodiscard]] Requirement adHocDesignatedRequirement(std::span<const Digest> codeDirectoryHashes);

/// The team that the chain stands for: the leaf's organizational unit, if Apple issued the chain to
/// a developer. None for others. Any thread.
[[nodiscard]] std::optional<std::string> teamOf(std::span<const CertificateFacts> chain);

/// Whether it is a Developer ID's and names no team, without which no such code is valid. Any
/// thread.
[[nodiscard]] bool lacksTeam(std::span<const CertificateFacts> chain);

} // namespace sign
