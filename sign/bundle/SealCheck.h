#pragma once

#include "base/Bytes.h"
#include "base/Result.h"
#include "sign/bundle/Bundle.h"
#include "sign/signature/FaultCode.h"

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace sign {

/// What became of a file since it was sealed. None: it is as it was, but may not be there.
enum class SealChange { None, Added, Modified, Missing };

/// As lines of the program tell it: "added", "refused" for None.
[[nodiscard]] std::string_view changeName(SealChange change);

/// One thing that is wrong with what a seal holds.
struct SealFault {
    FaultCode code;
    std::string file; ///< starts with the bundle's path
    SealChange change = SealChange::None;
};

/// Nested code that a seal names. Checking it is up to the caller: it must be validly signed and
/// satisfy `requirement` (fault BadNestedCode); if strict and a framework, so must its
/// otherVersions() (fault BadFrameworkVersion).
struct SealedCode {
    std::string path;
    std::string requirement; ///< text
    bool isFramework = false;
    bool isFile = false; ///< else a bundle
};

/// A bundle whose seal is being checked, for the links in the code that it holds.
struct SealScope;

struct SealChecking {
    bool strict = false;
    bool sha1 = false;    ///< there is a code directory with SHA-1, so each file needs that hash
    bool sha256 = true;   ///< same, with SHA-256
    unsigned threads = 1; ///< how many hash files at once
    /// The files of _CodeSignature that the signature uses: CodeResources, and those of
    /// readLooseSignature().
    std::vector<std::string> signatureFiles = {"CodeResources"};
    std::shared_ptr<const SealScope> outer; ///< of the bundle that holds this one, if any
};

struct SealReport {
    std::vector<SealFault> faults; ///< obsolete rules, then what is sealed, by the files' names
    std::vector<SealedCode> nested;
    /// What lies beside the seal; only if strict. The platform tells of it last.
    std::vector<SealFault> structureFaults;
    std::shared_ptr<const SealScope> scope; ///< the `outer` of what is nested
};

/// Compares a bundle with its seal: each file of the bundle is read once. The caller has compared
/// `seal` with special slot 3; it is freed once it is read. The error is one of the system, or
/// tells what of the seal or the bundle is not taken here though the platform may take it.
[[nodiscard]] base::Result<SealReport> checkSeal(const Bundle& bundle, base::OwnedBytes seal,
                                                 const SealChecking& checking);

} // namespace sign
