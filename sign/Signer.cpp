#include "sign/Signer.h"

#include "sign/Description.h"
#include "sign/ForEach.h"
#include "sign/OpenFiles.h"
#include "sign/SignatureCms.h"
#include "sign/SigningJob.h"
#include "sign/bundle/NestedCode.h"

#include <algorithm>
#include <mutex>

namespace sign {
namespace {

/// Syncing waits for the disk and not for the processor: the more wait together, the better.
constexpr unsigned syncingThreads = 32;

/// How many requests may wait for the time stamp server at once.
constexpr unsigned stampingThreads = 512;

/// Signs code objects that do not hold each other, all at once.
class BatchSigner {
public:
    BatchSigner(const SigningOptions& options, const SigningObserver& observer)
        : options_(options), observer_(observer) {}

    base::Outcome sign(const std::vector<CodeObject>& objects, const std::string& operand) {
        cmsSizes_.assign(objects.size(), SigningJob::usualCmsSize);
        auto jobs = make(objects, operand);
        if (!jobs)
            return jobs.error();
        for (unsigned attempt = 0; attempt < mostAttempts && growRooms(*jobs); ++attempt) {
            jobs->clear();
            if (jobs = make(objects, operand); !jobs)
                return jobs.error();
        }
        if (auto finished = forEach(jobs->size(), std::max(options_.threads, syncingThreads),
                                    [&](std::size_t at) { return finish((*jobs)[at].get()); });
            !finished)
            return finished;
        return commit(*jobs);
    }

private:
    using Jobs = std::vector<std::unique_ptr<SigningJob>>;
    static constexpr unsigned mostAttempts = 3;

    base::Result<Jobs> make(const std::vector<CodeObject>& objects, const std::string& operand) {
        Jobs jobs(objects.size());
        const auto bundles = std::ranges::count(objects, true, &CodeObject::isBundle);
        // Few bundles: each seals with all threads; many: each thread seals one.
        const bool manyBundles = bundles >= std::ptrdiff_t(options_.threads);
        const unsigned outer = bundles == 0 || manyBundles ? options_.threads : 1;
        const auto prepare = [&](std::size_t at) {
            const bool isOperand = objects[at].path == operand;
            const bool isFirst = cmsSizes_[at] == SigningJob::usualCmsSize;
            return prepareOne(jobs[at], objects[at].path,
                              {isOperand, manyBundles ? 1 : options_.threads, cmsSizes_[at],
                               isOperand && isFirst ? observer_.replacesSignature : nullptr,
                               [this](const std::string& sentence) { warn(sentence); }});
        };
        if (auto prepared = forEach(objects.size(), outer, prepare); !prepared)
            return prepared.error();
        std::vector<PageJob> pages;
        for (const auto& job : jobs)
            if (job)
                job->addPages(pages);
        if (auto hashed = hashPages(pages, options_.threads); !hashed)
            return hashed.error();
        const auto makeCms = [&jobs](std::size_t at) {
            return jobs[at] ? jobs[at]->makeCms() : base::Outcome();
        };
        if (auto made = forEach(jobs.size(), options_.threads, makeCms); !made)
            return made.error();
        if (auto stamped = stamp(jobs); !stamped)
            return stamped.error();
        for (const auto& job : jobs)
            if (auto encoded = job ? job->encodeCms() : base::Outcome(); !encoded)
                return encoded.error();
        return jobs;
    }

    base::Outcome prepareOne(std::unique_ptr<SigningJob>& job, const std::string& path,
                             const SigningJob::Preparing& preparing) const {
        auto prepared = SigningJob::prepare(path, options_, preparing);
        if (prepared) {
            job = std::move(*prepared);
            return {};
        }
        // Nested code that is signed already keeps its signature.
        if (prepared.error().kind == base::ErrorKind::Conflict && !preparing.isOperand &&
            !options_.force)
            return {};
        return prepared.error();
    }

    /// Asks for all time stamps at once: what takes time is the way to the server and back.
    base::Outcome stamp(const Jobs& jobs) const {
        if (options_.timestampUrl.empty())
            return {};
        std::vector<CmsSignature*> signatures;
        for (const auto& job : jobs)
            if (job)
                std::ranges::move(job->stampable(), std::back_inserter(signatures));
        return forEach(signatures.size(), stampingThreads, [&](std::size_t at) {
            return stampSignature(*signatures[at], options_.timestampUrl);
        });
    }

    /// Whether a CMS is larger than what was left for it; there will be enough the next time.
    bool growRooms(const Jobs& jobs) {
        bool grown = false;
        for (std::size_t at = 0; at < jobs.size(); ++at)
            if (const auto size = jobs[at] ? jobs[at]->largerCmsSize() : std::nullopt) {
                cmsSizes_[at] = *size;
                grown = true;
            }
        return grown;
    }

    static base::Outcome finish(SigningJob* job) {
        return job != nullptr ? job->finish() : base::Outcome();
    }

    base::Outcome commit(const Jobs& jobs) const {
        for (const auto& job : jobs) {
            if (!job)
                continue;
            if (auto done = job->commit(); !done)
                return done;
            if (observer_.isSigned)
                observer_.isSigned(
                    {job->code().path(), formatOf(job->code()), job->plan().identifier});
        }
        return {};
    }

    void warn(const std::string& sentence) {
        const std::lock_guard lock(warning_);
        if (observer_.warns)
            observer_.warns(sentence);
    }

    const SigningOptions& options_;
    const SigningObserver& observer_;
    std::vector<std::size_t> cmsSizes_;
    std::mutex warning_;
};

} // namespace

base::Outcome sign(const std::string& path, const SigningOptions& options,
                   const SigningObserver& observer) {
    std::vector<CodeObject> objects{{path}};
    if (options.deep) {
        auto plan = planOf(path);
        if (!plan)
            return plan.error();
        objects = std::move(*plan);
    }
    const std::string operand = objects.back().path;
    const std::size_t most = mostOpenObjects();
    for (auto at = objects.begin(); at != objects.end();) {
        auto end = std::ranges::find_if(
            at, objects.end(), [&](const CodeObject& one) { return one.depth != at->depth; });
        end = at + std::min(end - at, std::ptrdiff_t(most));
        if (auto done = BatchSigner(options, observer).sign({at, end}, operand); !done)
            return done;
        at = end;
    }
    return {};
}

} // namespace sign
