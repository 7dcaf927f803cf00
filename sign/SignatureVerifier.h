#pragma once

#include "base/Result.h"
#include "sign/bundle/SealCheck.h"
#include "sign/signature/FaultCode.h"
#include "sign/signature/Requirement.h"

#include <optional>
#include <string>
#include <vector>

namespace sign {

struct VerifyOptions {
    bool deep = false;                      ///< nested code whole, too; else only who signed it
    bool strict = false;                    ///< also what only the platform's strict mode looks at
    std::optional<Requirement> requirement; ///< that the code must meet besides
    std::string bundleVersion;              ///< of a framework; the current one if empty
    unsigned threads = 1;
};

/// Why code is not valid.
struct VerifyFault {
    FaultCode code;
    std::string subcomponent;       ///< absolute path of the nested code; empty if it is the code
    std::string architecture;       ///< empty if there is only one, or it is of no matter
    std::vector<SealFault> changes; ///< of sealed files, if it is about those
};

struct VerifyReport {
    std::vector<VerifyFault> faults; ///< the one to be told first; empty if the code is valid
    bool meetsRequirement = true;    ///< the one that was asked for
    std::vector<std::string> nested; ///< paths of the nested code that was found valid
};

/// Checks the signatures of the code at `path` as the platform does before it runs it, but for
/// revoked certificates. Each byte is read once, by all threads; a file that cannot be read is an
/// error. Any thread.
[[nodiscard]] base::Result<VerifyReport> verify(const std::string& path,
                                                const VerifyOptions& options);

} // namespace sign
