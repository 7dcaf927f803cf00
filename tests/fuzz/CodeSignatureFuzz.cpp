#include "base/ByteReader.h"
#include "sign/SignatureCms.h"
#include "sign/StaticCode.h"
#include "sign/signature/Entitlements.h"
#include "sign/signature/RequirementText.h"
#include "tests/fuzz/FuzzInput.h"

namespace {

/// The text of a requirement is read as one that has the same text.
void requireSameText(const sign::Requirement& requirement) {
    const std::string text = sign::requirementText(requirement);
    const auto read = sign::parsedRequirement(text);
    if (read)
        require(sign::requirementText(*read) == text, "the text of a requirement stays the same");
}

void checkRequirements(base::Bytes blob) {
    const auto set = sign::readRequirementSet(blob);
    if (!set)
        return;
    const auto again = sign::readRequirementSet(sign::requirementSetBlob(*set));
    require(again && *again == *set, "requirements are read as they were written");
    for (const auto& [kind, requirement] : *set)
        requireSameText(requirement);
}

void checkParts(const sign::SignatureParts& parts) {
    require(!parts.directories.empty(), "a signature has a code directory");
    for (const sign::CodeDirectory& directory : parts.directories) {
        require(directory.pages().size() == directory.facts().codeCount() * directory.hashSize(),
                "each page has a hash");
        require(directory.cdhash().size() == 20, "a code directory has a hash");
        for (std::uint32_t slot = 0; slot < 16; ++slot)
            (void)directory.special(slot);
    }
    if (const auto* blob = parts.component(sign::slot::requirements))
        checkRequirements(*blob);
    if (const auto* blob = parts.component(sign::slot::entitlements))
        (void)sign::entitlementsFromBlob(*blob, "fuzz");
    (void)sign::signerFactsOf(parts.cms);
    std::vector<sign::CertificateFacts> chain;
    (void)sign::checkSigner(parts, chain);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const base::Bytes bytes(data, size);
    if (const auto parts = sign::readSignature(bytes, "fuzz"))
        checkParts(*parts);
    checkRequirements(bytes);
    if (const auto requirement = sign::readRequirement(bytes))
        requireSameText(*requirement);
    if (const auto requirement = sign::parsedRequirement(base::textOf(bytes)))
        requireSameText(*requirement);
    (void)sign::parsedRequirementSet(base::textOf(bytes));
    return 0;
}
