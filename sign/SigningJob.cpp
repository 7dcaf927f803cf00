#include "sign/SigningJob.h"

#include "base/ByteReader.h"
#include "base/Leftovers.h"
#include "sign/DesignatedCode.h"
#include "sign/bundle/LooseSignature.h"
#include "sign/files/FileTree.h"

#include <algorithm>

namespace sign {
namespace {

std::size_t roundUp16(std::size_t size) {
    return (size + 15) / 16 * 16;
}

/// How large the signature may become; the directories are counted as large as they can be.
std::size_t roomFor(const BlobMap& blobs, const std::vector<CodeDirectory>& directories,
                    std::size_t cmsSize) {
    std::size_t size = cmsSize;
    for (const auto& [number, blob] : blobs)
        size += blob.size();
    for (const CodeDirectory& directory : directories)
        size += reservedDirectorySize(directory);
    return roundUp16(superBlobSize(blobs.size() + directories.size() + 1, size));
}

base::Error notSignable(const std::string& path) {
    return {base::ErrorKind::Unsupported,
            "Cannot sign " + path +
                ": it is no Mach-O file. The platform keeps signatures of other files in extended "
                "attributes, which archives lose. Leave it unsigned in a folder for resources."};
}

} // namespace

base::Result<std::unique_ptr<SigningJob>> SigningJob::prepare(const std::string& path,
                                                              const SigningOptions& options,
                                                              const Preparing& preparing) {
    auto code =
        preparing.isLone
            ? StaticCode::openFile(path)
            : StaticCode::open(path, preparing.isOperand ? options.bundleVersion : std::string());
    if (!code)
        return code.error();
    if (code->bundle()) {
        if (auto signable = checkSignable(*code->bundle()); !signable)
            return signable.error();
    } else if (!code->file().isMachO()) {
        return notSignable(path);
    } else if (preparing.isOperand) {
        base::removeLeftovers(base::folderOf(realPath(path).value_or(path)));
    }
    auto plan = planSigning(*code, options, preparing.isOperand);
    if (!plan)
        return plan.error();
    if (plan->replaces && preparing.replacesSignature)
        preparing.replacesSignature(code->path());
    std::unique_ptr<SigningJob> job(new SigningJob(std::move(*code), std::move(*plan), options));
    if (auto watched = job->watchCode(); !watched)
        return watched.error();
    if (auto sealed = job->makeBundleSeal(preparing); !sealed)
        return sealed.error();
    job->works_.resize(job->code_.signatureCount());
    for (std::size_t index = 0; index < job->works_.size(); ++index)
        if (auto done = job->prepareWork(job->works_[index], index, preparing.cmsSize); !done)
            return done.error();
    if (auto created = job->createFile(); !created)
        return created.error();
    return job;
}

base::Outcome SigningJob::watchCode() {
    FileWatch& watch = newCode_.watch();
    watch.addFile(code_.file().path(), code_.file().stamp());
    if (!code_.bundle())
        return {};
    const Bundle& bundle = *code_.bundle();
    if (!bundle.infoPlist.empty())
        watch.addFile(bundle.infoPlist, bundle.infoStamp);
    // What lies around the sealed folder has no place in the seal, but must be as it was checked.
    std::vector<std::string> around;
    if (bundle.codeRoot != bundle.path)
        around.push_back(bundle.path + '/');
    if (bundle.isVersioned)
        around.push_back(bundle.path + "/Versions/");
    for (const std::string& folder : around)
        if (auto listed = watch.list(folder, false); !listed)
            return listed.error();
    return {};
}

base::Outcome SigningJob::makeBundleSeal(const Preparing& preparing) {
    if (!code_.bundle())
        return {};
    // The plan of all code has removed the leftovers, and now there are such files of this run.
    const Leftovers leftovers = options_.deep ? Leftovers::AreSkipped : Leftovers::AreRemoved;
    auto seal = makeSeal(
        *code_.bundle(),
        {plan_.withSha1, preparing.threads, leftovers, preparing.newFiles, &newCode_.watch()},
        [&](const std::string& path) { return preparing.nested(path, newCode_.watch()); });
    if (!seal)
        return seal.error();
    for (const std::string& warning : seal->warnings)
        if (preparing.warns)
            preparing.warns(warning);
    seal_ = std::move(seal->xml);
    return {};
}

DirectoryFacts SigningJob::factsOf(const Work& work) const {
    DirectoryFacts facts;
    facts.flags = plan_.flags;
    facts.identifier = plan_.identifier;
    facts.team = plan_.team;
    if (work.slice == nullptr) {
        facts.codeLimit = code_.file().size();
        // Nothing runs that could be hardened.
        facts.flags &= ~flag::runtime;
        facts.version = leastVersion(facts);
        return facts;
    }
    const MachSlice& slice = *work.slice;
    const auto& old = plan_.oldPageShifts[std::size_t(&work - works_.data())];
    facts.pageShift = options_.pageShift.value_or(old.value_or(pageShiftOf(slice)));
    facts.codeLimit = work.room.signatureOffset;
    if (slice.version && slice.text) {
        facts.execBase = slice.text->fileOffset;
        facts.execLimit = slice.text->fileSize;
    }
    if (slice.is(MachType::Execute)) {
        facts.execFlags = execFlag::mainBinary;
        if (plan_.entitlements)
            facts.execFlags |= executableSegmentFlags(plan_.entitlements->value);
    }
    if ((plan_.flags & flag::runtime) != 0)
        facts.runtime = plan_.runtime.value_or(slice.version ? slice.version->sdk : 0);
    facts.version = leastVersion(facts);
    return facts;
}

base::Outcome SigningJob::prepareWork(Work& work, std::size_t index, std::size_t cmsSize) {
    if (code_.file().isMachO()) {
        work.slice = &code_.file().slices()[index];
        auto room = makeSignatureRoom(*work.slice, 0, code_.file().path());
        if (!room)
            return room.error();
        work.room = std::move(*room);
    }
    work.blobs.emplace(slot::requirements, plan_.requirements);
    if (plan_.entitlements && (work.slice == nullptr || work.slice->is(MachType::Execute))) {
        work.blobs.emplace(slot::entitlements, plan_.entitlements->xml);
        work.blobs.emplace(slot::entitlementsDer, plan_.entitlements->der);
    }
    const auto info = code_.infoPlist(index);
    if (!info)
        return info.error();
    std::map<std::uint32_t, base::Bytes> hashed(work.blobs.begin(), work.blobs.end());
    if (*info)
        hashed.emplace(slot::infoPlist, **info);
    if (seal_)
        hashed.emplace(slot::resources, base::bytesOf(*seal_));
    DirectoryFacts facts = factsOf(work);
    facts.specialCount = hashed.rbegin()->first;
    std::vector<HashType> types{HashType::Sha256};
    if (plan_.withSha1)
        types.insert(types.begin(), HashType::Sha1);
    for (const HashType type : types) {
        facts.hashType = type;
        work.directories.push_back(CodeDirectory::make(facts));
        for (const auto& [number, bytes] : hashed)
            work.directories.back().setSpecial(number, digestOf(type, bytes));
    }
    if (work.slice == nullptr)
        return {};
    auto room = makeSignatureRoom(*work.slice, roomFor(work.blobs, work.directories, cmsSize),
                                  code_.file().path());
    if (!room)
        return room.error();
    work.room = std::move(*room);
    return {};
}

base::Outcome SigningJob::createFile() {
    if (!code_.file().isMachO())
        return {};
    std::vector<SignatureRoom> rooms;
    for (const Work& work : works_)
        rooms.push_back(work.room);
    auto layout = layOut(code_.file(), rooms);
    if (!layout)
        return layout.error();
    layout_ = std::move(*layout);
    for (std::size_t index = 0; index < works_.size(); ++index)
        works_[index].offset = layout_.offsets[index];
    const std::string& path = code_.file().path();
    auto file = AsideFile::createFor(realPath(path).value_or(path));
    if (!file)
        return file.error();
    file_.emplace(std::move(*file));
    if (auto sized = file_->setSize(layout_.size); !sized)
        return sized;
    return file_->write(layout_.table, 0);
}

void SigningJob::addPages(std::vector<PageJob>& jobs) {
    for (Work& work : works_) {
        PageJob job;
        job.size = work.directories.front().facts().codeLimit;
        job.pageSize = work.directories.front().facts().pageSize();
        if (work.slice == nullptr) {
            job.read = [this](std::uint8_t* to, FileRange range) {
                return code_.file().read(to, range);
            };
        } else {
            job.read = [this, &work](std::uint8_t* to, FileRange range) {
                return readWithRoom(code_.file(), *work.slice, work.room, to, range);
            };
            job.seen = [this, &work](base::Bytes piece, std::uint64_t offset) {
                return file_->write(piece, work.offset + offset);
            };
        }
        for (CodeDirectory& directory : work.directories)
            job.targets.push_back({directory.facts().hashType, directory.pages()});
        jobs.push_back(std::move(job));
    }
}

base::Result<NestedSeal> SigningJob::nestedSeal() const {
    return nestedSealOf(code_, [this](std::size_t index) -> base::Result<SignatureParts> {
        return SignatureParts{
            works_[index].directories, {{slot::requirements, plan_.requirements}}, {}};
    });
}

base::Outcome SigningJob::makeCms() {
    if (options_.identity)
        for (Work& work : works_) {
            auto cms = makeSignature(*options_.identity, work.directories);
            if (!cms)
                return cms.error();
            work.made.emplace(std::move(*cms));
        }
    if (file_)
        file_->startWriteBack();
    return {};
}

std::vector<CmsSignature*> SigningJob::stampable() {
    std::vector<CmsSignature*> all;
    for (Work& work : works_)
        if (work.made)
            all.push_back(&*work.made);
    return all;
}

base::Outcome SigningJob::encodeCms() {
    for (Work& work : works_) {
        if (!work.made)
            continue;
        auto encoded = work.made->encoded();
        if (!encoded)
            return encoded.error();
        work.cms = std::move(*encoded);
        work.made.reset();
    }
    return {};
}

BlobMap SigningJob::blobsOf(const Work& work) const {
    BlobMap blobs = work.blobs;
    for (std::size_t index = 0; index < work.directories.size(); ++index) {
        const auto number = static_cast<std::uint32_t>(
            index == 0 ? slot::codeDirectory : slot::firstAlternate + index - 1);
        blobs.emplace(number, work.directories[index].blob());
    }
    blobs.emplace(slot::cms, makeBlob(BlobMagic::Wrapper, work.cms));
    return blobs;
}

std::optional<std::size_t> SigningJob::largerCmsSize() const {
    std::size_t needed = 0;
    bool fits = true;
    for (const Work& work : works_) {
        if (work.slice == nullptr)
            continue;
        std::size_t size = blobHeaderSize + work.cms.size();
        needed = std::max(needed, size);
        for (const CodeDirectory& directory : work.directories)
            size += directory.blob().size();
        for (const auto& [number, blob] : work.blobs)
            size += blob.size();
        const std::size_t count = work.blobs.size() + work.directories.size() + 1;
        fits = fits && superBlobSize(count, size) <= work.room.signatureSize;
    }
    // A second time stamp may be somewhat longer than the first one.
    constexpr std::size_t allowance = 4096;
    return fits ? std::nullopt : std::optional(needed + allowance);
}

base::Outcome SigningJob::writeSeal() {
    if (auto made = newCode_.makeSignatureFolder(*code_.bundle()); !made)
        return made;
    auto file = AsideFile::createFor(code_.bundle()->sealPath(), code_.bundle()->codeRoot);
    if (!file)
        return file.error();
    sealFile_.emplace(std::move(*file));
    if (auto written = sealFile_->write(base::bytesOf(*seal_), 0); !written)
        return written;
    return sealFile_->sync();
}

base::Outcome SigningJob::finish() {
    if (!file_)
        return writeLoose();
    for (const Work& work : works_) {
        const base::OwnedBytes whole = makeSuperBlob(BlobMagic::EmbeddedSignature, blobsOf(work));
        if (auto done = file_->write(whole, work.offset + work.room.signatureOffset); !done)
            return done;
    }
    return {};
}

base::Outcome SigningJob::writeLoose() {
    LooseSignature loose;
    const Work& work = works_.front();
    for (const CodeDirectory& directory : work.directories)
        loose.directories.push_back(directory.blob());
    const auto part = [&work](std::uint32_t number) {
        const auto found = work.blobs.find(number);
        return found == work.blobs.end() ? std::nullopt : std::optional(found->second);
    };
    loose.requirements = part(slot::requirements);
    loose.entitlements = part(slot::entitlements);
    loose.entitlementsDer = part(slot::entitlementsDer);
    loose.cms = work.cms;
    if (auto made = newCode_.makeSignatureFolder(*code_.bundle()); !made)
        return made;
    auto files = writeLooseSignature(*code_.bundle(), loose, base::bytesOf(*seal_));
    if (!files)
        return files.error();
    for (AsideFile& file : *files)
        newCode_.add(std::move(file));
    return {};
}

base::Outcome SigningJob::sync() const {
    return file_ ? file_->sync() : base::Outcome();
}

base::Result<NewCode> SigningJob::takeNewCode() {
    if (file_)
        newCode_.add(code_.file().path(), std::move(*file_));
    if (sealFile_)
        newCode_.add(code_.bundle()->sealPath(), std::move(*sealFile_));
    if (seal_)
        if (auto replaced = newCode_.replaceSignatureOf(*code_.bundle()); !replaced)
            return replaced.error();
    works_.clear();
    seal_.reset();
    return std::move(newCode_);
}

} // namespace sign
