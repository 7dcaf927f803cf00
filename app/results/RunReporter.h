#pragma once

#include "app/results/RunModel.h"
#include "base/FileDescriptor.h"
#include "core/ItemProcessing.h"

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>

#include <memory>
#include <optional>

class QSocketNotifier;

/// A run that has ended, as far as a person is told of it.
struct EndedRun {
    std::string file; ///< of its record; empty if there is none
    std::vector<PackageRecord> packages;
    std::string trouble; ///< why the record is not complete
};

/// Takes the facts of processing and keeps them: in the record of the run, and in what the window
/// shows of it. The facts come on the processing queue, all else on the main thread.
class RunReporter : public QObject {
    Q_OBJECT
public:
    /// Makes the pipe through which steps tell their progress, and names it in the environment: to
    /// be called before threads are started. Records go to `folder`.
    RunReporter(std::string folder, std::string version);
    ~RunReporter() override;

    // Facts.
    void packagesFound(std::size_t count);
    void packageStarted(const std::string& package, const std::string& entry,
                        const std::optional<std::string>& identity);
    void scriptStarted(const std::string& script);
    void scriptEnded(const ScriptRun& run);
    void packageEnded();
    /// None if no package was processed since the last time.
    [[nodiscard]] std::optional<EndedRun> runEnded();

    /// What has ended of a run that is not told yet; none if there is no such run. Main thread.
    [[nodiscard]] std::optional<EndedRun> untoldRun() const;
    /// Whether a package of the run that is shown has failed. Main thread.
    [[nodiscard]] bool hasFailed() const;
    [[nodiscard]] RunModel& model() { return model_; }
    /// From 0 to 1 over the packages of the entry at work.
    [[nodiscard]] double share() const;
    /// "2 of 7 · Packing Notes.app · 43 % · 0:12"; empty when no script runs.
    [[nodiscard]] QString progressText() const;

signals:
    void progressChanged();

private:
    struct Progress {
        std::size_t count = 0;
        std::size_t position = 0; ///< from 1
        QString package;
        int steps = 1;
        int step = 0; ///< from 1; 0 when no script runs
        bool signing = false;
        int percent = 0;
    };

    void openPipe();
    void readPipe();
    /// What steps have told and nobody has read.
    QByteArray takeLines();
    /// Makes the change later, on the main thread.
    void change(std::function<void()> change);

    const std::string folder_;
    const std::string version_;
    std::unique_ptr<RunRecord> record_; ///< of the run under way; processing queue
    std::size_t package_ = 0;           ///< in it; processing queue
    RunModel model_;
    bool isUntold_ = false;
    Progress progress_;
    QElapsedTimer sinceStart_;
    QTimer everySecond_;
    std::string pipePath_;
    base::FileDescriptor pipe_;
    std::unique_ptr<QSocketNotifier> notifier_;
};
