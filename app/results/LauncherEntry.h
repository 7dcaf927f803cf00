#pragma once

#include <optional>

/// The progress in the task bar, if the desktop shows one: the signal Update of the interface
/// com.canonical.Unity.LauncherEntry (defined by Unity's Launcher API) on the session bus. Main
/// thread.
class LauncherEntry {
public:
    /// From 0 to 1; none shows no progress. Sends changes only.
    void show(std::optional<double> share);

private:
    std::optional<int> shown_; ///< in per cent
};
