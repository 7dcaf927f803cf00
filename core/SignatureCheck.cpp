#include "core/SignatureCheck.h"

#include "core/Log.h"
#include "core/Path.h"
#include "core/ShellRunners.h"
#include "core/Text.h"

#include <algorithm>
#include <optional>
#include <vector>

namespace {

constexpr const char* methodName = "isValidItemToSign:";

bool isInspected(const Receiver& receiver, const std::string& path) {
    if (!fileExists(path))
        return false;
    if (!isDirectory(path)) {
        logEvent("%@-%@...NOT an .app package....", receiver, methodName);
        return false;
    }
    if (!hasAppExtension(path)) {
        logEvent("%@-%@...item is just a folder/directory....", receiver, methodName);
        return false;
    }
    return true;
}

/// Who signed the package, the leaf certificate first; none if it is not signed.
std::optional<std::vector<std::string>> signingAuthorities(const std::string& path) {
    const std::string command =
        format("/usr/bin/codesign -dv --verbose=4 \"%@\" 2>&1 |awk '/^Authority=/ "
               "{sub(\"^Authority=\",\"\");print $0;}'",
               standardizedPath(path));
    logEvent("cmd = %@", command);
    std::optional<std::vector<std::string>> lines;
    if (const auto output = VornNSStringAdditions::outputWhenRunAsShellCommand(command)) {
        const auto pieces = split(trimmed(*output), "\n");
        lines.emplace(pieces.begin(), pieces.end());
    }
    logEvent("this item was signed with:\n%@", lines);
    return lines;
}

} // namespace

bool isValidItemToSign(const Receiver& receiver, const std::string& path, bool doNotCodesign,
                       const std::function<IdentityList()>& identities) {
    if (doNotCodesign) {
        logEvent("%@-%@...returning Valid as prefDoNotCodesign = NO...", receiver, methodName);
        return true;
    }
    if (!isInspected(receiver, path))
        return true;
    const auto authorities = signingAuthorities(path);
    if (!authorities)
        return true;
    const auto found = std::ranges::find_if(*authorities, [&](const std::string& authority) {
        const IdentityList list = identities();
        return std::ranges::find(list, authority, &IdentityRecord::displaystring) != list.end();
    });
    const bool wasFound = found != authorities->end();
    logEvent("%@-%@...%@ object = [%@]....", receiver, methodName,
             wasFound ? "FOUND" : "DID NOT FIND", wasFound ? *found : "nothing");
    return true;
}
