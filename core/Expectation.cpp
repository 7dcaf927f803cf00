#include "core/Expectation.h"

#include "core/Identities.h"
#include "core/ItemProcessing.h"
#include "core/Path.h"
#include "core/Text.h"

#include <algorithm>
#include <filesystem>
#include <iterator>

namespace {

/// "signed as Jane Doe (AB12CD34EF)", "not signed".
std::string wordsFor(const Signing& signing) {
    if (signing.doNotCodesign)
        return "not signed";
    if (!signing.identity)
        return "not signed: no identity is picked";
    if (equalsIgnoringCase(*signing.identity, doNotCodesignIdentity))
        return "not signed";
    return "signed as " + *signing.identity;
}

} // namespace

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
            const std::string path = appendingPathComponent(entry, name);
            if (!name.starts_with('.') && hasAppExtension(name) && fileExists(path))
                expectation.packages.push_back(path);
        }
    }
    std::ranges::sort(expectation.packages);
    expectation.replaced = static_cast<std::size_t>(
        std::ranges::count_if(expectation.packages, [](const std::string& package) {
            return isRegularFile(package.substr(0, package.rfind('.')) + ".zip");
        }));
    return expectation;
}

Expectation expectationOf(const std::vector<std::string>& entries) {
    Expectation all;
    for (const std::string& entry : entries) {
        const Expectation one = expectationOf(entry);
        all.packages.insert(all.packages.end(), one.packages.begin(), one.packages.end());
        all.replaced += one.replaced;
    }
    return all;
}

std::string textOf(const Expectation& expectation, const Signing& signing) {
    const std::size_t count = expectation.packages.size();
    if (count == 0)
        return "no packages";
    return std::to_string(count) + (count == 1 ? " package, " : " packages, ") + wordsFor(signing);
}

std::string textOf(const Signing& signing) {
    const std::string words = wordsFor(signing);
    return words.starts_with("not ") ? "Packages will not be" + words.substr(3)
                                     : "Packages will be " + words;
}

std::string renamingText(const Expectation& expectation) {
    const auto& packages = expectation.packages;
    const auto first = std::ranges::find_if(packages, isChangedByShell);
    if (first == packages.end())
        return {};
    const std::string name = lastPathComponent(*first);
    const auto more = std::count_if(std::next(first), packages.end(), isChangedByShell);
    return more == 0 ? name + " will fail, since the shell reads characters of its path: rename it "
                              "first"
                     : name + " and " + std::to_string(more) +
                           " more will fail, since the shell reads characters of their paths: "
                           "rename them first";
}

std::string replacedText(const Expectation& expectation) {
    if (expectation.replaced == 0)
        return {};
    return expectation.replaced == 1
               ? "1 archive will be replaced"
               : std::to_string(expectation.replaced) + " archives will be replaced";
}
