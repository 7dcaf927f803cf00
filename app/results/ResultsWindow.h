#pragma once

#include "app/results/ResultsList.h"

#include <QComboBox>
#include <QLabel>
#include <QPushButton>
#include <QWidget>

#include <functional>
#include <string>

/// The window "Kelpmoray Results": the record of the last run, or of an earlier one. Main thread.
class ResultsWindow : public QWidget {
    Q_OBJECT
public:
    struct Outside {
        /// Shows a folder, or the folder of a package.
        std::function<void(const std::string& path)> reveal;
        /// Opens packages anew in the main window.
        std::function<void(const std::vector<std::string>& packages)> retry;
    };

    /// The runs recorded in `folder`; the newest is shown.
    ResultsWindow(const std::string& folder, Outside outside);

private:
    void layOut();
    void showRun(const std::string& file);
    void showCurrent();
    void retryFailed();

    Outside outside_;
    RunModel model_;
    QComboBox* runs_;
    QLabel* summary_;
    ResultsList* list_;
    QLabel* message_;
    QPushButton* reveal_;
    QPushButton* copy_;
    QPushButton* output_;
    QPushButton* retry_;
};
