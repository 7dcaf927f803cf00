#pragma once

#include "core/MainBundle.h"

#include <string>

/// The tools whose paths stand, unquoted, in command lines: none of them may hold a blank.
struct ToolPaths {
    std::string security = "/usr/bin/security";
    std::string codesign = "/usr/bin/codesign";
    std::string awk = "/usr/bin/awk";

    /// The system's tools if it has them; else those of this installation, which take the same
    /// arguments and print the same lines.
    [[nodiscard]] static ToolPaths of(const MainBundle& bundle);
    /// Whether our own tool keeps the identities: then they can be changed through it.
    [[nodiscard]] bool hasOwnSecurity() const;
};
