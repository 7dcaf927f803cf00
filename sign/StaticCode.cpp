#include "sign/StaticCode.h"

#include "sign/bundle/LooseSignature.h"
#include "sign/files/FileTree.h"

#include <algorithm>
#include <array>
#include <cerrno>

#include <sys/stat.h>
#include <unistd.h>

namespace sign {
namespace {

/// Far more than any seal has.
constexpr std::uint64_t mostSealSize = 1U << 30U;

base::Error notSigned() {
    return {base::ErrorKind::NotFound, std::string(faultMessage(FaultCode::NotSigned))};
}

base::Outcome checkDirectories(const SignatureParts& parts, std::string_view name) {
    std::vector<HashType> types;
    for (const CodeDirectory& directory : parts.directories)
        types.push_back(directory.facts().hashType);
    std::ranges::sort(types);
    if (std::ranges::adjacent_find(types) != types.end())
        return damagedSignature(name, "two code directories have the same hash");
    return {};
}

/// The magic that a blob must have in its slot; nothing for slots that are not known.
std::optional<BlobMagic> magicOfSlot(std::uint32_t number) {
    if (number == slot::codeDirectory ||
        (number >= slot::firstAlternate && number <= slot::lastAlternate))
        return BlobMagic::CodeDirectory;
    if (number >= slot::firstConstraint && number <= slot::lastConstraint)
        return BlobMagic::Constraint;
    switch (number) {
    case slot::requirements:
        return BlobMagic::Requirements;
    case slot::entitlements:
        return BlobMagic::Entitlements;
    case slot::entitlementsDer:
        return BlobMagic::EntitlementsDer;
    case slot::cms:
    case slot::ticket:
        return BlobMagic::Wrapper;
    default:
        return std::nullopt;
    }
}

base::Result<SignatureParts> looseSignature(const Bundle& bundle) {
    auto loose = readLooseSignature(bundle);
    if (!loose)
        return loose.error();
    SignatureParts parts;
    for (base::OwnedBytes& blob : loose->directories) {
        auto directory = CodeDirectory::read(std::move(blob), bundle.path);
        if (!directory)
            return directory.error();
        parts.directories.push_back(std::move(*directory));
    }
    for (const auto& [number, blob] : {std::pair{slot::requirements, &loose->requirements},
                                       std::pair{slot::entitlements, &loose->entitlements},
                                       std::pair{slot::entitlementsDer, &loose->entitlementsDer}})
        if (*blob)
            parts.components.emplace(number, **blob);
    parts.cms = loose->cms.value_or(base::OwnedBytes());
    if (auto checked = checkDirectories(parts, bundle.path); !checked)
        return checked.error();
    return parts;
}

} // namespace

const CodeDirectory& SignatureParts::best() const {
    constexpr std::array preferred{HashType::Sha384, HashType::Sha256, HashType::Sha256Cut};
    for (const HashType type : preferred)
        for (const CodeDirectory& directory : directories)
            if (directory.facts().hashType == type)
                return directory;
    return directories.front();
}

bool SignatureParts::isLinkerSigned() const {
    return (directories.front().facts().flags & flag::linkerSigned) != 0;
}

const base::OwnedBytes* SignatureParts::component(std::uint32_t slot) const {
    const auto found = components.find(slot);
    return found == components.end() ? nullptr : &found->second;
}

base::Result<SignatureParts> readSignature(base::Bytes bytes, std::string_view name) {
    auto blobs = readSuperBlob(BlobMagic::EmbeddedSignature, bytes, name);
    if (!blobs)
        return blobs.error();
    if (!blobs->contains(slot::codeDirectory))
        return damagedSignature(name, "it has no code directory");
    SignatureParts parts;
    std::uint32_t nextAlternate = slot::firstAlternate;
    for (auto& [number, blob] : *blobs) {
        if (const auto magic = magicOfSlot(number); magic && magicOf(blob) != std::uint32_t(*magic))
            return damagedSignature(name, "a part of it is not what its place says");
        const bool isAlternate = number >= slot::firstAlternate && number <= slot::lastAlternate;
        if (isAlternate && number != nextAlternate++)
            return damagedSignature(name, "an alternate code directory is missing");
        if (isAlternate || number == slot::codeDirectory) {
            auto directory = CodeDirectory::read(std::move(blob), name);
            if (!directory)
                return directory.error();
            parts.directories.push_back(std::move(*directory));
        } else if (number == slot::cms) {
            const base::Bytes content = contentOf(blob);
            parts.cms.assign(content.begin(), content.end());
        } else {
            parts.components.emplace(number, std::move(blob));
        }
    }
    if (auto checked = checkDirectories(parts, name); !checked)
        return checked.error();
    return parts;
}

base::Result<StaticCode> StaticCode::open(const std::string& path, std::string_view version) {
    std::string clean = withoutSlashes(path);
    struct stat status {};
    if (::stat(clean.c_str(), &status) != 0)
        return base::systemError("open", clean, errno);
    std::optional<std::string> folder;
    if (S_ISDIR(status.st_mode))
        folder = clean;
    else
        folder = bundleOfExecutable(clean);
    if (!folder)
        return openFile(clean);
    auto bundle = openBundle(*folder, version);
    if (!bundle)
        return bundle.error();
    auto file = CodeFile::open(bundle->executable);
    if (!file)
        return file.error();
    return StaticCode(std::move(clean), std::move(*bundle), std::move(*file));
}

base::Result<StaticCode> StaticCode::openFile(const std::string& path) {
    auto file = CodeFile::open(path);
    if (!file)
        return file.error();
    return StaticCode(path, std::nullopt, std::move(*file));
}

std::size_t StaticCode::signatureCount() const {
    return std::max<std::size_t>(file_.slices().size(), 1);
}

base::Result<SignatureParts> StaticCode::signature(std::size_t index) const {
    if (!file_.isMachO())
        return bundle_ ? looseSignature(*bundle_) : base::Result<SignatureParts>(notSigned());
    const MachSlice& slice = file_.slices()[index];
    if (!slice.signature)
        return notSigned();
    auto bytes = file_.read({slice.offset + slice.signature->offset, slice.signature->size});
    if (!bytes)
        return bytes.error();
    return readSignature(*bytes, file_.path());
}

base::Result<std::optional<base::OwnedBytes>> StaticCode::infoPlist(std::size_t index) const {
    if (bundle_ && !bundle_->infoPlist.empty())
        return std::optional(bundle_->infoBytes);
    if (!file_.isMachO() || !file_.slices()[index].infoPlist)
        return std::optional<base::OwnedBytes>();
    const MachSlice& slice = file_.slices()[index];
    if (slice.infoPlist->size > mostPropertyListBytes)
        return damagedSignature(path_, "its embedded Info.plist is too large");
    auto bytes = file_.read({slice.offset + slice.infoPlist->offset, slice.infoPlist->size});
    if (!bytes)
        return bytes.error();
    return std::optional(std::move(*bytes));
}

base::Result<std::optional<base::OwnedBytes>> StaticCode::seal() const {
    if (!bundle_ || !isFile(bundle_->sealPath())) {
        // A seal that must not be seen may be there.
        if (bundle_ && ::access(bundle_->sealPath().c_str(), F_OK) != 0 && errno == EACCES)
            return base::systemError("read", bundle_->sealPath(), errno);
        return std::optional<base::OwnedBytes>();
    }
    auto bytes = wholeFile(bundle_->sealPath(), Links::Refuse, mostSealSize);
    if (!bytes)
        return bytes.error();
    return std::optional(std::move(*bytes));
}

} // namespace sign
