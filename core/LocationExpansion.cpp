#include "core/LocationExpansion.h"

#include "core/Log.h"
#include "core/OrderedSet.h"
#include "core/Path.h"
#include "core/platform/FileType.h"

#include <algorithm>
#include <memory>
#include <unordered_set>

#include <dirent.h>

namespace {

constexpr const char* method = "validItemsFromUrls:";

struct Expansion {
    OrderedSet<std::string> packages;
    OrderedSet<FileUrl> selections;
};

/// The entries of a folder that are not hidden, by name; empty if it cannot be listed.
std::vector<FileUrl> contentsOfFolder(const std::string& folder) {
    std::vector<FileUrl> contents;
    const std::unique_ptr<DIR, int (*)(DIR*)> stream(opendir(folder.c_str()), closedir);
    if (!stream)
        return contents;
    while (const dirent* entry = readdir(stream.get())) {
        if (entry->d_name[0] != '.')
            contents.emplace_back(appendingPathComponent(folder, entry->d_name),
                                  entry->d_type == DT_DIR);
    }
    std::ranges::sort(contents, {}, &FileUrl::path);
    return contents;
}

std::unordered_set<FileUrl> urlsAmong(const LocationList& items) {
    std::unordered_set<FileUrl> urls;
    for (const LocationItem& item : items) {
        if (const auto* url = std::get_if<FileUrl>(&item))
            urls.insert(*url);
    }
    return urls;
}

void addPackage(Expansion& expansion, const std::string& path,
                const std::unordered_set<FileUrl>& selected) {
    expansion.packages.insert(path);
    const FileUrl url = FileUrl::fileURLWithPath(path);
    const FileUrl parent = url.deletingLastPathComponent();
    expansion.selections.insert(selected.contains(parent) ? parent : url);
}

void addPackagesIn(Expansion& expansion, const std::string& folder,
                   const std::unordered_set<FileUrl>& selected) {
    const std::vector<FileUrl> contents = contentsOfFolder(folder);
    for (const FileUrl& entry : contents) {
        logEvent("==============");
        logEvent("items(%i) = %@", contents.size(), contents);
        logEvent("==============");
        if (!fileExists(entry.path()) || !hasAppExtension(entry.path()))
            continue;
        const FileUrl parent = entry.deletingLastPathComponent();
        if (selected.contains(parent)) {
            logEvent("parent url is part of orignal selection....");
            expansion.selections.insert(parent);
        }
        expansion.packages.insert(entry.path());
    }
}

Expansion expand(const LocationList& items) {
    logEvent("\n");
    logEvent("\n");
    logEvent("starting urls(%i) = %@", items.size(), items);
    logEvent("\n");
    logEvent("\n");
    Expansion expansion;
    const std::unordered_set<FileUrl> selected = urlsAmong(items);
    for (const LocationItem& item : items) {
        const std::optional<std::string> path = pathOf(item);
        if (!path || !fileExists(*path))
            continue;
        if (hasAppExtension(*path))
            addPackage(expansion, *path, selected);
        else
            addPackagesIn(expansion, *path, selected);
    }
    return expansion;
}

std::vector<std::string> finish(const Caller& caller, const Expansion& expansion) {
    logEvent("Inside %@ => %@...final mAdjustedUrlSet = %@", caller.className, method,
             expansion.selections);
    logEvent("Inside %@ => %@...final            mSet = %@", caller.className, method,
             expansion.packages);
    return expansion.packages.members();
}

} // namespace

std::optional<std::vector<std::string>> validItemsFromUrls(const Caller& caller,
                                                           LocationList& items) {
    if (items.empty())
        return validItemsFromUrls(caller, std::as_const(items));
    const Expansion expansion = expand(items);
    const std::vector<FileUrl>& selections = expansion.selections.members();
    if (!selections.empty())
        items.assign(selections.begin(), selections.end());
    else
        logEvent("BOOOOOO .. something went wrong.......Should never be empty?????....");
    return finish(caller, expansion);
}

std::optional<std::vector<std::string>> validItemsFromUrls(const Caller& caller,
                                                           const LocationList& items) {
    if (items.empty()) {
        logEvent("Inside %@ => %@...", caller.className, method);
        return std::nullopt;
    }
    return finish(caller, expand(items));
}

bool validUrlToAdd(const LocationItem& item) {
    const std::optional<std::string> path = pathOf(item);
    if (!path)
        return false;
    const std::optional<FileType> type = typeOfFile(FileUrl::fileURLWithPath(*path).path());
    return type == FileType::Folder || type == FileType::ApplicationBundle;
}

std::int16_t checkTotalItems(const Caller& caller, LocationList& items) {
    const auto packages = validItemsFromUrls(caller, items);
    return static_cast<std::int16_t>(packages ? packages->size() : 0);
}
