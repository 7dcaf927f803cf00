#pragma once

#include "app/AppDelegate.h"
#include "app/results/RunActions.h"
#include "app/toolkit/FileOpenEvents.h"
#include "app/toolkit/NotificationCenter.h"
#include "app/toolkit/OpenRequests.h"
#include "app/toolkit/SettingsStore.h"
#include "core/MainBundle.h"

#include <memory>

class MainWindow;

/// The application put together: what main() runs. Needs a QApplication, which outlives it. Main
/// thread.
class Application {
public:
    Application();
    ~Application();

    /// Hands `locations` to the application that already runs. False if none does.
    [[nodiscard]] bool handOver(const LocationList& locations, const ActivationTokens& tokens = {});
    /// Loads and shows the window, then opens `locations`.
    void start(const LocationList& locations);

private:
    void showWindow();
    [[nodiscard]] bool lastRunFailed() const;
    void open(const LocationList& locations);
    /// The one in `file`, or the last run if none is named.
    void showRun(const std::string& file);
    void tellFailure();
    /// Says why the results cannot be shown where no window can say it; nothing if they can.
    void tellOutside(const std::string& failure);

    MainBundle bundle_ = MainBundle::ofThisProcess();
    NotificationCenter notifications_;
    AppDelegate delegate_{notifications_};
    OpenRequests requests_;
    FileOpenEvents fileOpenEvents_{[this](const QStringList& uris) { requests_.open(uris); }};
    RunReporter runs_{RunRecord::userFolder(),
                      bundle_.infoDictionary["CFBundleShortVersionString"]};
    RunActions actions_{[this](const std::string& file) { showRun(file); }};
    std::unique_ptr<SettingsStore> settings_;
    std::unique_ptr<MainWindow> window_;
};
