#pragma once

#include "core/ItemProcessing.h"

#include <string>

/// What a script's last line says became of its package.
struct ScriptOutcome {
    enum class Kind { Packed, Signed, Unsigned, Failed };
    Kind kind;
    /// The path of the archive or package; for a failure what failed and what to do.
    std::string detail;
};

/// Reads the last line of the run's output: "packed: PATH", "signed: PATH", "unsigned: PATH" or
/// "error: WHAT: REMEDY". Anything else, or no output, is a failure too.
[[nodiscard]] ScriptOutcome outcomeOf(const ScriptRun& run);

/// Whether the script quotes a tool that has told something of the package, such as what is left
/// out or where entitlements come from. Signing anew is nothing to tell.
[[nodiscard]] bool hasNotes(const ScriptRun& run);
