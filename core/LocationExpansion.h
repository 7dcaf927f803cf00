#pragma once

#include "core/Location.h"
#include "core/Receiver.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// From a mixed selection of packages and folders to the packages in it. None of these reports an
/// error: what is no path, does not exist or cannot be listed contributes nothing. Any thread; the
/// caller alone holds the list meanwhile.

/// The paths of the application packages that `items` name: those chosen directly and those
/// directly in a chosen folder, each once. None for an empty list. When any selection held a
/// package, `items` becomes the list of such selections: folders stand for the packages in them.
std::optional<std::vector<std::string>> validItemsFromUrls(const Receiver& receiver,
                                                           LocationList& items);

/// The same without the rewriting.
[[nodiscard]] std::optional<std::vector<std::string>> validItemsFromUrls(const Receiver& receiver,
                                                                         const LocationList& items);

/// Whether `item` is exactly a folder or a well-formed application: no other package, no volume, no
/// plain file.
[[nodiscard]] bool validUrlToAdd(const LocationItem& item);

/// How many packages validItemsFromUrls finds in `items`, which it rewrites in the same way.
[[nodiscard]] std::int16_t checkTotalItems(const Receiver& receiver, LocationList& items);
