#include "batch/Intake.h"

#include "base/Utf8.h"
#include "core/LocationExpansion.h"
#include "core/Path.h"
#include "core/platform/FileType.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>

#include <unistd.h>

namespace {

/// Why what is at `path` cannot be processed; none if it can, but for a folder that holds nothing.
std::optional<std::string> objectionTo(const std::string& path) {
    if (access(path.c_str(), F_OK) != 0)
        return errno == EACCES ? "it cannot be reached; check the permissions on the way there"
                               : "nothing is there";
    const std::optional<FileType> type = typeOfFile(path);
    if (type == FileType::Data)
        return "a file is there; give a folder or an application package (Name.app)";
    if (access(path.c_str(), R_OK | X_OK) != 0)
        return "it cannot be read; check its permissions";
    if (type == FileType::Volume)
        return "this is a whole volume; give a folder in it";
    if (!validUrlToAdd(path))
        return "this package is not a complete application (its Info.plist or executable is "
               "missing)";
    return std::nullopt;
}

} // namespace

std::vector<std::string> takeIn(const Receiver& receiver, const std::vector<std::string>& paths,
                                WorkSet& workSet) {
    std::vector<std::string> objections;
    LocationList folders;
    LocationList selections;
    for (const std::string& path : paths) {
        std::error_code error;
        const std::string absolute =
            standardizedPath(std::filesystem::absolute(path, error).string());
        if (const auto objection = objectionTo(absolute)) {
            objections.push_back((path.empty() ? "(an empty path)" : path) + ": " + *objection);
            continue;
        }
        selections.emplace_back(FileUrl::fileURLWithPath(absolute));
        if (!hasAppExtension(absolute))
            folders.push_back(selections.back());
    }
    const bool foundAny =
        !validItemsFromUrls(receiver, selections).value_or(std::vector<std::string>{}).empty();
    if (!foundAny)
        selections.clear();
    for (const LocationItem& folder : folders) {
        if (std::ranges::find(selections, folder) == selections.end())
            objections.push_back(*pathOf(folder) +
                                 ": no application packages (Name.app) are in this folder");
    }
    for (const LocationItem& selection : selections)
        workSet.add(*pathOf(selection));
    return objections;
}

std::optional<std::string> objectionToArgument(const std::string& text) {
    if (text.find_first_of("\"$`\\\n") != std::string::npos)
        return "holds a quote, a dollar sign, a back quote, a backslash or a line break, which the "
               "shell would take for its own";
    if (!base::isValidUtf8(text))
        return "is not UTF-8";
    return std::nullopt;
}
