#include "app/RevealInFinder.h"

#include "app/toolkit/Beep.h"
#include "core/Log.h"
#include "core/Path.h"
#include "core/ShellRunners.h"
#include "core/platform/FileType.h"

namespace {

bool isFilePackage(const std::string& path) {
    const std::optional<FileType> type = typeOfFile(path);
    return type && conformsToPackage(*type);
}

} // namespace

void revealItemInFinder(const std::optional<std::string>& path) {
    logEvent("Inside revealItemInFinder...revealItemInFinder => %@...", path);
    std::string folder = standardizedPath(path.value_or(""));
    if (folder.empty() || !isDirectory(folder)) {
        playBeep();
        logEvent("User Needs to Select a Valid Existing Folder...");
        return;
    }
    if (isFilePackage(folder))
        folder = deletingLastPathComponent(folder);
    const std::string command = formatted("open \"%@\"", folder);
    logEvent("runCommand will execute: %@", command);
    logEvent("shellcommand returned = %@", runShellCommand(command));
}
