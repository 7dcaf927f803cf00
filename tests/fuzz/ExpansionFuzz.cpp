#include "core/LocationExpansion.h"
#include "core/Log.h"
#include "tests/fuzz/FuzzInput.h"
#include "tests/support/TemporaryFolder.h"

#include <algorithm>
#include <set>

#include <strings.h>

namespace {

namespace fs = std::filesystem;

/// Makes a folder, a file or a link, and with some of the kinds chooses it.
void takeEntry(FuzzInput& input, std::vector<fs::path>& folders, LocationList& items) {
    const std::size_t kind = input.byte();
    const fs::path folder = folders[input.byte() % folders.size()];
    const std::string name = input.fileName() + ((kind & 4U) != 0 ? ".App" : "");
    const std::string path = name.empty() ? folder : folder / name;
    std::error_code error;
    if (kind % 4 == 0)
        fs::create_symlink(folders[input.byte() % folders.size()], path, error);
    else if (kind % 4 == 1)
        fs::create_symlink(name + "/nowhere", path, error);
    else if (kind % 4 == 2)
        std::ofstream{path};
    else if (fs::create_directory(path, error))
        folders.emplace_back(path);
    if ((kind & 8U) != 0)
        items.emplace_back(FileUrl::fileURLWithPath(path));
    if ((kind & 16U) != 0)
        items.emplace_back((kind & 32U) != 0 ? path + '/' : path);
    if ((kind & 64U) != 0)
        items.emplace_back(OtherItem{path});
}

std::string withoutSlash(std::string path) {
    path.erase(path.find_last_not_of('/') + 1);
    return path;
}

bool isNamedApp(const std::string& path) {
    const std::string name = withoutSlash(path);
    return name.size() > 4 && strcasecmp(name.c_str() + name.size() - 4, ".app") == 0;
}

std::vector<std::string> expand(LocationList& items) {
    return validItemsFromUrls(Caller{"Fuzz", "<Fuzz>"}, items).value_or(std::vector<std::string>());
}

/// Whether `selection` is a package or holds one directly.
bool holdsPackage(const std::string& selection, const std::vector<std::string>& packages) {
    return isNamedApp(selection) || std::ranges::any_of(packages, [&](const auto& package) {
               return fs::path(withoutSlash(package)).parent_path() == selection;
           });
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Log::capture([](Log::Severity, std::string_view message) {
        require(message.size() <= Log::messageLimit, "no message is longer than the limit");
    });
    FuzzInput input(data, size);
    const TemporaryFolder folder;
    std::vector<fs::path> folders = {folder.path()};
    LocationList items;
    for (int count = 0; count < 20 && !input.empty(); ++count)
        takeEntry(input, folders, items);

    const LocationList chosen = items;
    const std::vector<std::string> packages = expand(items);
    for (const std::string& package : packages)
        require(isNamedApp(package) && fs::exists(package), "packages exist");
    require(std::set(packages.begin(), packages.end()).size() == packages.size(), "each once");
    for (const LocationItem& item : items) {
        const std::string path = pathOf(item).value_or("");
        require(items == chosen ||
                    (std::holds_alternative<FileUrl>(item) && holdsPackage(path, packages)),
                "rewritten to URLs of what holds packages");
        require(!validUrlToAdd(item) || fs::is_directory(path), "only folders pass");
    }

    // A package may turn out to lie in another one, and what a folder given as a path holds is not
    // among the selections: each round may find less, until nothing changes.
    std::size_t rounds = 0;
    for (LocationList before; before != items; ++rounds) {
        before = items;
        for (const std::string& package : expand(items))
            require(std::ranges::find(packages, withoutSlash(package), withoutSlash) !=
                        packages.end(),
                    "no other packages");
    }
    require(rounds <= chosen.size() + 1, "a list that is rewritten again settles");
    return 0;
}
