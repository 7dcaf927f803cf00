#include "core/SignatureCheck.h"

#include "core/Log.h"
#include "core/Path.h"
#include "core/ShellRunners.h"
#include "core/Text.h"

#include <algorithm>

namespace {

bool isInspected(const Caller& caller, const std::string& path) {
    if (!fileExists(path))
        return false;
    if (!isDirectory(path)) {
        caller.step("...NOT an .app package....");
        return false;
    }
    if (!hasAppExtension(path)) {
        caller.step("...item is just a folder/directory....");
        return false;
    }
    return true;
}

/// Who signed a package, the leaf certificate first, in what the inspector printed.
std::vector<std::string> authoritiesIn(std::string_view output) {
    const auto lines = split(trimmed(output), "\n");
    return {lines.begin(), lines.end()};
}

/// The first authority that is one of the identities, which are asked for anew for each.
std::optional<std::string> knownAuthority(const std::vector<std::string>& authorities,
                                          const std::function<IdentityList()>& identities) {
    for (const std::string& authority : authorities) {
        const IdentityList list = identities();
        if (std::ranges::find(list, authority, &IdentityRecord::displaystring) != list.end())
            return authority;
    }
    return std::nullopt;
}

/// None if the package is not signed.
std::optional<std::vector<std::string>> signingAuthorities(const ToolPaths& tools,
                                                           const std::string& path) {
    const std::string command = formatted("%@ -dv --verbose=4 \"%@\" 2>&1 |awk '/^Authority=/ "
                                          "{sub(\"^Authority=\",\"\");print $0;}'",
                                          tools.codesign, standardizedPath(path));
    logEvent("cmd = %@", command);
    std::optional<std::vector<std::string>> lines;
    if (const auto output = VornNSStringAdditions::outputWhenRunAsShellCommand(command))
        lines = authoritiesIn(*output);
    logEvent("this item was signed with:\n%@", lines);
    return lines;
}

} // namespace

bool isValidItemToSign(const Caller& caller, const ToolPaths& tools, const std::string& path,
                       bool doNotCodesign, const std::function<IdentityList()>& identities) {
    const Caller here = caller.in("isValidItemToSign:");
    if (doNotCodesign) {
        here.step("...returning Valid as prefDoNotCodesign = NO...");
        return true;
    }
    if (!isInspected(here, path))
        return true;
    const auto authorities = signingAuthorities(tools, path);
    if (!authorities)
        return true;
    const auto found = knownAuthority(*authorities, identities);
    here.step("...%@ object = [%@]....", found ? "FOUND" : "DID NOT FIND",
              found.value_or("nothing"));
    return true;
}
