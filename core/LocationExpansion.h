#pragma once

#include "core/Caller.h"
#include "core/Location.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// Finds the packages in a mixed selection of packages and folders. None of these functions reports
/// an error: an item that is no path, does not exist or cannot be listed contributes nothing. Any
/// thread; no other thread may use the list meanwhile.

/// The paths of the application packages that `items` name: those chosen directly and those
/// directly in a chosen folder, each once. None for an empty list. When any selection held a
/// package, `items` becomes the list of such selections: folders stand for the packages in them.
std::optional<std::vector<std::string>> validItemsFromUrls(const Caller& caller,
                                                           LocationList& items);

/// Same, but `items` stays as it is.
[[nodiscard]] std::optional<std::vector<std::string>> validItemsFromUrls(const Caller& caller,
                                                                         const LocationList& items);

/// Whether `item` is exactly a folder or a well-formed application: no other package, no volume, no
/// plain file.
[[nodiscard]] bool validUrlToAdd(const LocationItem& item);

/// How many packages validItemsFromUrls finds in `items`, which it rewrites in the same way.
[[nodiscard]] std::int16_t checkTotalItems(const Caller& caller, LocationList& items);
