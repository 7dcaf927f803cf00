#pragma once

#include "sign/NewCode.h"
#include "sign/SignatureCms.h"
#include "sign/SigningPlan.h"
#include "sign/bundle/ResourceSeal.h"
#include "sign/macho/SignatureRoom.h"
#include "sign/signature/PageHashes.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace sign {

/// The making of one code object's signatures, step by step, so that the steps of many objects can
/// run side by side: prepare, hash the pages, make the CMS, have it stamped, finish. Nothing that
/// is on the disk changes: all is written aside. Each object on one thread at a time.
class SigningJob {
public:
    struct Preparing {
        bool isOperand = true;              ///< the user named it
        bool isLone = false;                ///< a file that stands for no bundle
        unsigned threads = 1;               ///< for the hashes of sealed files
        const NewFiles* newFiles = nullptr; ///< of code that was signed before
        std::size_t cmsSize = usualCmsSize;
        /// For the seal. What is looked at is watched.
        std::function<base::Result<NestedSeal>(const std::string& path, FileWatch& watch)> nested;
        std::function<void(const std::string& path)> replacesSignature;
        std::function<void(const std::string& sentence)> warns;
    };
    /// What Apple's tool leaves for the CMS, whatever it will need.
    static constexpr std::size_t usualCmsSize = 18000;

    /// Opens the code at `path`, decides all, makes its seal if it is a bundle.
    [[nodiscard]] static base::Result<std::unique_ptr<SigningJob>>
    prepare(const std::string& path, const SigningOptions& options, const Preparing& preparing);

    SigningJob(const SigningJob&) = delete;
    SigningJob& operator=(const SigningJob&) = delete;

    /// Work for hashPages(), which also writes the new file; valid as long as this object.
    void addPages(std::vector<PageJob>& jobs);
    /// What the seal of a bundle around it keeps of it, after the pages are hashed.
    [[nodiscard]] base::Result<NestedSeal> nestedSeal() const;
    /// The CMS of each signature, after the pages are hashed. Nothing to do if ad hoc.
    [[nodiscard]] base::Outcome makeCms();
    /// The CMS of each signature, to be stamped in place. Empty if ad hoc.
    [[nodiscard]] std::vector<CmsSignature*> stampable();
    /// The bytes of each CMS, after it was stamped. Nothing to do if ad hoc.
    [[nodiscard]] base::Outcome encodeCms();
    /// The size that prepare() has to leave for the CMS if it does not fit.
    [[nodiscard]] std::optional<std::size_t> largerCmsSize() const;
    /// Writes the seal, if it is a file beside the code, and waits until it is on the disk. Another
    /// thread may have the signatures stamped meanwhile.
    [[nodiscard]] bool hasSealFile() const { return seal_ && file_; }
    [[nodiscard]] base::Outcome writeSeal();
    /// Writes the signatures.
    [[nodiscard]] base::Outcome finish();
    /// Waits until they are on the disk.
    [[nodiscard]] base::Outcome sync() const;
    /// What is to take its place, and nothing more is to be asked of this.
    [[nodiscard]] base::Result<NewCode> takeNewCode();

    [[nodiscard]] const StaticCode& code() const { return code_; }
    [[nodiscard]] const SigningPlan& plan() const { return plan_; }

private:
    /// One signature.
    struct Work {
        const MachSlice* slice = nullptr; ///< null if it goes into files
        SignatureRoom room;
        std::uint64_t offset = 0; ///< of the slice in the new file
        BlobMap blobs;            ///< all but code directories and CMS
        std::vector<CodeDirectory> directories;
        std::optional<CmsSignature> made; ///< until it is encoded
        base::OwnedBytes cms;
    };

    SigningJob(StaticCode code, SigningPlan plan, const SigningOptions& options)
        : code_(std::move(code)), plan_(std::move(plan)), options_(options) {}

    [[nodiscard]] base::Outcome watchCode();
    [[nodiscard]] base::Outcome makeBundleSeal(const Preparing& preparing);
    [[nodiscard]] base::Outcome prepareWork(Work& work, std::size_t index, std::size_t cmsSize);
    [[nodiscard]] DirectoryFacts factsOf(const Work& work) const;
    [[nodiscard]] base::Outcome createFile();
    [[nodiscard]] BlobMap blobsOf(const Work& work) const;
    [[nodiscard]] base::Outcome writeLoose();

    StaticCode code_;
    SigningPlan plan_;
    const SigningOptions& options_;
    std::optional<std::string> seal_;
    std::vector<Work> works_;
    UniversalLayout layout_;
    NewCode newCode_; ///< before the files: it removes the folder of the seal
    std::optional<AsideFile> file_;
    std::optional<AsideFile> sealFile_;
};

} // namespace sign
