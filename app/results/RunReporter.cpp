#include "app/results/RunReporter.h"

#include "app/toolkit/Queues.h"
#include "app/toolkit/ShownText.h"
#include "base/NeverDestroyed.h"
#include "core/Log.h"
#include "core/Path.h"
#include "core/RunSummary.h"

#include <QCoreApplication>
#include <QPointer>
#include <QSocketNotifier>

#include <future>

#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

SerialQueue& digestQueue() {
    static SerialQueue& queue = base::neverDestroyed<SerialQueue>("digests");
    return queue;
}

/// Where files go that need not outlive the session, the best folder first.
std::vector<std::string> foldersOfSession() {
    std::vector<std::string> folders;
    const auto add = [&folders](const char* folder, const std::string& name) {
        if (folder != nullptr && *folder == '/')
            folders.push_back(appendingPathComponent(folder, name));
    };
    const std::string ofUser = "kelpmoray-" + std::to_string(getuid());
    add(getenv("XDG_RUNTIME_DIR"), "kelpmoray"); // which is the user's alone
    add(getenv("TMPDIR"), ofUser);
    add("/tmp", ofUser);
    return folders;
}

/// Whether the folder, which is made if it is not there, is one that nobody else writes to: what
/// lies in it is removed when it is old.
bool isOurs(const std::string& folder) {
    mkdir(folder.c_str(), 0700);
    struct stat status {};
    return lstat(folder.c_str(), &status) == 0 && S_ISDIR(status.st_mode) &&
           status.st_uid == geteuid() && (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

} // namespace

RunReporter::RunReporter(std::string folder, std::string version)
    : folder_(std::move(folder)), version_(std::move(version)) {
    // Not only when destroyed: a process that ends while a script runs is not taken apart.
    connect(qApp, &QCoreApplication::aboutToQuit, this, [this] { unlink(pipe_.path().c_str()); });
    connect(&everySecond_, &QTimer::timeout, this, &RunReporter::progressChanged);
    const auto ageCopy = [this] { copy_.clear(); };
    connect(&model_, &RunModel::modelReset, this, ageCopy);
    connect(&model_, &RunModel::rowsInserted, this, ageCopy);
    connect(&model_, &RunModel::dataChanged, this, ageCopy);
    if (pipe_.descriptor() < 0)
        return;
    setenv(base::ProgressChannel::variable, pipe_.path().c_str(), 1);
    notifier_ = std::make_unique<QSocketNotifier>(pipe_.descriptor(), QSocketNotifier::Read);
    connect(notifier_.get(), &QSocketNotifier::activated, this, &RunReporter::readPipe);
}

RunReporter::~RunReporter() = default;

void RunReporter::readPipe() {
    const auto percent = pipe_.takePercent();
    if (percent && progress_.step > 0) {
        progress_.percent = *percent;
        emit progressChanged();
    }
}

void RunReporter::change(std::function<void()> change) {
    // The trouble is asked for here: the main thread is not to wait for a disk.
    MainQueue::async([self = QPointer<RunReporter>(this), change = std::move(change),
                      trouble = record_ ? record_->trouble() : ""] {
        if (!self)
            return;
        change();
        if (!trouble.empty() && !std::exchange(self->troubleIsTold_, true))
            emit self->recordFailed(QString::fromStdString(trouble));
        emit self->progressChanged();
    });
}

void RunReporter::packagesFound(const std::vector<std::string>& packages) {
    found_ = packages;
    change([this, count = packages.size()] { progress_ = {.count = count, .package = {}}; });
}

void RunReporter::packageStarted(const std::string& package, const std::string& entry,
                                 const std::optional<std::string>& identity) {
    if (!record_)
        record_ = std::make_shared<RunRecord>(folder_, version_);
    const std::vector<std::string> found = std::exchange(found_, {});
    record_->packagesFound(found, entry);
    package_ = record_->packageStarted(package, entry, identity);
    change([this, run = record_, record = record_->package(package_), found] {
        if (std::exchange(shown_, run) != run) {
            model_.setPackages({});
            foundShown_.clear();
            troubleIsTold_ = false;
        }
        for (const std::string& path : found)
            foundShown_.push_back(
                {.path = path, .entry = record.entry, .state = PackageState::Left});
        isUntold_ = true;
        model_.setPackage(model_.packages().size(), record);
        ++progress_.position;
        progress_.package = shownLine(lastPathComponent(record.path));
        progress_.steps = record.signedAs.empty() ? 1 : 2;
        progress_.step = 0;
        sinceStart_.start();
        everySecond_.start(1000);
    });
}

void RunReporter::scriptStarted(const std::string& script) {
    change([this, signing = script == "fenwoCodesignApps.sh"] {
        (void)pipe_.takePercent(); // of the step before
        // A script that has nothing to sign comes first too, and is no step.
        progress_.step = std::min(progress_.step + 1, progress_.steps);
        progress_.percent = 0;
        progress_.signing = signing;
    });
}

void RunReporter::scriptEnded(const ScriptRun& run) {
    if (record_)
        record_->scriptEnded(package_, run);
}

void RunReporter::packageEnded() {
    if (!record_)
        return;
    change([this, number = package_, package = record_->scriptsEnded(package_)] {
        model_.setPackage(number, package);
        if (package.archive)
            unread_.push_back(shownLine(lastPathComponent(package.archive->path)));
        progress_.step = 0;
        everySecond_.stop();
    });
    digestQueue().async([self = QPointer(this), record = record_, number = package_] {
        MainQueue::async([self, number, package = record->packageEnded(number)] {
            if (!self)
                return;
            self->model_.setPackage(number, package);
            if (package.archive)
                self->unread_.pop_front();
            emit self->progressChanged();
        });
    });
}

bool RunReporter::runEnded() {
    if (!record_)
        return false;
    std::promise<void> allRead;
    digestQueue().async([&allRead] { allRead.set_value(); });
    allRead.get_future().wait();
    record_->finish();
    if (const std::string trouble = record_->trouble(); !trouble.empty())
        Log::writeFormatted(Log::Severity::Error, "record: %@", trouble);
    change([this] {
        progress_ = {};
        isUntold_ = false;
        model_.setPackages(packages());
        foundShown_.clear();
        model_.putFailedFirst();
    });
    record_.reset();
    return true;
}

std::vector<PackageRecord> RunReporter::packages() const {
    std::vector<PackageRecord> packages = model_.packages();
    packages.insert(packages.end(), foundShown_.begin(), foundShown_.end());
    putLeftLast(packages);
    return packages;
}

std::string RunReporter::file() {
    if (!shown_)
        return "";
    const std::string trouble = shown_->trouble();
    if (const std::string file = shown_->file(); trouble.empty() && !file.empty())
        return file;
    if (copy_.empty())
        copy_ = copied(trouble);
    return copy_;
}

std::string RunReporter::copied(const std::string& trouble) const {
    for (const std::string& folder : foldersOfSession()) {
        if (!isOurs(folder))
            continue;
        RunRecord copy(appendingPathComponent(folder, "runs"), version_, trouble);
        for (const PackageRecord& package : packages())
            copy.add(package);
        if (isUntold_)
            copy.leave();
        else
            copy.finish();
        if (copy.trouble().empty())
            return copy.file();
    }
    return appendingPathComponent(folder_, RunRecord::nowhere);
}

void RunReporter::leave() {
    if (shown_)
        shown_->leave();
}

double RunReporter::share() const {
    if (progress_.count == 0)
        return 0;
    const double before = static_cast<double>(progress_.position) - (progress_.step > 0 ? 1 : 0);
    const double within = progress_.step == 0
                              ? 0
                              : (progress_.step - 1 + progress_.percent / 100.0) / progress_.steps;
    return (before + within) / static_cast<double>(progress_.count);
}

QString RunReporter::progressText() const {
    if (progress_.step == 0)
        return unread_.empty() ? QString() : tr("Reading %1…").arg(unread_.front());
    const QString step = progress_.signing ? tr("Signing %1") : tr("Packing %1");
    QString text = tr("%1 of %2").arg(progress_.position).arg(progress_.count) + " · " +
                   step.arg(progress_.package);
    if (progress_.percent > 0)
        text += tr(" · %1 %").arg(progress_.percent);
    return text + " · " +
           QString::fromStdString(timeText(static_cast<double>(sinceStart_.elapsed()) / 1e3));
}
