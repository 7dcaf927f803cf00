#pragma once

#include "base/Result.h"
#include "sign/crypto/Digest.h"
#include "sign/signature/Requirement.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

// Signing of code for Apple's platforms. Start with sign() for a Mach-O file or a bundle; what was
// signed is checked by verify() (SignatureVerifier.h) and told by describe() (Description.h). All
// files are written aside and take the old ones' places when all are whole; nothing is ever half
// signed.
namespace sign {

struct Identity;

/// What of an old signature goes into the new one.
struct PreservedMetadata {
    bool identifier = false;
    bool entitlements = false;
    bool requirements = false;
    bool flags = false;
    bool runtime = false;
};

struct SigningOptions {
    std::shared_ptr<const Identity> identity;     ///< signed ad hoc if there is none
    bool force = false;                           ///< replace a signature that is there
    bool deep = false;                            ///< nested code as well, from inside out
    std::string identifier;                       ///< found from the code if empty
    std::string prefix;                           ///< put before identifiers without a dot
    std::optional<std::uint32_t> flags;           ///< of the code directory (CodeDirectory.h)
    std::optional<std::uint32_t> runtime;         ///< version as X<<16|Y<<8|Z; the SDK's if absent
    std::optional<base::OwnedBytes> entitlements; ///< XML, kept as it is; not of nested code
    std::optional<base::OwnedBytes>
        helperEntitlements;                     ///< same, of the applications nested in the code
    std::string entitlementsFile;               ///< as errors name where they are from
    std::string helperEntitlementsFile;         ///< same
    std::optional<RequirementSet> requirements; ///< not of nested code; the designated one is added
    std::string timestampUrl;                   ///< no time stamp if empty
    PreservedMetadata preserve;
    std::optional<std::uint8_t> pageShift; ///< kept from an old signature, or by the processor
    std::string bundleVersion;             ///< of a framework; the current one if empty
    unsigned threads = 1;
};

/// One code object that was signed.
struct SignedCode {
    std::string path;
    std::string format; ///< "app bundle with Mach-O thin (arm64)"
    std::string identifier;
};

/// Told while it happens.
struct SigningObserver {
    std::function<void(const std::string& path)> replacesSignature; ///< once, on any thread
    std::function<void(const SignedCode& code)> isSigned; ///< on the calling thread, inside out
    /// How many code objects of all are done, on the calling thread.
    std::function<void(std::size_t done, std::size_t total)> progresses;
    std::function<void(const std::string& sentence)> warns; ///< one at a time, on any thread
};

/// Signs the file or bundle at `path`. Conflict with "PATH: is already signed" if it is and `force`
/// is not given, or if another process signs it; Unavailable if the time stamp service does not
/// answer; Changed if what is signed or sealed is changed meanwhile. On failure all is as it was;
/// only if the system refuses to rename a file at the very end are some code objects new, each of
/// them whole. One call at a time in a process.
[[nodiscard]] base::Outcome sign(const std::string& path, const SigningOptions& options,
                                 const SigningObserver& observer);

/// Takes the signature away from the file or bundle at `path`, its seal too. Refused, with nothing
/// changed, if the bundle's layout has a breach, if the file is no Mach-O file, or (Conflict) if
/// another process signs it.
[[nodiscard]] base::Outcome removeSignature(const std::string& path,
                                            const std::string& bundleVersion);

} // namespace sign
