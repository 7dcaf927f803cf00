#include "batch/Intake.h"

#include "core/LocationCheck.h"
#include "core/LocationExpansion.h"
#include "core/Path.h"

#include <algorithm>

std::vector<base::Error> addToWorkSet(const Caller& caller, const std::vector<std::string>& paths,
                                      WorkSet& workSet) {
    std::vector<base::Error> errors;
    LocationList folders;
    LocationList selections;
    for (const std::string& path : paths) {
        const std::string absolute = standardizedPath(absolutePath(path));
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
                 *pathOf(folder) +
                     ": no application packages (Name.app) are in this folder. Give another one."});
    }
    for (const LocationItem& selection : selections)
        workSet.add(*pathOf(selection));
    return errors;
}
