#include "core/Expectation.h"

#include "core/Identities.h"
#include "core/Path.h"
#include "core/Text.h"

#include <algorithm>
#include <filesystem>

Expectation expectationOf(const std::string& entry) {
    namespace fs = std::filesystem;
    Expectation expectation;
    if (hasAppExtension(entry)) {
        if (fileExists(entry))
            expectation.packages = {entry};
    } else {
        std::error_code error;
        for (fs::directory_iterator file(entry, error), end; !error && file != end;
             file.increment(error)) {
            const std::string name = file->path().filename().string();
            if (!name.starts_with('.') && hasAppExtension(name))
                expectation.packages.push_back(appendingPathComponent(entry, name));
        }
    }
    std::ranges::sort(expectation.packages);
    expectation.replaced = static_cast<std::size_t>(
        std::ranges::count_if(expectation.packages, [](const std::string& package) {
            return isRegularFile(package.substr(0, package.rfind('.')) + ".zip");
        }));
    return expectation;
}

std::string textOf(const Expectation& expectation, bool doNotCodesign,
                   const std::optional<std::string>& identity) {
    const std::size_t count = expectation.packages.size();
    if (count == 0)
        return "no packages";
    const std::string packages = std::to_string(count) + (count == 1 ? " package" : " packages");
    if (doNotCodesign)
        return packages + ", not signed";
    if (!identity || equalsIgnoringCase(*identity, doNotCodesignIdentity))
        return packages + ", not signed: no identity is picked";
    return packages + ", signed as " + *identity;
}

std::string replacedText(const Expectation& expectation) {
    if (expectation.replaced == 0)
        return {};
    return expectation.replaced == 1
               ? "1 archive will be replaced"
               : std::to_string(expectation.replaced) + " archives will be replaced";
}
