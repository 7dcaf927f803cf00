#include "core/SignatureCheck.h"

#include "core/Log.h"
#include "core/Path.h"
#include "core/ShellRunners.h"
#include "core/Text.h"

#include <algorithm>

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

/// None if the package is not signed.
std::optional<std::vector<std::string>> signingAuthorities(const std::string& path) {
    const std::string command =
        formatted("/usr/bin/codesign -dv --verbose=4 \"%@\" 2>&1 |awk '/^Authority=/ "
                  "{sub(\"^Authority=\",\"\");print $0;}'",
                  standardizedPath(path));
    logEvent("cmd = %@", command);
    std::optional<std::vector<std::string>> lines;
    if (const auto output = VornNSStringAdditions::outputWhenRunAsShellCommand(command))
        lines = authoritiesIn(*output);
    logEvent("this item was signed with:\n%@", lines);
    return lines;
}

} // namespace

std::vector<std::string> authoritiesIn(std::string_view output) {
    const auto lines = split(trimmed(output), "\n");
    return {lines.begin(), lines.end()};
}

std::optional<std::string> knownAuthority(const std::vector<std::string>& authorities,
                                          const std::function<IdentityList()>& identities) {
    for (const std::string& authority : authorities) {
        const IdentityList list = identities();
        if (std::ranges::find(list, authority, &IdentityRecord::displaystring) != list.end())
            return authority;
    }
    return std::nullopt;
}

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
    const auto found = knownAuthority(*authorities, identities);
    logEvent("%@-%@...%@ object = [%@]....", receiver, methodName, found ? "FOUND" : "DID NOT FIND",
             found.value_or("nothing"));
    return true;
}
