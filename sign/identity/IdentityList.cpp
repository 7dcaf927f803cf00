#include "sign/identity/IdentityList.h"

#include "sign/files/FileTree.h"
#include "sign/identity/CertificateChain.h"
#include "sign/identity/TrustedRoots.h"
#include "sign/signature/DesignatedRequirement.h"

#include <algorithm>
#include <ctime>

namespace sign {
namespace {

bool isHash(std::string_view text) {
    return text.size() == 40 &&
           text.find_first_not_of("0123456789ABCDEFabcdef") == std::string_view::npos;
}

/// Names the certificate that has expired, if it is an issuer's.
std::string expiredSentence(const std::vector<Certificate>& chain, std::int64_t now) {
    const auto expired = std::ranges::find_if(
        chain, [now](const Certificate& certificate) { return now > certificate.notAfter(); });
    if (expired == chain.begin())
        return "its certificate has expired. Request a new one.";
    return "the certificate \"" + expired->label() +
           "\" in its chain has expired. Get the issuer's new one, and import the identity again "
           "with --chain.";
}

bool isTrusted(const std::vector<Certificate>& chain) {
    // A self-signed certificate that is kept here is trusted.
    return chain.size() == 1 || countsAsAppleRoot(chain.back());
}

std::string sentenceOf(IdentityFault fault, const KeptCertificate& kept, std::int64_t now) {
    switch (fault) {
    case IdentityFault::None:
        return "";
    case IdentityFault::NoKey:
        return "its key is missing. Import the file that holds it.";
    case IdentityFault::NotForCode:
        return "its certificate is not for code signing. Request one that is.";
    case IdentityFault::NoTeam:
        return "its certificate is a Developer ID, but names no team (OU). Request a new one.";
    case IdentityFault::WrongKey:
        return "its key is neither plain RSA nor ECDSA. Request a certificate for one that is.";
    case IdentityFault::Expired:
        return expiredSentence(kept.chain, now);
    case IdentityFault::NotYetValid:
        return "its certificate is not valid yet. Check the clock.";
    case IdentityFault::ChainIncomplete:
        return "its chain is incomplete; import it again. " +
               completeChain(kept.chain.front(), kept.known).error().sentence;
    case IdentityFault::NotTrusted:
        return "its root certificate is not trusted. Put it into the folder roots of the "
               "identities.";
    }
    return "";
}

/// What it lacks to sign, in the list or not.
IdentityFault faultToSign(const KeptCertificate& kept, std::int64_t now) {
    if (const auto listed = faultOf(kept, now); listed != IdentityFault::None)
        return listed;
    if (lacksTeam(factsOf(kept.chain)))
        return IdentityFault::NoTeam;
    return faultOf(kept.chain.front(), false);
}

} // namespace

base::Error noIdentity(std::string_view wanted) {
    return {base::ErrorKind::NotFound, std::string(wanted) + ": no identity found"};
}

std::string_view nameOf(IdentityFault fault) {
    switch (fault) {
    case IdentityFault::None:
        return "";
    case IdentityFault::NoKey:
        return "no key";
    case IdentityFault::NotForCode:
        return "CSSMERR_TP_VERIFY_ACTION_FAILED";
    case IdentityFault::WrongKey:
        return "unsupported key";
    case IdentityFault::NoTeam:
        return "no team";
    case IdentityFault::Expired:
        return "CSSMERR_TP_CERT_EXPIRED";
    case IdentityFault::NotYetValid:
        return "CSSMERR_TP_CERT_NOT_VALID_YET";
    case IdentityFault::ChainIncomplete:
        return "chain incomplete";
    case IdentityFault::NotTrusted:
        return "CSSMERR_TP_NOT_TRUSTED";
    }
    return "";
}

IdentityFault faultOf(const Certificate& leaf, bool withoutUsages) {
    if (!leaf.signsCode(withoutUsages) || !leaf.signsData())
        return IdentityFault::NotForCode;
    return leaf.hasKeyForCode() ? IdentityFault::None : IdentityFault::WrongKey;
}

IdentityFault faultOf(const KeptCertificate& kept, std::int64_t now) {
    if (!kept.hasKey)
        return IdentityFault::NoKey;
    if (const auto fault = faultOf(kept.chain.front(), true); fault != IdentityFault::None)
        return fault;
    for (const Certificate& certificate : kept.chain) {
        if (now > certificate.notAfter())
            return IdentityFault::Expired;
        if (now < certificate.notBefore())
            return IdentityFault::NotYetValid;
    }
    if (!kept.chain.back().isSelfIssued())
        return IdentityFault::ChainIncomplete;
    return isTrusted(kept.chain) ? IdentityFault::None : IdentityFault::NotTrusted;
}

base::Result<std::vector<ListedIdentity>> listIdentities() {
    const auto folder = IdentityFolder::ofUser();
    if (!folder)
        return folder.error();
    std::vector<ListedIdentity> list;
    const std::int64_t now = std::time(nullptr);
    for (const KeptCertificate& certificate : folder->certificates())
        list.push_back(
            {certificate.hash, certificate.chain.front().label(), faultOf(certificate, now)});
    return list;
}

base::Result<Identity> findIdentity(std::string_view hashOrNamePart) {
    const auto folder = IdentityFolder::ofUser();
    if (!folder)
        return folder.error();
    const auto kept = folder->certificates();
    std::vector<const KeptCertificate*> fitting;
    for (const KeptCertificate& certificate : kept) {
        const bool fits =
            isHash(hashOrNamePart)
                ? sameWithoutCase(certificate.hash, hashOrNamePart)
                : certificate.chain.front().label().find(hashOrNamePart) != std::string::npos;
        if (fits)
            fitting.push_back(&certificate);
    }
    const std::int64_t now = std::time(nullptr);
    // One that cannot sign gives way to others, such as its successor of the same name.
    const auto able = std::stable_partition(
        fitting.begin(), fitting.end(), [&](const KeptCertificate* certificate) {
            return faultToSign(*certificate, now) == IdentityFault::None;
        });
    const auto ableCount = static_cast<std::size_t>(able - fitting.begin());
    if (fitting.empty() || hashOrNamePart.empty())
        return noIdentity(hashOrNamePart);
    if (ableCount > 1)
        return base::Error{base::ErrorKind::Conflict,
                           std::string(hashOrNamePart) + ": ambiguous (matches \"" +
                               fitting[0]->chain.front().label() + "\" and \"" +
                               fitting[1]->chain.front().label() + "\")"};
    const KeptCertificate& chosen = *fitting.front();
    if (const auto fault = faultToSign(chosen, now); fault != IdentityFault::None)
        return base::Error{base::ErrorKind::Unavailable,
                           std::string(hashOrNamePart) +
                               ": this identity cannot sign: " + sentenceOf(fault, chosen, now)};
    auto key = folder->openKey(chosen);
    if (!key)
        return key.error();
    return Identity{chosen.hash, chosen.chain.front().label(), chosen.chain, *std::move(key)};
}

} // namespace sign
