#include "core/Location.h"

std::optional<std::string> pathOf(const LocationItem& item) {
    if (const auto* path = std::get_if<std::string>(&item))
        return *path;
    if (const auto* url = std::get_if<FileUrl>(&item))
        return url->path();
    return std::nullopt;
}

void describe(BoundedText& out, const OtherItem& item) {
    out.append(item.description);
}

void describe(BoundedText& out, const LocationItem& item) {
    std::visit([&](const auto& value) { describe(out, value); }, item);
}

void describeElement(BoundedText& out, const LocationItem& item) {
    std::visit([&](const auto& value) { describeElement(out, value); }, item);
}
