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
#include <unistd.h>

namespace {

SerialQueue& digestQueue() {
    static SerialQueue& queue = base::neverDestroyed<SerialQueue>("digests");
    return queue;
}

/// Empty if the session has none.
std::string sessionFolder() {
    const char* folder = getenv("XDG_RUNTIME_DIR");
    return folder != nullptr && *folder == '/' ? folder : "";
}

} // namespace

RunReporter::RunReporter(std::string folder, std::string version)
    : folder_(std::move(folder)), version_(std::move(version)) {
    // Not only when destroyed: a process that ends while a script runs is not taken apart.
    connect(qApp, &QCoreApplication::aboutToQuit, this, [this] { unlink(pipe_.path().c_str()); });
    connect(&everySecond_, &QTimer::timeout, this, &RunReporter::progressChanged);
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
    MainQueue::async([self = QPointer<RunReporter>(this), change = std::move(change),
                      trouble = record_ ? record_->trouble() : ""] {
        if (!self)
            return;
        change();
        self->copy_.clear();
        if (std::exchange(self->trouble_, trouble).empty() && !trouble.empty())
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
    record_->packagesFound(std::exchange(found_, {}), entry);
    package_ = record_->packageStarted(package, entry, identity);
    change([this, run = record_, record = record_->package(package_)] {
        if (shown_ != run)
            model_.setPackages({});
        shown_ = run;
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
        model_.putFailedFirst();
    });
    record_.reset();
    return true;
}

std::string RunReporter::file() {
    const std::string file = shown_ ? shown_->file() : "";
    if (!file.empty() && trouble_.empty())
        return file;
    if (copy_.empty()) {
        const std::string session = sessionFolder();
        RunRecord copy(session.empty() ? "" : appendingPathComponent(session, "kelpmoray/runs"),
                       version_, trouble_);
        for (const PackageRecord& package : model_.packages())
            copy.add(package);
        if (!isUntold_)
            copy.finish();
        copy_ = copy.trouble().empty() && !copy.file().empty() ? copy.file() : folder_;
    }
    return copy_;
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
