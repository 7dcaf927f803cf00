#include "batch/Intake.h"

#include "base/Utf8.h"
#include "core/Format.h"
#include "core/LocationExpansion.h"
#include "core/Path.h"
#include "core/platform/FileType.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>

#include <unistd.h>

namespace {

/// Success if what is at `path` can be processed, or is a folder, which may hold nothing. `asGiven`
/// names it in the error.
base::Outcome checkLocation(const std::string& path, const std::string& asGiven) {
    using enum base::ErrorKind;
    const auto refuse = [&](base::ErrorKind kind, const char* reason) {
        return base::Error{kind, formatted(reason, asGiven)};
    };
    if (access(path.c_str(), F_OK) != 0)
        return errno == EACCES
                   ? refuse(Denied,
                            "%@: it cannot be reached; check the permissions on the way there")
                   : refuse(NotFound, "%@: nothing is there");
    const std::optional<FileType> type = typeOfFile(path);
    if (type == FileType::Data)
        return refuse(Unsupported, "%@: a file is there; give a folder or an application package "
                                   "(Name.app)");
    if (access(path.c_str(), R_OK | X_OK) != 0)
        return refuse(Denied, "%@: it cannot be read; check its permissions");
    if (type == FileType::Volume)
        return refuse(Unsupported, "%@: this is a whole volume; give a folder in it");
    if (!validUrlToAdd(path))
        return refuse(Damaged, "%@: this package is not a complete application (its Info.plist or "
                               "executable is missing)");
    return {};
}

} // namespace

std::vector<base::Error> addToWorkSet(const Caller& caller, const std::vector<std::string>& paths,
                                      WorkSet& workSet) {
    std::vector<base::Error> errors;
    LocationList folders;
    LocationList selections;
    for (const std::string& path : paths) {
        std::error_code error;
        const std::string absolute =
            standardizedPath(std::filesystem::absolute(path, error).string());
        if (auto checked = checkLocation(absolute, path.empty() ? "(an empty path)" : path);
            !checked) {
            errors.push_back(checked.error());
            continue;
        }
        selections.emplace_back(FileUrl::fileURLWithPath(absolute));
        if (!hasAppExtension(absolute))
            folders.push_back(selections.back());
    }
    const bool foundAny =
        !validItemsFromUrls(caller, selections).value_or(std::vector<std::string>{}).empty();
    if (!foundAny)
        selections.clear();
    for (const LocationItem& folder : folders) {
        if (std::ranges::find(selections, folder) == selections.end())
            errors.push_back(
                {base::ErrorKind::NotFound,
                 *pathOf(folder) + ": no application packages (Name.app) are in this folder"});
    }
    for (const LocationItem& selection : selections)
        workSet.add(*pathOf(selection));
    return errors;
}

ArgumentFault faultOfArgument(const std::string& text) {
    if (text.find_first_of("\"$`\\\n") != std::string::npos)
        return ArgumentFault::ReadByShell;
    return base::isValidUtf8(text) ? ArgumentFault::None : ArgumentFault::NotUtf8;
}
