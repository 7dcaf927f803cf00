#include "sign/Signer.h"

#include "base/Printable.h"
#include "sign/Description.h"
#include "sign/DesignatedCode.h"
#include "sign/RunLock.h"
#include "sign/SignatureCms.h"
#include "sign/SigningJob.h"
#include "sign/TaskLanes.h"
#include "sign/bundle/NestedCode.h"
#include "sign/files/OpenFiles.h"

#include <algorithm>
#include <atomic>
#include <deque>
#include <mutex>
#include <unordered_map>

namespace sign {
namespace {

/// How many objects may be open at once, and how many threads may wait for the time stamp server or
/// for the disk.
constexpr std::size_t mostAtOnce = 512;

/// Signs the code objects of a package. A bundle's seal needs only the code directories of what is
/// nested in it, so each begins as soon as these are known, and all wait for their time stamps side
/// by side. Of code elsewhere in it the seal has hashes, so it waits until that is whole. When all
/// are, they take their places from inside out: a package whose time stamps do not come stays as it
/// was.
class PackageSigner {
public:
    PackageSigner(std::vector<CodeObject> objects, const SigningOptions& options,
                  const SigningObserver& observer)
        : options_(options), observer_(observer), operand_(objects.back().path),
          newFiles_(options.deep), closesSettled_(objects.size() > mostOpen_),
          lanes_(options.threads, static_cast<unsigned>(mostOpen_)) {
        for (CodeObject& object : objects)
            items_.emplace_back(std::move(object));
        findContainers();
    }

    base::Outcome sign() {
        for (Item& item : items_)
            if (item.unknownParts == 0)
                ready_.push_back(&item);
        startReady();
        return lanes_.run();
    }

private:
    struct Item {
        explicit Item(CodeObject named) : object(std::move(named)) {}

        CodeObject object;
        Item* container = nullptr;
        std::size_t unknownParts = 0; ///< what the seal waits for
        std::size_t openParts = 0;    ///< what is not settled yet
        std::size_t changes = 0;      ///< how often the code directory of a part became known
        std::size_t sealedChanges = 0;
        std::vector<const Item*> newParts{}; ///< that do not keep their signatures
        std::optional<NestedSeal> seal{};
        bool isFinished = false;
        std::size_t cmsSize = SigningJob::usualCmsSize;
        std::optional<std::size_t> largerCmsSize{};
        unsigned attempts = 0; ///< that came to nothing
        unsigned growths = 0;
        std::unique_ptr<SigningJob> job{};
        std::vector<PageJob> pages{};
        std::atomic<std::size_t> left = 0; ///< runs of pages, then time stamps and seal
        std::optional<NewCode> newCode{};  ///< when it is settled
        std::optional<SignedCode> signedCode{};

        /// Whether its container is sealed as soon as its code directory is known.
        [[nodiscard]] bool isEarly() const { return container != nullptr && !object.isHashed; }
    };
    static constexpr unsigned mostGrowths = 3;

