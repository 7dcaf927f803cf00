#include "core/ItemProcessing.h"

#include "core/LocationExpansion.h"
#include "core/Log.h"
#include "core/Path.h"
#include "core/ScriptOutcome.h"

namespace {

ScriptRun runScript(const ProcessingOutside& outside, const std::optional<std::string>& script,
                    const std::optional<std::string>& package,
                    const std::optional<std::string>& identity) {
    const std::string command = scriptCommandLine(script, package, identity);
    logEvent("cmdstring = %@", command);
    ScriptRun run{script ? lastPathComponent(*script) : "(null)", outside.runShellCommand(command)};
    const bool failed = outcomeOf(run).kind == ScriptOutcome::Kind::Failed;
    Log::writeFormatted(failed ? Log::Severity::Error : Log::Severity::Info, "result of %@ = %@",
                        run.scriptFileName, run.output);
    return run;
}

} // namespace

std::string processQueueLabel(const std::string& bundleIdentifier) {
    return (bundleIdentifier.empty() ? "com.quenbark.kelpmoray" : bundleIdentifier) + ".process";
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

std::vector<ScriptRun> runScripts(const MainBundle& bundle, const ProcessingOutside& outside,
                                  const std::optional<std::string>& package,
                                  const std::optional<std::string>& identity) {
    if (const auto zipOnly = bundle.pathForResource("fenwoZipAppsDNP", "sh"))
        return {runScript(outside, zipOnly, package, std::nullopt)};
    std::vector<ScriptRun> runs;
    if (!outside.doNotCodesign()) {
        runs.push_back(runScript(outside, bundle.pathForResource("fenwoCodesignApps", "sh"),
                                 package, identity));
    }
    runs.push_back(runScript(outside, bundle.pathForResource("fenwoJustZipApps", "sh"), package,
                             std::nullopt));
    return runs;
}

bool processPackage(const Receiver& receiver, const char* methodName, const MainBundle& bundle,
                    const ProcessingOutside& outside, const std::string& package) {
    if (!outside.isValidItemToSign(package)) {
        logEvent("%@-%@...item NOT VALID To sign....", receiver, methodName);
        return false;
    }
    const std::optional<std::string> identity = outside.codesigningIdentity();
    outside.packageStarted(package);
    outside.packageProcessed(package, runScripts(bundle, outside, package, identity));
    return true;
}

void processEntry(const Receiver& receiver, const MainBundle& bundle,
                  const ProcessingOutside& outside, const std::string& entry) {
    constexpr const char* methodName = "doProcessItemNew:";
    logEvent("%@-%@...", receiver, methodName);
    const LocationList items = {FileUrl::fileURLWithPath(entry)};
    const auto packages = validItemsFromUrls(receiver, items);
    logEvent("%@-%@...appsToSign(%i) = %@", receiver, methodName, packages ? packages->size() : 0,
             packages);
    for (const std::string& package : packages.value_or(std::vector<std::string>{}))
        processPackage(receiver, methodName, bundle, outside, package);
}
