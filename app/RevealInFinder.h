#pragma once

#include <functional>
#include <optional>
#include <string>

/// Opens the folder at `path` in the file browser, or the folder that holds the package at `path`.
/// For none, and for what is no existing folder, it beeps and logs. Blocks until the browser's
/// command has ended: never on the main thread. If there is a path but nothing is shown, `tell` is
/// called on this thread with a sentence that says why.
void revealItemInFinder(
    const std::optional<std::string>& path,
    const std::function<void(const std::string& sentence)>& tell = [](const auto&) {});
