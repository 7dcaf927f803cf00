#include "sign/SignatureCms.h"

#include "sign/signature/DesignatedRequirement.h"

#include <ctime>

namespace sign {
namespace {

std::vector<DirectoryDigest> digestsOf(const std::vector<CodeDirectory>& directories) {
    std::vector<DirectoryDigest> digests;
    for (const CodeDirectory& directory : directories) {
        const HashType type = directory.facts().hashType;
        // A hash that is cut in the directory is whole in the CMS.
        const HashType whole = type == HashType::Sha256Cut ? HashType::Sha256 : type;
        digests.push_back({type, digestOf(whole, directory.blob())});
    }
    return digests;
}

} // namespace

std::vector<CertificateFacts> signingChain(const Identity& identity) {
    return factsOf(identity.chain);
}

base::Result<CmsSignature> makeSignature(const Identity& identity,
                                         const std::vector<CodeDirectory>& directories) {
    return CmsSignature::make(identity, directories.front().blob(), digestsOf(directories),
                              std::time(nullptr));
}

base::Outcome stampSignature(CmsSignature& cms, const TimeStampReply& reply) {
    const auto token = reply.token(cms.value(), cms.chain());
    return token ? cms.addTimeStamp(*token) : token.error();
}

SignerFacts signerFactsOf(const base::OwnedBytes& cms) {
    const auto read = readCms(cms);
    if (!read)
        return {};
    SignerFacts facts{{}, read->signingTime, read->timeStamp};
    for (const Certificate& certificate : read->chain)
        facts.authorities.push_back(certificate.label());
    return facts;
}

std::optional<FaultCode> checkSigner(const SignatureParts& parts,
                                     std::vector<CertificateFacts>& chain) {
    chain.clear();
    const bool isAdhoc = (parts.best().facts().flags & flag::adhoc) != 0;
    if (isAdhoc && parts.cms.empty())
        return std::nullopt;
    if (isAdhoc || parts.cms.empty())
        return FaultCode::SignatureFailed;
    const auto checked =
        checkCms(parts.cms, parts.directories.front().blob(), digestsOf(parts.directories));
    if (!checked)
        return FaultCode::SignatureFailed;
    chain = factsOf(checked->chain);
    for (const CodeDirectory& directory : parts.directories)
        if (directory.facts().team != teamOf(chain).value_or(""))
            return FaultCode::InvalidTeamIdentifier;
    return std::nullopt;
}

} // namespace sign
