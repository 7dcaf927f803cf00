#pragma once

#include "base/Result.h"
#include "sign/crypto/Digest.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

// Code requirements: conditions on code and its certificates, in the form of Apple's requirement
// language ("Code Signing Requirement Language" in Apple's documentation archive).
namespace sign {

/// Which certificate of a chain: 0 is the leaf, 1 its issuer, and so on; -1 is the root.
using CertificateSlot = std::int32_t;

/// A comparison with a value that may be missing. The numbers are those of the bytes.
struct Match {
    enum class Kind : std::uint32_t {
        Exists = 0,
        Equal = 1,
        Contains = 2,
        BeginsWith = 3,
        EndsWith = 4,
        Less = 5,
        Greater = 6,
        LessOrEqual = 7,
        GreaterOrEqual = 8,
        On = 9,
        Before = 10,
        After = 11,
        OnOrBefore = 12,
        OnOrAfter = 13,
        Absent = 14,
    };
    Kind kind = Kind::Exists;
    std::string text{};       ///< what is compared with, for kinds up to GreaterOrEqual
    std::int64_t seconds = 0; ///< since 2001, for On to OnOrAfter

    bool operator==(const Match&) const = default;
};

/// One expression; its operands are expressions too.
struct Requirement {
    /// The numbers are those of the bytes.
    enum class Op : std::uint32_t {
        Never = 0,
        Always = 1,
        Identifier = 2,
        AnchorApple = 3,
        CertificateHash = 4,
        InfoEquals = 5,
        And = 6,
        Or = 7,
        CodeDirectoryHash = 8,
        Not = 9,
        Info = 10,
        CertificateField = 11,
        CertificateTrusted = 12,
        AnchorTrusted = 13,
        CertificateExtension = 14,
        AnchorAppleGeneric = 15,
        Entitlement = 16,
        CertificatePolicy = 17,
        NamedAnchor = 18,
        NamedCode = 19,
        Platform = 20,
        Notarized = 21,
        CertificateTimestamp = 22,
        Legacy = 23,
    };
    Op op = Op::Never;
    CertificateSlot slot = 0; ///< of the certificate; the number of Platform
    /// Identifier, key, field name, dotted OID or name; the value of a hash as its bytes.
    std::string text{};
    Match match{};
    std::vector<Requirement> operands{}; ///< two of And and Or, one of Not

    bool operator==(const Requirement&) const = default;
};

/// How many expressions one may consist of, itself and operators included. A text or a blob with
/// more is refused: what looks at requirements calls itself for each level.
inline constexpr int mostExpressions = 400;

/// Requirements by what they are for; the numbers are those of the bytes.
enum class RequirementKind : std::uint32_t { Host = 1, Guest, Designated, Library, Plugin };
using RequirementSet = std::map<RequirementKind, Requirement>;

/// The blob of one requirement (magic fade0c00), and of a set (fade0c01). Any thread.
[[nodiscard]] base::OwnedBytes requirementBlob(const Requirement& requirement);
[[nodiscard]] base::OwnedBytes requirementSetBlob(const RequirementSet& set);

/// Reads such a blob, which must end where it says. Any thread.
[[nodiscard]] base::Result<Requirement> readRequirement(base::Bytes blob);
[[nodiscard]] base::Result<RequirementSet> readRequirementSet(base::Bytes blob);

/// What makes a requirement of parts, as the compiler does: to the right.
[[nodiscard]] Requirement allOf(std::vector<Requirement> parts);
[[nodiscard]] Requirement anyOf(std::vector<Requirement> parts);

} // namespace sign
