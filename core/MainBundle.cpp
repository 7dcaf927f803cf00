#include "core/MainBundle.h"

#include "base/Version.h"
#include "core/Format.h"
#include "core/Path.h"
#include "core/platform/ExecutablePath.h"

namespace {

std::optional<std::string> ifExists(std::string path) {
    if (!fileExists(path))
        return std::nullopt;
    return path;
}

} // namespace

const char* const applicationIdentifier = KELPMORAY_IDENTIFIER;

MainBundle MainBundle::ofExecutable(const std::string& executable) {
    MainBundle bundle;
    bundle.identifier = applicationIdentifier;
    bundle.infoDictionary = {{"CFBundleIdentifier", applicationIdentifier},
                             {"CFBundleName", KELPMORAY_NAME},
                             {"CFBundleShortVersionString", base::version()},
                             {"DTXcode", KELPMORAY_BUILD_TOOL},
                             {"DTSDKName", KELPMORAY_BUILD_KIT}};
    bundle.executablesFolder = deletingLastPathComponent(executable);
    const std::string above = deletingLastPathComponent(bundle.executablesFolder);
    if (lastPathComponent(above) == "Contents") {
        bundle.bundlePath = deletingLastPathComponent(above);
        bundle.resourcesFolder = appendingPathComponent(above, "Resources");
    } else {
        bundle.bundlePath = executable;
        bundle.resourcesFolder = appendingPathComponent(above, "share/kelpmoray");
    }
    return bundle;
}

MainBundle MainBundle::ofThisProcess() {
    return ofExecutable(currentExecutablePath());
}

std::string MainBundle::ownFolder() const {
    return deletingLastPathComponent(bundlePath);
}

std::optional<std::string> MainBundle::pathForResource(const std::string& name,
                                                       const std::string& type) const {
    return ifExists(
        appendingPathComponent(resourcesFolder, type.empty() ? name : name + '.' + type));
}

std::optional<std::string> MainBundle::pathForAuxiliaryExecutable(const std::string& name) const {
    return ifExists(appendingPathComponent(executablesFolder, name));
}

std::string appVersionText(const std::map<std::string, std::string>& infoDictionary) {
    const auto value = [&](const char* key) -> std::optional<std::string> {
        const auto entry = infoDictionary.find(key);
        if (entry == infoDictionary.end())
            return std::nullopt;
        return entry->second;
    };
    const auto displayName = value("CFBundleDisplayName");
    return formatted("%@ - v%@ [XC-%@ sdk-%@]", displayName ? displayName : value("CFBundleName"),
                     value("CFBundleShortVersionString"), value("DTXcode").value_or("??"),
                     value("DTSDKName").value_or("??"));
}
