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

    /// `showLastRun` is what the action of that name does. While an application has the name
    /// `precedence` on the bus, actions of notifications are left to it.
    explicit RunActions(std::function<void()> showLastRun = &RunActions::startLastRun,
                        std::string precedence = "");

    /// False if there is no such action.
    bool act(const QString& action, const QString& target);
    /// Shows a notification of what failed, wherever the person looks. `identifier` is the
    /// application's.
    static void tellFailure(const std::string& identifier, const EndedRun& run);
    /// Starts the program anew, to show the record of the last run.
    static void startLastRun();
    /// Starts the program anew with these packages; one that runs takes them over.
    static void startWith(const std::vector<std::string>& packages);
    /// Shows a folder or a package's folder, off the main thread.
    static void reveal(const std::string& path);

public slots:
    /// Of org.freedesktop.Notifications.
    void invoked(uint notification, const QString& key);

private:
    std::function<void()> showLastRun_;
    QString precedence_;
};
