#include "sign/signature/DesignatedRequirement.h"

#include "base/ByteReader.h"

#include <algorithm>
#include <array>

namespace sign {
namespace {

using Op = Requirement::Op;

// Extensions with which Apple marks its certificates (Apple's Worldwide Developer Relations and
// Developer ID certification practice statements).
constexpr const char* developerIdAuthority = "1.2.840.113635.100.6.2.6";
constexpr const char* developerIdApplication = "1.2.840.113635.100.6.1.13";
constexpr const char* developerRelationsAuthority = "1.2.840.113635.100.6.2.1";
constexpr std::array developerLeaves = {
    "1.2.840.113635.100.6.1.2",  // development, iPhone
    "1.2.840.113635.100.6.1.12", // development, Mac
    "1.2.840.113635.100.6.1.7",  // distribution, Mac
    "1.2.840.113635.100.6.1.4",  // distribution, iPhone
};

std::string subjectField(const CertificateFacts& certificate, std::string_view name) {
    const auto field = certificate.subject.find(name);
    return field == certificate.subject.end() ? std::string() : field->second;
}

bool has(const CertificateFacts& certificate, std::string_view extension) {
    return certificate.extensions.contains(extension);
}

bool isUnderAppleRoot(std::span<const CertificateFacts> chain) {
    return !chain.empty() && chain.back().isAppleRoot;
}

bool isDeveloperId(std::span<const CertificateFacts> chain) {
    return isUnderAppleRoot(chain) && chain.size() > 1 && has(chain[1], developerIdAuthority) &&
           has(chain.front(), developerIdApplication);
}

Requirement extension(CertificateSlot slot, const char* oid) {
    return {.op = Op::CertificateExtension, .slot = slot, .text = oid};
}

Requirement leafField(const char* name, std::string value) {
    return {.op = Op::CertificateField,
            .slot = 0,
            .text = std::string("subject.") + name,
            .match = {.kind = Match::Kind::Equal, .text = std::move(value)}};
}

/// The certificate that stays when a maker renews its leaf: the last one up the chain of the same
/// organization.
Requirement ownAnchor(std::span<const CertificateFacts> chain) {
    const std::string organization = subjectField(chain.front(), "O");
    std::size_t index = 0;
    if (!organization.empty()) {
        while (index + 1 < chain.size() && subjectField(chain[index + 1], "O") == organization)
            ++index;
    }
    const bool isRoot = !organization.empty() && index + 1 == chain.size();
    return {.op = Op::CertificateHash,
            .slot = isRoot ? -1 : static_cast<CertificateSlot>(index),
            .text = std::string(base::textOf(chain[index].sha1.bytes()))};
}

} // namespace

Requirement defaultDesignatedRequirement(const std::string& identifier,
                                         std::span<const CertificateFacts> chain) {
    std::vector<Requirement> parts = {{.op = Op::Identifier, .text = identifier}};
    if (!isUnderAppleRoot(chain)) {
        parts.push_back(ownAnchor(chain));
    } else if (chain.size() == 3 && has(chain[1], developerRelationsAuthority)) {
        parts.push_back({.op = Op::AnchorAppleGeneric});
        parts.push_back(leafField("CN", subjectField(chain[0], "CN")));
        parts.push_back(extension(1, developerRelationsAuthority));
    } else if (chain.size() == 3 && has(chain[1], developerIdAuthority)) {
        parts.push_back({.op = Op::AnchorAppleGeneric});
        parts.push_back(extension(1, developerIdAuthority));
        parts.push_back(extension(0, developerIdApplication));
        parts.push_back(leafField("OU", subjectField(chain[0], "OU")));
    } else {
        parts.push_back({.op = Op::AnchorApple});
    }
    return allOf(std::move(parts));
}

Requirement adHocDesignatedRequirement(std::span<const Digest> codeDirectoryHashes) {
    std::vector<Requirement> parts;
    for (const Digest& hash : codeDirectoryHashes)
        parts.push_back(
            {.op = Op::CodeDirectoryHash, .text = std::string(base::textOf(hash.bytes()))});
    return parts.empty() ? Requirement{} : anyOf(std::move(parts));
}

std::optional<std::string> teamOf(std::span<const CertificateFacts> chain) {
    if (!isUnderAppleRoot(chain))
        return std::nullopt;
    const CertificateFacts& leaf = chain.front();
    const bool isDeveloper =
        isDeveloperId(chain) ||
        std::ranges::any_of(developerLeaves, [&](const char* oid) { return has(leaf, oid); });
    std::string team = subjectField(leaf, "OU");
    if (!isDeveloper || team.empty())
        return std::nullopt;
    return team;
}

bool lacksTeam(std::span<const CertificateFacts> chain) {
    return isDeveloperId(chain) && !teamOf(chain);
}

} // namespace sign
