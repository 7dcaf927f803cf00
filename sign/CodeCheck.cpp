#include "sign/CodeCheck.h"

#include "sign/SignatureCms.h"
#include "sign/bundle/LooseSignature.h"
#include "sign/files/FileTree.h"
#include "sign/signature/Entitlements.h"
#include "sign/signature/RequirementText.h"

#include <algorithm>

namespace sign {
namespace {

/// Whether an error tells of the code and not of the system that keeps it.
bool isOfCode(const base::Error& error) {
    return error.kind == base::ErrorKind::Damaged || error.kind == base::ErrorKind::Unsupported ||
           error.kind == base::ErrorKind::Usage;
}

FaultCode faultOfSlot(std::uint32_t number) {
    if (number == slot::infoPlist)
        return FaultCode::InfoPlistFailed;
    return number == slot::resources ? FaultCode::ResourcesInvalid : FaultCode::SignatureFailed;
}

/// The first slot whose hash is not that of what it stands for.
std::optional<std::uint32_t> wrongSlot(const CodeDirectory& directory,
                                       const std::map<std::uint32_t, base::Bytes>& components) {
    std::uint32_t last = directory.facts().specialCount;
    for (const auto& [number, bytes] : components)
        if (number < slot::firstAlternate)
            last = std::max(last, number);
    // Numbers that no component has are checked up to the highest that means something.
    for (std::uint32_t number = 1; number <= last; ++number) {
        const auto component = components.find(number);
        const auto sealed = directory.special(number);
        if (component == components.end() && !sealed)
            continue;
        if (component == components.end() || !sealed ||
            digestOf(directory.facts().hashType, component->second) != *sealed)
            return number;
    }
    return std::nullopt;
}

} // namespace

void CodeCheck::fail(FaultCode code, const std::string& architecture) {
    own_.push_back({code, {}, architecture, {}});
}

base::Outcome CodeCheck::run(const CodeChecking& checking) {
    checking_ = checking;
    realPath_ = sign::realPath(checking.path).value_or(checking.path);
    if (auto opened = open(); !opened || !code_)
        return opened;
    for (std::size_t index = 0; index < code_->signatureCount(); ++index)
        if (auto checked = checkSlice(index); !checked)
            return checked;
    checkOuterRequirement();
    if (checking_.isShallow || isOtherCode_ || !own_.empty())
        return {};
    if (auto checked = checkResources(); !checked)
        return checked;
    return checking_.isStrict ? checkStrictly() : base::Outcome();
}

base::Outcome CodeCheck::open() {
    auto code = checking_.isLone ? StaticCode::openFile(checking_.path)
                                 : StaticCode::open(checking_.path, checking_.version);
    if (code) {
        code_.emplace(std::move(*code));
        return {};
    }
    if (!isOfCode(code.error()))
        return code.error();
    fail(isFolder(checking_.path) ? FaultCode::BadBundleFormat : FaultCode::BadObjectFormat);
    return {};
}

base::Outcome CodeCheck::checkSlice(std::size_t index) {
    Slice slice;
    slice.place = {0, code_->file().size()};
    if (code_->file().isMachO()) {
        const MachSlice& mach = code_->file().slices()[index];
        slice.place = {mach.offset, mach.size};
        if (code_->file().slices().size() > 1)
            slice.architecture = mach.architecture();
    }
    auto parts = code_->signature(index);
    if (!parts) {
        if (parts.error().kind == base::ErrorKind::NotFound)
            fail(FaultCode::NotSigned, slice.architecture);
        else if (isOfCode(parts.error()))
            fail(FaultCode::SignatureFailed, slice.architecture);
        else
            return parts.error();
        return {};
    }
    slice.parts = std::move(*parts);
    if (const auto fault = checkSigner(slice.parts, slice.facts.chain)) {
        fail(*fault, slice.architecture);
        return {};
    }
    if (auto checked = checkSlots(slice, index); !checked)
        return checked;
    if (auto read = readFacts(slice, index); !read)
        return read;
    slices_.push_back(std::move(slice));
    return {};
}

base::Outcome CodeCheck::checkSlots(Slice& slice, std::size_t index) {
    std::map<std::uint32_t, base::Bytes> components(slice.parts.components.begin(),
                                                    slice.parts.components.end());
    const auto info = code_->infoPlist(index);
    if (!info)
        return info.error();
    if (*info)
        components.emplace(slot::infoPlist, **info);
    if (index == 0) {
        auto seal = code_->seal();
        if (!seal)
            return seal.error();
        sealBytes_ = std::move(*seal);
    }
    if (sealBytes_)
        components.emplace(slot::resources, *sealBytes_);
    for (const CodeDirectory& directory : slice.parts.directories) {
        const bool isLinkerSigned = slice.parts.isLinkerSigned();
        // Linkers seal nothing but the pages.
        if (isLinkerSigned && directory.facts().specialCount == 0)
            continue;
        if (!sealBytes_ && directory.special(slot::resources)) {
            fail(FaultCode::NoResources, slice.architecture);
            return {};
        }
        if (const auto number = wrongSlot(directory, components))
            fail(faultOfSlot(*number), slice.architecture);
    }
    return {};
}

base::Outcome CodeCheck::readFacts(Slice& slice, std::size_t index) {
    const CodeDirectory& best = slice.parts.best();
    slice.facts.identifier = best.facts().identifier;
    slice.facts.codeDirectoryHashes = {best.cdhash()};
    slice.facts.platform = best.facts().platform;
    const std::uint64_t limit = best.facts().codeLimit;
    const bool isWhole = code_->file().isMachO() || limit == slice.place.size;
    for (const CodeDirectory& directory : slice.parts.directories)
        if (directory.facts().codeLimit > slice.place.size || !isWhole) {
            fail(FaultCode::SignatureFailed, slice.architecture);
            return {};
        }
    if (const auto info = code_->infoPlist(index); info && *info) {
        auto plist = readPropertyList(**info, code_->path());
        if (!plist)
            fail(FaultCode::InfoPlistFailed, slice.architecture);
        else
            slice.facts.info = std::move(*plist);
    }
    if (const base::OwnedBytes* blob = slice.parts.component(slot::entitlements)) {
        auto entitlements = entitlementsFromBlob(*blob, code_->path());
        if (!entitlements)
            fail(FaultCode::SignatureFailed, slice.architecture);
        else
            slice.facts.entitlements = std::move(entitlements->value);
    }
    const base::OwnedBytes* blob = slice.parts.component(slot::requirements);
    if (blob == nullptr)
        return {};
    const auto set = readRequirementSet(*blob);
    if (!set) {
        fail(FaultCode::SignatureFailed, slice.architecture);
        return {};
    }
    const auto designated = set->find(RequirementKind::Designated);
    if (designated != set->end() && !meets(slice.facts, designated->second))
        fail(FaultCode::RequirementFailed, slice.architecture);
    return {};
}

void CodeCheck::checkOuterRequirement() {
    if (!checking_.requirement || !own_.empty())
        return;
    const auto requirement = parsedRequirement(*checking_.requirement);
    isOtherCode_ = !requirement || !meetsInAll(*requirement);
}

bool CodeCheck::meetsInAll(const Requirement& requirement) const {
    return !slices_.empty() && std::ranges::all_of(slices_, [&](const Slice& slice) {
        return meets(slice.facts, requirement);
    });
}

base::Outcome CodeCheck::checkResources() {
    if (!code_->bundle())
        return {};
    if (!sealBytes_) {
        later_.push_back({FaultCode::NoResources, {}, {}, {}});
        return {};
    }
    SealChecking sealChecking;
    sealChecking.strict = checking_.isStrict;
    sealChecking.threads = checking_.threads;
    sealChecking.outer = checking_.outer;
    sealChecking.sha1 = sealChecking.sha256 = false;
    for (const Slice& slice : slices_)
        for (const CodeDirectory& directory : slice.parts.directories) {
            const bool isSha1 = directory.facts().hashType == HashType::Sha1;
            (isSha1 ? sealChecking.sha1 : sealChecking.sha256) = true;
        }
    if (!code_->file().isMachO())
        if (const auto loose = readLooseSignature(*code_->bundle()))
            sealChecking.signatureFiles = signatureFiles(*loose);
    auto report = checkSeal(*code_->bundle(), *std::move(sealBytes_), sealChecking);
    if (!report)
        return report.error();
    seal_ = std::move(*report);
    for (const SealFault& fault : seal_.faults)
        addLater(fault);
    return {};
}

/// What is of one kind is told by one message with all files.
void CodeCheck::addLater(const SealFault& fault) {
    if (later_.empty() || later_.back().code != fault.code)
        later_.push_back({fault.code, {}, {}, {}});
    later_.back().changes.push_back(fault);
}

base::Outcome CodeCheck::checkStrictly() {
    for (const SealFault& fault : seal_.structureFaults)
        addLater(fault);
    if (!code_->file().isMachO())
        return {};
    const auto structure = code_->file().checkStructure();
    if (!structure && !isOfCode(structure.error()))
        return structure;
    if (!structure)
        later_.push_back({FaultCode::BadMainExecutable, {}, {}, {}});
    return {};
}

void CodeCheck::addPages(std::vector<PageJob>& jobs) {
    if (checking_.isShallow || !code_)
        return;
    for (Slice& slice : slices_) {
        slice.hashes.resize(slice.parts.directories.size());
        for (std::size_t index = 0; index < slice.hashes.size(); ++index) {
            const CodeDirectory& directory = slice.parts.directories[index];
            const DirectoryFacts& facts = directory.facts();
            if (facts.codeLimit > slice.place.size)
                continue;
            slice.hashes[index].resize(directory.pages().size());
            const PageTarget target{facts.hashType, slice.hashes[index]};
            const auto& first = slice.parts.directories.front().facts();
            // Directories that agree about the pages share one reading of them.
            if (index > 0 && facts.codeLimit == first.codeLimit &&
                facts.pageShift == first.pageShift) {
                jobs.back().targets.push_back(target);
                continue;
            }
            PageJob job;
            job.size = facts.codeLimit;
            job.pageSize = facts.pageSize();
            job.read = [this, place = slice.place](std::uint8_t* to, FileRange range) {
                return code_->file().read(to, {place.offset + range.offset, range.size});
            };
            job.targets.push_back(target);
            jobs.push_back(std::move(job));
        }
    }
}

void CodeCheck::comparePages() {
    for (const Slice& slice : slices_)
        for (std::size_t index = 0; index < slice.hashes.size(); ++index)
            if (!std::ranges::equal(slice.hashes[index], slice.parts.directories[index].pages())) {
                fail(FaultCode::SignatureFailed, slice.architecture);
                break;
            }
}

std::vector<VerifyFault> CodeCheck::faults() const {
    std::vector<VerifyFault> all = own_;
    all.insert(all.end(), later_.begin(), later_.end());
    return all;
}

} // namespace sign
