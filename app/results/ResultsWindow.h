#pragma once

#include "app/results/ResultsList.h"

#include <QComboBox>
#include <QLabel>
#include <QMainWindow>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTimer>

#include <functional>
#include <optional>
#include <string>

/// The window "Kelpmoray Results": the record of the last run, or of an earlier one. Main thread.
class ResultsWindow : public QMainWindow {
    Q_OBJECT
public:
    struct Outside {
        /// Shows a folder, or the folder of a package. If that fails, calls `tell` with a
        /// sentence that says why, on any thread.
        std::function<void(const std::string& path,
                           std::function<void(const std::string& sentence)> tell)>
            reveal;
        /// Opens the packages of a record that were not done, anew in the main window. A sentence
        /// that says why if that fails; empty otherwise.
        std::function<std::string(const std::string& file)> retry;
    };

    /// Shows nothing yet. The records of runs are in `folder`.
    ResultsWindow(std::string folder, Outside outside);

    /// Reads the folder again and shows the record in `file`, which may lie elsewhere, or the
    /// newest in the folder if none is named.
    void showRecord(const std::string& file = "");

private:
    void layOut();
    void offerRetry(const std::optional<RecordedRun>& run);
    void connectParts();
    void summarizeNext();
    void showRun(const std::string& file);
    void showCurrent();
    void reveal(const QString& path);
    void retryFailed();

    const std::string folder_;
    Outside outside_;
    QTimer summarizing_;
    int summarized_ = 0; ///< how many of the runs say what became of them
    RunModel model_;
    QString trouble_; ///< why the run that is shown could not be written down
    QComboBox* runs_;
    QLabel* summary_;
    ResultsList* list_;
    QPlainTextEdit* message_; ///< not a label: those cut a long word, and a long text
    QPushButton* reveal_;
    QPushButton* copy_;
    QPushButton* output_;
    QPushButton* retry_;
};
