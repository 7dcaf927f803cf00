#pragma once

#include <optional>

/// The progress in the task bar, where the desktop shows one: the signal Update of the interface
/// com.canonical.Unity.LauncherEntry (defined by Unity's Launcher API) on the session bus. Main
/// thread.
class LauncherEntry {
public:
    /// From 0 to 1; none shows no progress. Says nothing twice.
    void show(std::optional<double> share);

private:
    std::optional<int> shown_; ///< in per cent
};
