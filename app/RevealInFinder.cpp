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

struct Answer {
    std::optional<std::string> output;
    std::string status; ///< empty if it is not known
};

/// Runs a command whose status is printed behind its output: the runners do not tell it.
Answer answerOf(const std::string& command) {
    std::string quoted = command;
    for (std::size_t at = 0; (at = quoted.find('\'', at)) != quoted.npos; at += 4)
        quoted.replace(at, 1, "'\\''");
    std::optional<std::string> text =
        runShellCommand("/bin/sh -c '" + quoted + "'; printf '\\n%d' $?");
    const std::size_t end = text ? text->rfind('\n') : std::string::npos;
    if (end == std::string::npos)
        return {text, ""};
    Answer answer{std::nullopt, text->substr(end + 1)};
    if (end > 0)
        answer.output = text->substr(0, end);
    return answer;
}

std::string failureOf(const std::string& folder, const std::string& status) {
    constexpr const char* notFound = "127";
    if (status == notFound)
        return formatted("%@ cannot be shown, since the command open is not installed: install "
                         "the package xdg-utils.",
                         folder);
    return formatted("%@ cannot be shown, since the command open ended with status %@: open it in "
                     "a file browser.",
                     folder, status);
}

} // namespace

void revealItemInFinder(const std::optional<std::string>& path,
                        const std::function<void(const std::string&)>& tell) {
    logEvent("Inside revealItemInFinder...revealItemInFinder => %@...", path);
    std::string folder = standardizedPath(path.value_or(""));
    if (folder.empty() || !isDirectory(folder)) {
        playBeep();
        logEvent("User Needs to Select a Valid Existing Folder...");
        if (!folder.empty())
            tell(formatted("%@ cannot be shown, since no folder of this name is there: it was "
                           "moved or removed.",
                           folder));
        return;
    }
    if (isFilePackage(folder))
        folder = deletingLastPathComponent(folder);
    const std::string command = formatted("open \"%@\"", folder);
    logEvent("runCommand will execute: %@", command);
    const Answer answer = answerOf(command);
    logEvent("shellcommand returned = %@", answer.output);
    if (answer.status.empty() || answer.status == "0")
        return;
    const std::string failure = failureOf(folder, answer.status);
    logFailure("reveal: %@", failure);
    tell(failure);
}
