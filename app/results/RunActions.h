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
    // Both start the program anew. If that fails, they give sentences that say why.
    /// Shows a record (see RunActions()).
    [[nodiscard]] static std::string showRun(const std::string& file);
    /// Opens the packages of a record that were not done; a program that runs takes them over. The
    /// record must be there and have some.
    [[nodiscard]] static std::string retry(const std::string& file);
    /// Shows a folder or a package's folder, off the main thread. If that fails, `tell` is called
    /// there with a sentence that says why.
    static void reveal(const std::string& path,
                       std::function<void(const std::string& sentence)> tell);

public slots:
    /// Of org.freedesktop.Notifications.
    void invoked(uint notification, const QString& key);

private:
    std::function<void(const std::string&)> showRun_;
    QString precedence_;
};
