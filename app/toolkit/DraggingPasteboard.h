#pragma once

#include "core/Location.h"

#include <optional>
#include <string>
#include <vector>

class QMimeData;

/// What a drag carries, in the two forms that locations come in. Main thread, during the drag.
class DraggingPasteboard {
public:
    explicit DraggingPasteboard(const QMimeData& data);

    /// The names of the forms that are there.
    [[nodiscard]] std::vector<std::string> types() const;
    /// The URLs, in order; none if the drag carries no URLs. What is no file is an OtherItem.
    [[nodiscard]] const std::optional<LocationList>& urls() const { return urls_; }
    /// The paths, in order: of the file URLs, or lines of text that are absolute paths. None if
    /// there are no such.
    [[nodiscard]] const std::optional<std::vector<std::string>>& filenames() const {
        return filenames_;
    }

private:
    std::optional<LocationList> urls_;
    std::optional<std::vector<std::string>> filenames_;
};
