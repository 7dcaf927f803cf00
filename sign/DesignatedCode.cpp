#include "sign/DesignatedCode.h"

#include "sign/bundle/FileTree.h"
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
    const Blob* blob = parts.component(slot::requirements);
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

} // namespace

base::Result<Requirement> designatedRequirement(const StaticCode& code) {
    const std::size_t native = nativeOf(code);
    auto parts = code.signature(native);
    if (!parts)
        return parts.error();
    auto named = namedRequirement(*parts);
    if (!named)
        return named.error();
    if (*named)
        return std::move(**named);
    std::vector<Digest> hashes = hashesOf(*parts);
    for (std::size_t index = 0; index < code.signatureCount(); ++index) {
        if (index == native)
            continue;
        auto other = code.signature(index);
        if (!other)
            return other.error();
        std::ranges::move(hashesOf(*other), std::back_inserter(hashes));
    }
    return adHocDesignatedRequirement(hashes);
}

base::Result<NestedSeal> lookUpNested(const std::string& path) {
    auto code = StaticCode::open(path);
    if (!code)
        return code.error();
    auto parts = code->signature(nativeOf(*code));
    if (!parts)
        return base::Error{parts.error().kind, parts.error().sentence + "\nIn subcomponent: " +
                                                   realPath(path).value_or(path)};
    auto requirement = designatedRequirement(*code);
    if (!requirement)
        return requirement.error();
    const Digest hash = parts->best().cdhash();
    return NestedSeal{{hash.bytes().begin(), hash.bytes().end()}, requirementText(*requirement)};
}

} // namespace sign
