#include "sign/Signer.h"

#include "sign/Description.h"
#include "sign/OpenFiles.h"
#include "sign/SignatureCms.h"
#include "sign/SigningJob.h"
#include "sign/TaskLanes.h"
#include "sign/bundle/NestedCode.h"

#include <algorithm>
#include <atomic>
#include <deque>
#include <mutex>
#include <unordered_map>

namespace sign {
namespace {

/// How many threads may wait for the time stamp server or for the disk at once.
constexpr unsigned waitingThreads = 512;

/// Signs the code objects of a package. Each begins as soon as all in it are signed; so one waits
/// for its time stamp or for the disk while others are hashed.
class PackageSigner {
public:
    PackageSigner(std::vector<CodeObject> objects, const SigningOptions& options,
                  const SigningObserver& observer)
        : options_(options), observer_(observer), operand_(objects.back().path),
          lanes_(options.threads, waitingThreads) {
        for (CodeObject& object : objects)
            items_.emplace_back(std::move(object));
        findContainers();
    }

    base::Outcome sign() {
        for (Item& item : items_)
            if (item.unsignedParts == 0)
                ready_.push_back(&item);
        startReady();
        return lanes_.run();
    }

private:
    struct Item {
        explicit Item(CodeObject named) : object(std::move(named)) {}

        CodeObject object;
        Item* container = nullptr;
        std::size_t unsignedParts = 0;
        std::size_t cmsSize = SigningJob::usualCmsSize;
        unsigned attempts = 0;
        std::unique_ptr<SigningJob> job{};
        std::vector<PageJob> pages{};
        std::atomic<std::size_t> left = 0; ///< runs of pages, then time stamps
        std::optional<SignedCode> signedCode{};
        bool isDone = false;
    };
    static constexpr unsigned mostAttempts = 3;

    /// An object's container is the nearest folder around it that is an object too.
    void findContainers() {
        std::unordered_map<std::string_view, Item*> byPath;
        for (Item& item : items_)
            byPath.emplace(item.object.path, &item);
        for (Item& item : items_) {
            std::string_view folder = item.object.path;
            for (std::size_t slash = folder.rfind('/');
                 slash != std::string_view::npos && item.container == nullptr;
                 slash = folder.rfind('/')) {
                folder = folder.substr(0, slash);
                if (const auto found = byPath.find(folder); found != byPath.end())
                    item.container = found->second;
            }
            if (item.container != nullptr)
                ++item.container->unsignedParts;
        }
    }

    /// Begins what is ready, as far as there may be open files. Any thread.
    void startReady() {
        const std::lock_guard lock(mutex_);
        for (; open_ < mostOpen_ && !ready_.empty(); ready_.pop_front(), ++open_) {
            Item* item = ready_.front();
            const bool isContainer = item->object.isBundle;
            const auto start = [this, item] { return prepare(*item); };
            // What others wait for goes first.
            isContainer ? lanes_.workFirst(start) : lanes_.work(start);
        }
    }

    base::Outcome prepare(Item& item) {
        const bool isOperand = item.object.path == operand_;
        const auto replaces =
            isOperand && item.attempts == 0 ? observer_.replacesSignature : nullptr;
        auto job = SigningJob::prepare(item.object.path, options_,
                                       {isOperand, options_.threads, item.cmsSize, replaces,
                                        [this](const std::string& sentence) { warn(sentence); }});
        if (!job) {
            // Nested code that is signed already keeps its signature.
            const bool isKept =
                job.error().kind == base::ErrorKind::Conflict && !isOperand && !options_.force;
            if (!isKept)
                return job.error();
            lanes_.call([this, &item] { return conclude(item); });
            return {};
        }
        item.job = std::move(*job);
        return hash(item);
    }

    base::Outcome hash(Item& item) {
        item.pages.clear();
        item.job->addPages(item.pages);
        const std::vector<PageRun> runs = runsOf(item.pages);
        item.left = std::max<std::size_t>(runs.size(), 1);
        for (std::size_t at = 1; at < runs.size(); ++at)
            lanes_.workFirst([this, &item, run = runs[at]] { return hashOne(item, &run); });
        return hashOne(item, runs.empty() ? nullptr : runs.data());
    }

    base::Outcome hashOne(Item& item, const PageRun* run) {
        if (auto hashed = run != nullptr ? hashRun(*run) : base::Outcome(); !hashed)
            return hashed;
        if (--item.left != 0)
            return {};
        if (auto made = item.job->makeCms(); !made)
            return made;
        return stamp(item);
    }

    /// Asks for all time stamps at once: what takes time is the way to the server and back.
    base::Outcome stamp(Item& item) {
        std::vector<CmsSignature*> signatures;
        if (!options_.timestampUrl.empty())
            signatures = item.job->stampable();
        item.left = signatures.size();
        if (signatures.empty())
            lanes_.wait([this, &item] { return finish(item); });
        for (CmsSignature* signature : signatures)
            lanes_.wait([this, &item, signature]() -> base::Outcome {
                if (auto stamped = stampSignature(*signature, options_.timestampUrl); !stamped)
                    return stamped;
                return --item.left == 0 ? finish(item) : base::Outcome();
            });
        return {};
    }

    base::Outcome finish(Item& item) {
        if (auto encoded = item.job->encodeCms(); !encoded)
            return encoded;
        // A CMS that is larger than what was left for it gets enough the next time.
        if (const auto size = item.job->largerCmsSize(); size && ++item.attempts < mostAttempts) {
            item.cmsSize = *size;
            lanes_.workFirst([this, &item] { return prepare(item); });
            return {};
        }
        if (auto finished = item.job->finish(); !finished)
            return finished;
        lanes_.call([this, &item] { return commit(item); });
        return {};
    }

    base::Outcome commit(Item& item) {
        if (auto done = item.job->commit(); !done)
            return done;
        if (observer_.isSigned)
            item.signedCode = {item.job->code().path(), formatOf(item.job->code()),
                               item.job->plan().identifier};
        // To close a file that has no name any more takes long.
        lanes_.wait([job = std::shared_ptr(std::move(item.job))]() mutable -> base::Outcome {
            job.reset();
            return {};
        });
        return conclude(item);
    }

    /// Tells of the objects in the order of the plan.
    base::Outcome conclude(Item& item) {
        item.isDone = true;
        if (observer_.progresses)
            observer_.progresses(++done_, items_.size());
        for (; concluded_ < items_.size() && items_[concluded_].isDone; ++concluded_)
            if (const auto& code = items_[concluded_].signedCode)
                observer_.isSigned(*code);
        {
            const std::lock_guard lock(mutex_);
            --open_;
            Item* container = item.container;
            if (container != nullptr && --container->unsignedParts == 0)
                ready_.push_front(container);
        }
        startReady();
        return {};
    }

    void warn(const std::string& sentence) {
        const std::lock_guard lock(warning_);
        if (observer_.warns)
            observer_.warns(sentence);
    }

    const SigningOptions& options_;
    const SigningObserver& observer_;
    std::string operand_;
    std::deque<Item> items_; ///< inside out
    std::size_t done_ = 0;
    std::size_t concluded_ = 0; ///< the first of these have been told of
    const std::size_t mostOpen_ = std::min<std::size_t>(mostOpenObjects(), waitingThreads);
    std::mutex mutex_; ///< for the three below
    std::deque<Item*> ready_;
    std::size_t open_ = 0;
    std::mutex warning_;
    TaskLanes lanes_;
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
    return PackageSigner(std::move(objects), options, observer).sign();
}

} // namespace sign
