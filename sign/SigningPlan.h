#pragma once

#include "sign/Signer.h"
#include "sign/StaticCode.h"
#include "sign/signature/Entitlements.h"

#include <optional>
#include <string>
#include <vector>

namespace sign {

/// What goes into all signatures of one code object, decided from the options, the old signature
/// and the code itself.
struct SigningPlan {
    std::string identifier;
    std::string team; ///< empty if there is none
    std::uint32_t flags = 0;
    std::optional<std::uint32_t> runtime; ///< in place of the SDK's version
    /// Of the old signatures, by slice, if a kernel takes them: good for the platform that has run
    /// the code since.
    std::vector<std::optional<std::uint8_t>> oldPageShifts;
    std::optional<Entitlements> entitlements;
    base::OwnedBytes requirements;
    bool withSha1 = false;
    bool replaces = false; ///< there is a signature that no linker made
};

/// Conflict if the code is signed and must not be signed again. `isOperand` is false for nested
/// code, which keeps its own identifier. Any thread.
[[nodiscard]] base::Result<SigningPlan> planSigning(const StaticCode& code,
                                                    const SigningOptions& options, bool isOperand);

/// The identifier of a file without any other: its name without folder, extension and all but the
/// first number behind it.
[[nodiscard]] std::string identifierOfFile(std::string_view path);

/// Page size of a slice's code directory, as a power of two: that of its processor's kernel.
[[nodiscard]] std::uint8_t pageShiftOf(const MachSlice& slice);

} // namespace sign
