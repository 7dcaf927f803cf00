#include "core/ScriptLocator.h"

#include "core/Log.h"
#include "core/Path.h"

namespace {

std::optional<std::string> scriptInAlternateFolders(const std::string& scriptName,
                                                    const std::string& applicationFolder) {
    for (const std::string& folder : {homeFolder() + "/Desktop", applicationFolder}) {
        std::string path = appendingPathComponent(folder, scriptName);
        if (fileExists(path)) {
            logEvent("FOUND alternate path for shell script at: %@", path);
            return path;
        }
    }
    return std::nullopt;
}

std::string deletingPathExtension(const std::string& name, const std::string& extension) {
    return extension.empty() ? name : name.substr(0, name.size() - extension.size() - 1);
}

} // namespace

std::string VornNSStringAdditions::getPathToScript(const std::string& scriptName,
                                                   const MainBundle& bundle) {
    const std::string folder = bundle.ownFolder();
    logEvent("bundlePath is %@", folder);
    logEvent("Searching for shell script file in alternate paths first ...");
    std::optional<std::string> path = scriptInAlternateFolders(scriptName, folder);
    if (!path)
        path = bundle.pathForAuxiliaryExecutable(scriptName);
    if (!path) {
        const std::string extension = pathExtension(scriptName);
        path = bundle.pathForResource(deletingPathExtension(scriptName, extension), extension);
    }
    if (!path)
        logFailure("\n\nrunShellScript FAILED => UNABLE to find script named: [%@]!\n\n",
                   scriptName);
    return formatted("%@", path);
}