    /// An object's container is the nearest folder around it that is an object too.
    void findContainers() {
        for (Item& item : items_) {
            byPath_.emplace(item.object.path, &item);
            if (!item.object.executable.empty())
                byPath_.emplace(item.object.executable, &item);
        }
        for (Item& item : items_) {
            std::string_view folder = item.object.path;
            for (std::size_t slash = folder.rfind('/');
                 slash != std::string_view::npos && item.container == nullptr;
                 slash = folder.rfind('/')) {
                folder = folder.substr(0, slash);
                if (const auto found = byPath_.find(folder); found != byPath_.end())
                    item.container = found->second;
            }
            if (item.container == nullptr)
                continue;
            ++item.container->unknownParts;
            ++item.container->openParts;
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
        // A bundle stands in the plan for its main executable.
        const bool isLone = !isOperand && !item.object.isBundle;
        {
            const std::lock_guard lock(mutex_);
            item.sealedChanges = item.changes;
        }
        auto job = SigningJob::prepare(
            item.object.path, options_,
            {isOperand, isLone, options_.threads, &newFiles_, item.cmsSize,
             [this](const std::string& path, FileWatch& watch) { return sealOf(path, watch); },
             replaces, [this](const std::string& sentence) { warn(sentence); }});
        if (!job) {
            const bool isKept =
                job.error().kind == base::ErrorKind::Conflict && !isOperand && !options_.force;
            return isKept ? keep(item) : job.error();
        }
        item.job = std::move(*job);
        if (item.container != nullptr) {
            const std::lock_guard lock(mutex_);
            item.container->newParts.push_back(&item);
        }
        return hash(item);
    }

    /// Nested code that is signed already keeps its signature, which holds as long as its parts
    /// keep theirs.
    base::Outcome keep(Item& item) {
        const std::string& path = item.object.path;
        const auto code =
            item.object.isBundle ? StaticCode::open(path) : StaticCode::openFile(path);
        if (!code)
            return code.error();
        if (code->bundle()) {
            const std::lock_guard lock(mutex_);
            for (const Item* part : item.newParts)
                if (part->object.path.starts_with(code->bundle()->codeRoot + "/"))
                    return base::Error{base::ErrorKind::Conflict,
                                       "\"" + base::printable(path) +
                                           "\" is signed already, and \"" +
                                           base::printable(part->object.path) +
                                           "\" in it is not. Sign both anew with --force."};
        }
        newFiles_.keep(code->file().path());
        if (item.isEarly())
            makeKnown(item, std::nullopt);
        lanes_.call([this, &item] { return conclude(item); });
        return {};
    }

    /// What a seal keeps of nested code: signed by now, be it in its place or not, or kept.
    base::Result<NestedSeal> sealOf(const std::string& path, FileWatch& watch) {
        {
            const std::lock_guard lock(mutex_);
            if (const auto found = byPath_.find(path);
                found != byPath_.end() && found->second->seal)
                return *found->second->seal;
        }
        return lookUpNested(path, watch);
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
        if (item.container != nullptr) {
            auto seal = item.job->nestedSeal();
            if (!seal)
                return seal.error();
            makeKnown(item, std::move(*seal));
        }
        if (auto made = item.job->makeCms(); !made)
            return made;
        return stamp(item);
    }

    /// Asks for all time stamps at once: what takes time is the way to the server and back. What is
    /// left to do with an answer waits until others have sent their requests.
    base::Outcome stamp(Item& item) {
        std::vector<CmsSignature*> signatures;
        if (!options_.timestampUrl.empty())
            signatures = item.job->stampable();
        item.left = signatures.size() + 1;
        for (CmsSignature* signature : signatures)
            lanes_.wait([this, &item, signature]() -> base::Outcome {
                auto reply = TimeStampReply::request(options_.timestampUrl, signature->value(),
                                                     lanes_.stopSignal());
                if (!reply)
                    return reply.error();
                lanes_.work([this, &item, signature,
                             shared = std::make_shared<TimeStampReply>(
                                 std::move(*reply))]() -> base::Outcome {
                    if (auto stamped = stampSignature(*signature, *shared); !stamped)
                        return stamped;
                    return finishIfLast(item);
                });
                return {};
            });
        if (!item.job->hasSealFile())
            return finishIfLast(item);
        lanes_.wait([this, &item]() -> base::Outcome {
            if (auto written = item.job->writeSeal(); !written)
                return written;
            return finishIfLast(item);
        });
        return {};
    }

    base::Outcome finishIfLast(Item& item) {
        return --item.left == 0 ? finish(item) : base::Outcome();
    }

    base::Outcome finish(Item& item) {
        if (auto encoded = item.job->encodeCms(); !encoded)
            return encoded;
        // A CMS that is larger than what was left for it gets enough the next time.
        item.largerCmsSize = item.job->largerCmsSize();
        if (!item.largerCmsSize)
            if (auto finished = item.job->finish(); !finished)
                return finished;
        lanes_.wait([this, &item]() -> base::Outcome {
            if (auto synced = item.job->sync(); !synced)
                return synced;
            const std::lock_guard lock(mutex_);
            item.isFinished = true;
            settleIfReady(item);
            return {};
        });
        return {};
    }

    /// Tells the container the code directory of a part, absent if that keeps its old one.
    void makeKnown(Item& item, std::optional<NestedSeal> seal) {
        {
            const std::lock_guard lock(mutex_);
            item.seal = std::move(seal);
            if (!item.isEarly())
                return;
            ++item.container->changes;
            if (item.attempts != 0 || --item.container->unknownParts != 0)
                return;
            ready_.push_front(item.container);
        }
        startReady();
    }

    /// An object is settled when it and all its parts are whole. For callers that hold the mutex.
    void settleIfReady(Item& item) {
        if (!item.isFinished || item.openParts != 0)
            return;
        item.isFinished = false;
        lanes_.call([this, &item] { return settle(item); });
    }

    base::Outcome settle(Item& item) {
        if (item.largerCmsSize || item.changes != item.sealedChanges)
            return signAgain(item);
        if (observer_.isSigned)
            item.signedCode = {item.job->code().path(), formatOf(item.job->code()),
                               item.job->plan().identifier};
        auto taken = item.job->takeNewCode();
        if (!taken)
            return taken.error();
        item.newCode.emplace(std::move(*taken));
        item.newCode->putInto(newFiles_);
        if (closesSettled_) {
            if (auto closed = item.newCode->close(); !closed)
                return closed;
            item.job.reset();
        }
        return conclude(item);
    }

    /// If there is too little room for the CMS, or a part was signed again since it was sealed.
    base::Outcome signAgain(Item& item) {
        ++item.attempts;
        if (item.largerCmsSize && ++item.growths == mostGrowths)
            return base::Error{base::ErrorKind::Unavailable,
                               "The time stamps for " + base::printable(item.object.path) +
                                   " grow with each request, so there is no room to reserve for "
                                   "them. Use another time stamp server."};
        item.cmsSize = item.largerCmsSize.value_or(item.cmsSize);
        lanes_.workFirst([this, &item] { return prepare(item); });
        return {};
    }

    base::Outcome conclude(Item& item) {
        if (observer_.progresses)
            observer_.progresses(settled_ + 1, items_.size());
        if (++settled_ == items_.size())
            return commit();
        {
            const std::lock_guard lock(mutex_);
            if (closesSettled_)
                --open_;
            if (Item* container = item.container; container != nullptr) {
                if (!item.isEarly() && --container->unknownParts == 0)
                    ready_.push_front(container);
                --container->openParts;
                settleIfReady(*container);
            }
        }
        startReady();
        return {};
    }

    /// All are settled.
    base::Outcome commit() {
        std::vector<NewCode*> all;
        for (Item& item : items_)
            if (item.newCode)
                all.push_back(&*item.newCode);
        if (auto done = NewCode::commit(all, options_.threads); !done)
            return done;
        for (Item& item : items_) {
            if (item.signedCode)
                observer_.isSigned(*item.signedCode);
            // To close a file that has no name any more takes long.
            lanes_.wait([&item]() -> base::Outcome {
                item.job.reset();
                return {};
            });
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
    std::string operand_;
    std::deque<Item> items_; ///< inside out
    std::unordered_map<std::string_view, Item*> byPath_;
    NewFiles newFiles_;
    std::size_t settled_ = 0;
    const std::size_t mostOpen_ = std::min(mostOpenObjects(), mostAtOnce);
    bool closesSettled_; ///< for what is open until the end must not use up the open files
    std::mutex mutex_;   ///< for the two below, and what items tell each other
    std::deque<Item*> ready_;
    std::size_t open_ = 0;
    std::mutex warning_;
    TaskLanes lanes_;
};

} // namespace

base::Outcome sign(const std::string& path, const SigningOptions& options,
                   const SigningObserver& observer) {
    const auto lock = RunLock::take(path);
    if (!lock)
        return lock.error();
    std::vector<CodeObject> objects{{path}};
    if (options.deep) {
        auto plan = planOf(path, Leftovers::AreRemoved, options.bundleVersion);
        if (!plan)
            return plan.error();
        objects = std::move(*plan);
    }
    return PackageSigner(std::move(objects), options, observer).sign();
}

} // namespace sign
