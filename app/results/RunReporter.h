#pragma once

#include "app/results/RunModel.h"
#include "base/ProgressChannel.h"
#include "core/ItemProcessing.h"

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>

#include <deque>
#include <memory>
#include <optional>

class QSocketNotifier;

/// A run that has ended, as far as a person is told of it. Main thread.
struct EndedRun {
    const std::vector<PackageRecord>& packages; ///< of the model
    std::string file{};                         ///< with the record
    std::string trouble{};                      ///< why it is not whole; empty if it is
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
    void packagesFound(const std::vector<std::string>& packages);
    void packageStarted(const std::string& package, const std::string& entry,
                        const std::optional<std::string>& identity);
    void scriptStarted(const std::string& script);
    void scriptEnded(const ScriptRun& run);
    /// The archive is read on a thread of its own, for its digest: the next package need not wait.
    void packageEnded();
    /// Waits until the last archive has been read; the model is told before later turns of the main
    /// queue. False if no package was processed since the last time.
    [[nodiscard]] bool runEnded();

    /// Why the run that is shown could not be written down, as a sentence; empty if it could.
    [[nodiscard]] std::string trouble() const { return shown_ ? shown_->trouble() : ""; }
    /// The record of the run that is shown, as it is now; empty if there is no run. One that could
    /// not be written is copied to XDG_RUNTIME_DIR, TMPDIR or /tmp, into a folder of the user's
    /// own; if that fails too, this stands for it (RunRecord::nowhere).
    [[nodiscard]] std::string file();
    /// The process is about to end: what is at work does not get into the record any more.
    void leave();
    /// Whether the run that is shown has not been told, as it has not ended.
    [[nodiscard]] bool isUntold() const { return isUntold_; }
    [[nodiscard]] RunModel& model() { return model_; }
    [[nodiscard]] const RunModel& model() const { return model_; }
    /// From 0 to 1 over the packages of the entry at work.
    [[nodiscard]] double share() const;
    /// "2 of 7 · Packing Notes.app · 43 % · 0:12", or when no script runs "Reading Notes.zip…" as
    /// long as an archive is read; else empty.
    [[nodiscard]] QString progressText() const;

signals:
    void progressChanged();
    /// The run goes on, but its record does not.
    void recordFailed(const QString& sentence);

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
    /// The packages of the run that is shown, those that are left too.
    [[nodiscard]] std::vector<PackageRecord> packages() const;
    [[nodiscard]] std::string copied(const std::string& trouble) const;
    /// Makes the change later, on the main thread. Processing queue.
    void change(std::function<void()> change);

    const std::string folder_;
    const std::string version_;
    std::shared_ptr<RunRecord> record_; ///< of the run under way; processing queue
    std::size_t package_ = 0;           ///< in it; processing queue
    std::vector<std::string> found_; ///< of the entry at work, until one begins; processing queue
    RunModel model_;
    std::shared_ptr<RunRecord> shown_;      ///< of the run that the model has
    std::vector<PackageRecord> foundShown_; ///< in it, until it ends; some may have begun
    std::string copy_; ///< the file in place of one that could not be written; empty if it is old
    bool troubleIsTold_ = false;
    bool isUntold_ = false;
    Progress progress_;
    std::deque<QString> unread_; ///< archives whose digest is not known yet
    QElapsedTimer sinceStart_;
    QTimer everySecond_;
    base::ProgressPipe pipe_;
    std::unique_ptr<QSocketNotifier> notifier_;
};
