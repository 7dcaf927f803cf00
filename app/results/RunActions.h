#pragma once

#include "app/results/RunReporter.h"
#include "app/toolkit/UserNotification.h"

#include <QObject>

#include <functional>

/// What a person can do about a run that has ended: the actions of its notification, which come
/// through the bus while this exists, or start the application. Main thread.
class RunActions : public QObject {
    Q_OBJECT
public:
    static constexpr const char* showResults = "show-results";
    static constexpr const char* showFolder = "show-folder";

    /// `showRun` is what the action showResults does: it shows the record in `file`, or that of the
    /// last run if none is named. While an application has the name `precedence` on the bus,
    /// actions of notifications are left to it.
    explicit RunActions(std::function<void(const std::string& file)> showRun,
                        std::string precedence = "");

    /// False if there is no such action.
    bool act(const QString& action, const QString& target);
    /// Shows a notification of what failed, wherever the person looks. `identifier` is the
    /// application's.
    static void tellFailure(const std::string& identifier, const EndedRun& run);
    /// Starts the program anew, to show a record (see RunActions()).
    static void showRun(const std::string& file);
    /// Starts the program anew with these packages; one that runs takes them over.
    static void startWith(const std::vector<std::string>& packages);
    /// Shows a folder or a package's folder, off the main thread.
    static void reveal(const std::string& path);

public slots:
    /// Of org.freedesktop.Notifications.
    void invoked(uint notification, const QString& key);

private:
    std::function<void(const std::string&)> showRun_;
    QString precedence_;
};
