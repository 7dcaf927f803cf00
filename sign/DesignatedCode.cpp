#include "sign/DesignatedCode.h"

#include "sign/bundle/NestedCode.h"
#include "sign/files/FileTree.h"
#include "sign/signature/DesignatedRequirement.h"
#include "sign/signature/RequirementText.h"

#include <algorithm>

namespace sign {
namespace {

/// The hashes of a signature's code directories, by the number of their hash.
std::vector<Digest> hashesOf(const SignatureParts& parts) {
    std::vector<const CodeDirectory*> sorted;
    for (const CodeDirectory& directory : parts.directories)
        sorted.push_back(&directory);
    std::ranges::sort(sorted, {}, [](const CodeDirectory* one) { return one->facts().hashType; });
    std::vector<Digest> hashes;
    for (const CodeDirectory* directory : sorted)
        hashes.push_back(directory->cdhash());
    return hashes;
}

std::size_t nativeOf(const StaticCode& code) {
    return code.file().isMachO() ? code.file().nativeSlice() : 0;
}

/// Absent if the signature names none.
base::Result<std::optional<Requirement>> namedRequirement(const SignatureParts& parts) {
    const base::OwnedBytes* blob = parts.component(slot::requirements);
    if (blob == nullptr)
        return std::optional<Requirement>();
    auto set = readRequirementSet(*blob);
    if (!set)
        return set.error();
    const auto found = set->find(RequirementKind::Designated);
    if (found == set->end())
        return std::optional<Requirement>();
    return std::optional(found->second);
}

base::Result<Requirement> requirementOf(const StaticCode& code, const SignatureParts& parts,
                                        const SignatureReader& signatures) {
    auto named = namedRequirement(parts);
    if (!named)
        return named.error();
    if (*named)
        return std::move(**named);
    std::vector<Digest> hashes = hashesOf(parts);
    for (std::size_t index = 0; index < code.signatureCount(); ++index) {
        if (index == nativeOf(code))
            continue;
        auto other = signatures(index);
        if (!other)
            return other.error();
        std::ranges::move(hashesOf(*other), std::back_inserter(hashes));
    }
    return adHocDesignatedRequirement(hashes);
}

SignatureReader signaturesOf(const StaticCode& code) {
    return [&code](std::size_t index) { return code.signature(index); };
}

} // namespace

base::Result<Requirement> designatedRequirement(const StaticCode& code) {
    const auto parts = code.signature(nativeOf(code));
    if (!parts)
        return parts.error();
    return requirementOf(code, *parts, signaturesOf(code));
}

base::Result<NestedSeal> nestedSealOf(const StaticCode& code, const SignatureReader& signatures) {
    const auto parts = signatures(nativeOf(code));
    if (!parts)
        return base::Error{parts.error().kind, parts.error().sentence + "\nIn subcomponent: " +
                                                   realPath(code.path()).value_or(code.path())};
    auto requirement = requirementOf(code, *parts, signatures);
    if (!requirement)
        return requirement.error();
    const Digest hash = parts->best().cdhash();
    return NestedSeal{{hash.bytes().begin(), hash.bytes().end()}, requirementText(*requirement)};
}

base::Result<NestedSeal> lookUpNested(const std::string& path, FileWatch& watch) {
    auto code = StaticCode::open(path);
    if (!code)
        return isFolder(path) ? noBundle(path, code.error()) : code.error();
    watch.addFile(code->file().path(), code->file().stamp());
    return nestedSealOf(*code, signaturesOf(*code));
}

} // namespace sign
