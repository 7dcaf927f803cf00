#pragma once

#include "core/Caller.h"
#include "core/MainBundle.h"
#include "core/ShellRunners.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

// The library core/ makes every decision of the program and has no window. Start here:
// processEntry() does all that happens to one folder or package, and takes the hooks through which
// it asks its caller and tells it what happens. Before that, LocationExpansion.h reduces what a
// person chose to what holds packages, and WorkSet.h keeps it. Nothing here asks a person, draws,
// or knows a toolkit; nothing throws but bad_alloc, and what failed is a base::Error or an absent
// value. Log.h is the only way out for diagnostics. Other programs are started by ShellRunners.h
// alone.

/// One run of a script over a package.
struct ScriptRun {
    std::string scriptFileName;        ///< "(null)" when the script is missing
    std::optional<std::string> output; ///< none when it wrote nothing usable
    double seconds = 0;                ///< that it took
};

/// What processing asks its caller and tells it, on the thread that processes. Each hook has a
/// default.
struct ProcessingHooks {
    std::function<bool()> doNotCodesign = [] { return false; };
    std::function<std::optional<std::string>()> codesigningIdentity = [] { return std::nullopt; };
    std::function<bool(const std::string& package)> isValidItemToSign = [](const auto&) {
        return true;
    };
    std::function<std::optional<std::string>(const std::string& command)> runShellCommand =
        ::runShellCommand;
    /// Whether the package's next script runs after this one.
    std::function<bool(const ScriptRun& run)> goesOnAfter = [](const auto&) { return true; };
    /// Asked before each package. If false, this one and the rest are left as they are.
    std::function<bool()> goesOn = [] { return true; };
    /// These are the entry's packages.
    std::function<void(const std::vector<std::string>& packages)> packagesFound = [](const auto&) {
    };
    /// A package's scripts are about to run.
    std::function<void(const std::string& package)> packageStarted = [](const auto&) {};
    std::function<void(const std::string& scriptFileName)> scriptStarted = [](const auto&) {};
    std::function<void(const ScriptRun& run)> scriptEnded = [](const auto&) {};
    /// A package's scripts have run.
    std::function<void(const std::string& package, const std::vector<ScriptRun>& runs)>
        packageProcessed = [](const auto&, const auto&) {};
};

/// The label of the one queue on which folders are processed.
[[nodiscard]] std::string processQueueLabel(const std::string& bundleIdentifier);

/// What a person is shown while a package's scripts run.
[[nodiscard]] std::string progressText(const std::string& package);

/// Whether a text can be an argument of a script: the command line does not escape it.
enum class ArgumentFault { None, ReadByShell, NotUtf8 };

/// What is wrong with `text` as an argument of a script.
[[nodiscard]] ArgumentFault faultOfArgument(const std::string& text);

/// Whether the shell hands a script something else than `text` where scriptCommandLine() puts it:
/// between double quotes, not escaped. faultOfArgument() is wary of more.
[[nodiscard]] bool isChangedByShell(const std::string& text);

/// SCRIPT "PACKAGE" "IDENTITY": the command line of one script. The script's path stands unquoted
/// and nothing is escaped; a missing script or package prints as "(null)".
[[nodiscard]] std::string scriptCommandLine(const std::optional<std::string>& script,
                                            const std::optional<std::string>& package,
                                            const std::optional<std::string>& identity);

/// Runs the right scripts over one package, each to its end: the one of the edition that never
/// signs if the bundle has it; else the signing one, unless signing is off, and then the packing
/// one. How a script ends changes nothing, unless a hook decides so.
std::vector<ScriptRun> runScripts(const MainBundle& bundle, const ProcessingHooks& hooks,
                                  const std::optional<std::string>& package,
                                  const std::optional<std::string>& identity);

/// Runs the scripts over `package` if it is valid, with the identity chosen now. False if the
/// package is not valid.
bool processPackage(const Caller& caller, const MainBundle& bundle, const ProcessingHooks& hooks,
                    const std::string& package);

/// The packages that one entry of the work set (a folder, or a package itself) stands for, in
/// order.
[[nodiscard]] std::vector<std::string> packagesToProcess(const Caller& caller,
                                                         const std::string& entry);

/// Processes the packages of one entry of the work set (a folder, or a package itself), one after
/// the other. False if some were left because the hooks said so. Blocks while the scripts run:
/// never for the main thread.
bool processEntry(const Caller& caller, const MainBundle& bundle, const ProcessingHooks& hooks,
                  const std::string& entry);
