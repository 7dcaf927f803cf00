#pragma once

#include "core/Location.h"

#include <QPointer>

class NotificationCenter;
class ViewController;

/// Answers what the desktop asks the application. Main thread.
class AppDelegate {
public:
    explicit AppDelegate(NotificationCenter& notifications) : notifications_(notifications) {}

    void applicationDidFinishLaunching() {}
    void applicationWillTerminate() {}
    /// Always: closing the window quits.
    [[nodiscard]] bool applicationShouldTerminateAfterLastWindowClosed() const { return true; }
    /// Posts the locations, as they are, as one "newsearchpath" notification in a later turn.
    void applicationOpenURLs(const LocationList& urls);

    [[nodiscard]] ViewController* fMainViewController() const;
    void setFMainViewController(ViewController* controller);

private:
    NotificationCenter& notifications_;
    QPointer<ViewController> mainViewController_;
};
