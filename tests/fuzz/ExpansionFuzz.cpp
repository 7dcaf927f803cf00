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

bool isNamedApp(const fs::path& path) {
    const std::string name = path.filename();
    return name.size() > 4 && strcasecmp(name.substr(name.size() - 4).c_str(), ".app") == 0;
}

void addOnce(std::vector<std::string>& list, const std::string& member) {
    if (std::ranges::find(list, member) == list.end())
        list.push_back(member);
}

struct Expected {
    explicit Expected(const LocationList& items) {
        std::set<std::string> urls;
        for (const LocationItem& item : items) {
            if (const auto* url = std::get_if<FileUrl>(&item))
                urls.insert(url->path());
        }
        for (const LocationItem& item : items) {
            std::string path = pathOf(item).value_or("");
            std::error_code error;
            if (!fs::exists(path, error))
                continue;
            const std::string asGiven = path;
            if (path.ends_with('/'))
                path.pop_back();
            if (!isNamedApp(path)) {
                addChildren(path, urls.contains(path));
                continue;
            }
            const std::string parent = fs::path(path).parent_path();
            addOnce(packages, asGiven);
            addOnce(selections, urls.contains(parent) ? parent : path);
        }
    }

    void addChildren(const std::string& folder, bool isChosen) {
        std::set<std::string> sorted;
        std::error_code error;
        for (const auto& entry : fs::directory_iterator(folder, error)) {
            const std::string name = entry.path().filename();
            if (isNamedApp(name) && !name.starts_with('.') && fs::exists(entry.path(), error))
                sorted.insert(entry.path());
        }
        for (const std::string& package : sorted)
            addOnce(packages, package);
        if (isChosen && !sorted.empty())
            addOnce(selections, folder);
    }

    std::vector<std::string> packages;
    std::vector<std::string> selections;
};

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
    const Expected expected(items);
    const auto packages = validItemsFromUrls(Receiver{"Fuzz", "<Fuzz>"}, items);
    require(packages.has_value() == !chosen.empty(), "none for nothing only");
    if (!packages)
        return 0;
    require(*packages == expected.packages, "the packages in the order of the selection");
    std::vector<std::string> selections;
    for (const LocationItem& item : items) {
        require(std::holds_alternative<FileUrl>(item) || items == chosen, "rewritten to URLs");
        selections.push_back(pathOf(item).value_or(""));
        require(!validUrlToAdd(item) || fs::is_directory(selections.back()), "only folders pass");
    }
    require(expected.selections.empty() ? items == chosen : selections == expected.selections,
            "the selections that hold packages");
    return 0;
}
