#include "batch/Intake.h"

#include "core/LocationExpansion.h"
#include "core/Path.h"
#include "core/platform/FileType.h"

#include <filesystem>

namespace {

/// Why the location cannot be processed; none if it can.
std::optional<std::string> objectionTo(const Receiver& receiver, const FileUrl& url) {
    const std::optional<FileType> type = typeOfFile(url.path());
    if (!type)
        return "nothing is there";
    if (*type == FileType::Data)
        return "a file is there; give a folder or an application package (Name.app)";
    if (*type == FileType::Volume)
        return "this is a whole volume; give a folder in it";
    if (!validUrlToAdd(url))
        return "this package is not a complete application (its Info.plist or executable is "
               "missing)";
    const LocationList alone = {url};
    if (validItemsFromUrls(receiver, alone).value_or(std::vector<std::string>{}).empty())
        return "no application packages (Name.app) are in this folder";
    return std::nullopt;
}

} // namespace

std::vector<std::string> takeIn(const Receiver& receiver, const std::vector<std::string>& paths,
                                WorkSet& workSet) {
    std::vector<std::string> objections;
    LocationList locations;
    for (const std::string& path : paths) {
        std::error_code error;
        const std::string absolute = std::filesystem::absolute(path, error).string();
        const FileUrl url = FileUrl::fileURLWithPath(standardizedPath(absolute));
        if (const auto objection = objectionTo(receiver, url))
            objections.push_back(path + ": " + *objection);
        else
            locations.emplace_back(url);
    }
    if (!locations.empty())
        validItemsFromUrls(receiver, locations);
    for (const LocationItem& location : locations)
        workSet.add(*pathOf(location));
    return objections;
}
