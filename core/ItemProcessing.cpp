#include "core/ItemProcessing.h"

#include "base/Utf8.h"
#include "core/LocationExpansion.h"
#include "core/Log.h"
#include "core/Path.h"
#include "core/ScriptOutcome.h"

#include <chrono>
#include <string_view>

namespace {

ScriptRun runScript(const ProcessingHooks& hooks, const std::optional<std::string>& script,
                    const std::optional<std::string>& package,
                    const std::optional<std::string>& identity) {
    const std::string command = scriptCommandLine(script, package, identity);
    logEvent("cmdstring = %@", command);
    ScriptRun run{script ? lastPathComponent(*script) : "(null)", std::nullopt};
    hooks.scriptStarted(run.scriptFileName);
    const auto start = std::chrono::steady_clock::now();
    run.output = hooks.runShellCommand(command);
    run.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    const bool failed = outcomeOf(run).kind == ScriptOutcome::Kind::Failed;
    Log::writeFormatted(failed ? Log::Severity::Error : Log::Severity::Info, "result of %@ = %@",
                        run.scriptFileName, run.output);
    hooks.scriptEnded(run);
    return run;
}

} // namespace

std::string processQueueLabel(const std::string& bundleIdentifier) {
    return (bundleIdentifier.empty() ? applicationIdentifier : bundleIdentifier) + ".process";
}

ArgumentFault faultOfArgument(const std::string& text) {
    if (text.find_first_of("\"$`\\\n") != std::string::npos)
        return ArgumentFault::ReadByShell;
    return base::isValidUtf8(text) ? ArgumentFault::None : ArgumentFault::NotUtf8;
}

bool isChangedByShell(const std::string& text) {
    constexpr std::string_view namesParameter =
        "{(@*#?-$!_0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";
    constexpr std::string_view escaped = "$`\"\\\n";
    for (std::size_t i = 0; i < text.size(); ++i) {
        // Behind the text stands a quote.
        const char next = i + 1 < text.size() ? text[i + 1] : '"';
        if (text[i] == '"' || text[i] == '`' ||
            (text[i] == '$' && namesParameter.find(next) != std::string_view::npos) ||
            (text[i] == '\\' && escaped.find(next) != std::string_view::npos))
            return true;
    }
    return false;
}

std::string progressText(const std::string& package) {
    return formatted("Processing App Package: %@...", lastPathComponent(package));
}

std::string scriptCommandLine(const std::optional<std::string>& script,
                              const std::optional<std::string>& package,
                              const std::optional<std::string>& identity) {
    std::string command = formatted("%@ \"%@\"", script, package);
    if (identity)
        command += formatted(" \"%@\"", identity);
    return command;
}

std::vector<ScriptRun> runScripts(const MainBundle& bundle, const ProcessingHooks& hooks,
                                  const std::optional<std::string>& package,
                                  const std::optional<std::string>& identity) {
    if (const auto zipOnly = bundle.pathForResource("fenwoZipAppsDNP", "sh"))
        return {runScript(hooks, zipOnly, package, std::nullopt)};
    std::vector<ScriptRun> runs;
    if (!hooks.doNotCodesign()) {
        runs.push_back(
            runScript(hooks, bundle.pathForResource("fenwoCodesignApps", "sh"), package, identity));
        if (!hooks.goesOnAfter(runs.back()))
            return runs;
    }
    runs.push_back(
        runScript(hooks, bundle.pathForResource("fenwoJustZipApps", "sh"), package, std::nullopt));
    return runs;
}

bool processPackage(const Caller& caller, const MainBundle& bundle, const ProcessingHooks& hooks,
                    const std::string& package) {
    if (!hooks.isValidItemToSign(package)) {
        caller.step("...item NOT VALID To sign....");
        return false;
    }
    const std::optional<std::string> identity = hooks.codesigningIdentity();
    hooks.packageStarted(package);
    hooks.packageProcessed(package, runScripts(bundle, hooks, package, identity));
    return true;
}

std::vector<std::string> packagesToProcess(const Caller& caller, const std::string& entry) {
    const Caller here = caller.in("doProcessItemNew:");
    here.step("...");
    const LocationList items = {FileUrl::fileURLWithPath(entry)};
    const auto packages = validItemsFromUrls(caller, items);
    here.step("...appsToSign(%i) = %@", packages ? packages->size() : 0, packages);
    return packages.value_or(std::vector<std::string>{});
}

bool processEntry(const Caller& caller, const MainBundle& bundle, const ProcessingHooks& hooks,
                  const std::string& entry) {
    const std::vector<std::string> packages = packagesToProcess(caller, entry);
    hooks.packagesFound(packages);
    for (const std::string& package : packages) {
        if (!hooks.goesOn())
            return false;
        processPackage(caller.in("doProcessItemNew:"), bundle, hooks, package);
    }
    return true;
}
