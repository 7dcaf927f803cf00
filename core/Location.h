#pragma once

#include "core/FileUrl.h"

#include <optional>
#include <string>
#include <variant>
#include <vector>

/// What an intake list may hold besides paths and file URLs; known by its description only.
struct OtherItem {
    std::string description;
    friend bool operator==(const OtherItem&, const OtherItem&) = default;
};

/// One chosen, dropped or opened location: an absolute path, a file URL, or something else.
using LocationItem = std::variant<std::string, FileUrl, OtherItem>;
using LocationList = std::vector<LocationItem>;

/// The path that an item stands for; none for what is neither path nor URL.
[[nodiscard]] std::optional<std::string> pathOf(const LocationItem& item);

void describe(BoundedText& out, const OtherItem& item);
void describe(BoundedText& out, const LocationItem& item);
void describeElement(BoundedText& out, const LocationItem& item);
