#pragma once

#include "app/results/RunReporter.h"
#include "app/toolkit/NotificationCenter.h"
#include "app/toolkit/SettingsStore.h"
#include "core/MainBundle.h"
#include "core/ToolPaths.h"

#include <QString>

#include <functional>
#include <string>

/// What the window and its controller work with; all of it outlives them.
struct Surroundings {
    const MainBundle& bundle;
    SettingsStore& settings;
    NotificationCenter& notifications;
    ToolPaths tools;
    std::function<void()> terminate;
    /// Shows a person a summary and a body, outside the window. Called on any thread.
    std::function<void(const QString& summary, const QString& body)> notifyUser;
    /// Is told what happens to packages.
    RunReporter& runs;
    /// A run has ended in which something failed; `runs` has its packages.
    std::function<void()> tellFailure;
    /// Starts the program that shows the record of the last run.
    std::function<void()> showLastRun = [] {};
    /// Says in the window, for as long as it takes to read, why something was not taken.
    /// `path`, where the sentence names it, may be shortened; empty if it names none.
    std::function<void(const std::string& sentence, const std::string& path)> explain =
        [](const auto&, const auto&) {};
};
