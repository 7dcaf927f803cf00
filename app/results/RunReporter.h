#pragma once

#include "app/results/RunModel.h"
#include "base/ProgressChannel.h"
#include "core/ItemProcessing.h"

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>

#include <memory>
#include <optional>

class QSocketNotifier;

/// A run that has ended, as far as a person is told of it. Main thread.
struct EndedRun {
    const std::vector<PackageRecord>& packages; ///< of the model
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
    /// The archive is read on a thread of its own, for its digest: the next package need not wait.
    void packageEnded();
    /// Waits until the last archive has been read; the model is told before later turns of the main
    /// queue. False if no package was processed since the last time.
    [[nodiscard]] bool runEnded();

    /// Whether the run that is shown has not been told, as it has not ended.
    [[nodiscard]] bool isUntold() const { return isUntold_; }
    [[nodiscard]] RunModel& model() { return model_; }
    [[nodiscard]] const RunModel& model() const { return model_; }
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

    void readPipe();
    /// Makes the change later, on the main thread.
    void change(std::function<void()> change);

    const std::string folder_;
    const std::string version_;
    std::shared_ptr<RunRecord> record_; ///< of the run under way; processing queue
    std::size_t package_ = 0;           ///< in it; processing queue
    RunModel model_;
    bool isUntold_ = false;
    Progress progress_;
    QElapsedTimer sinceStart_;
    QTimer everySecond_;
    base::ProgressPipe pipe_;
    std::unique_ptr<QSocketNotifier> notifier_;
};
