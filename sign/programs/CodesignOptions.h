#pragma once

#include "base/Result.h"
#include "sign/Signer.h"
#include "sign/signature/Requirement.h"

#include <optional>
#include <string>
#include <vector>

namespace sign {

/// What kelpmoray-codesign is asked to do.
enum class Operation { None, Sign, Verify, Display, RemoveSignature, Plan, Help, Version };

/// The command line of kelpmoray-codesign, read; identities and files are not looked up yet.
struct CodesignOptions {
    Operation operation = Operation::None;
    std::string identity; ///< as given: a hash, a part of a name, or "-"
    SigningOptions signing;
    bool strict = false;
    unsigned verbosity = 0;
    std::optional<Requirement> requirement; ///< of -R
    bool showRequirements = false;
    bool showEntitlements = false;
    bool json = false; ///< facts for programs, in place of text for people
    std::vector<std::string> paths;
};

/// Reads the command line; entitlements and requirements that it names are read from their files.
/// The error is one of usage.
[[nodiscard]] base::Result<CodesignOptions> readCodesignOptions(int count, char** arguments);

extern const char* const codesignUsage;

} // namespace sign
