#include "app/Names.h"
#include "app/ViewController.h"
#include "app/toolkit/Beep.h"
#include "app/toolkit/ChoosePanel.h"
#include "app/toolkit/QtDescription.h"
#include "app/toolkit/Queues.h"
#include "app/toolkit/SettingsStore.h"
#include "core/Expectation.h"
#include "core/LocationCheck.h"
#include "core/LocationExpansion.h"
#include "core/Log.h"

#include <unistd.h>

namespace {

/// The locations that a notification carries, path strings as file URLs; none without an object.
std::optional<LocationList> locationsIn(const NotificationObject& object) {
    LocationList locations;
    if (const auto* list = std::get_if<LocationList>(&object))
        locations = *list;
    else if (const auto* single = std::get_if<LocationItem>(&object))
        locations = {*single};
    else
        return std::nullopt;
    for (LocationItem& location : locations) {
        if (const auto* path = std::get_if<std::string>(&location))
            location = FileUrl::fileURLWithPath(*path);
    }
    return locations;
}

} // namespace

void ViewController::refuseDuplicate(const std::string& path) {
    playBeep();
    surroundings_.explain(path + (path == entryAtWork()
                                      ? ": it is being processed, and is not added again"
                                      : ": it waits already, and is not added again"),
                          path);
}

void ViewController::explainRefusal(const LocationItem& location) {
    const std::optional<std::string> path = pathOf(location);
    if (!path)
        return;
    if (auto checked = checkLocation(*path, *path); !checked)
        surroundings_.explain(checked.error().sentence, *path);
}

void ViewController::addItemsToBeProcessedSet(const LocationList& items) {
    static constexpr const char* methodName = "addItemsToBeProcessedSet:";
    if (items.empty()) {
        receiver().in(methodName).step(" = nil or empty array list....");
        return;
    }
    MainQueue::async(this, [this, items] {
        receiver().in(methodName).step(" = items(%lu) = %@", items.size(), items);
        const std::shared_ptr<WorkSet> set = fSetOfFolders();
        for (const LocationItem& item : items) {
            const std::optional<std::string> path = pathOf(item);
            if (!path)
                receiver()
                    .in(methodName)
                    .step(" = unable to convert to NSString???  anitem = %@....", item);
            else if (set->add(*path))
                refreshNumberOfFolders();
            else
                refuseDuplicate(*path);
        }
        receiver().in(methodName).step(" = final self.fSetOfFolders(%lu) = %@", set->count(), *set);
    });
}

void ViewController::addItemToBeProcessedSet(const std::string& item) {
    receiver().in("addItemToBeProcessedSet:").step(" = itemToAdd = %@", item);
    MainQueue::async(this, [this, item] {
        if (!fSetOfFolders()->add(item)) {
            refuseDuplicate(item);
            return;
        }
        refreshNumberOfFolders();
        if (fNumberOfFoldersToProcess() == 1)
            startLoop();
    });
}

void ViewController::addAndStart(LocationList urls) {
    for (const LocationItem& url : urls) {
        const std::optional<std::string> path = pathOf(url);
        if (path && expectationOf(*path).packages.empty())
            surroundings_.explain(*path + ": no packages are directly in this folder", *path);
    }
    validItemsFromUrls(receiver(), urls);
    addItemsToBeProcessedSet(urls);
    MainQueue::async(this, [this] { doButton1(nullptr); });
}

void ViewController::handleNewSearchPath(const Notification& notification) {
    static constexpr const char* methodName = "handleNewSearchPath:";
    receiver().in(methodName).step(" = %@", notification);
    const std::optional<LocationList> locations = locationsIn(notification.object);
    if (!locations)
        return;
    LocationList urls;
    for (const LocationItem& location : *locations) {
        if (validUrlToAdd(location))
            urls.push_back(location);
        explainRefusal(location);
    }
    if (urls.empty()) {
        receiver().in(methodName).step("  NOT GOOD??? empty array....");
        return;
    }
    addAndStart(std::move(urls));
}

void ViewController::handleNewSearchPathOLD(const Notification& notification) {
    receiver().in("handleNewSearchPathOLD:").step(" = %@", notification);
    const auto* location = std::get_if<LocationItem>(&notification.object);
    const auto* path = location != nullptr ? std::get_if<std::string>(location) : nullptr;
    if (path == nullptr)
        return;
    GlobalQueue::async([this, path = *path] {
        MainQueue::async(this, [this, path] { setFSearchPath(path); });
        usleep(100'000);
        MainQueue::async(this, [this] { doButton1(nullptr); });
    });
}

void ViewController::ibChangePath(QObject*) {
    static constexpr const char* methodName = "ibChangePath:";
    logEvent("Inside %@ => %@...", receiver().className, methodName);
    const ChoosePanel::Settings settings = {
        .message = "Please Select App Package and/or Folder:",
        .prompt = "Choose",
        .nameFieldLabel = "Select",
        .allowedFileType = "app",
        .folder = QString::fromStdString(
            surroundings_.settings.stringForKey(Names::panelFolder).value_or("")),
        .leftAt = [this](const QString& folder) {
            surroundings_.settings.setString(Names::panelFolder, folder.toStdString());
            surroundings_.settings.synchronize();
        }};
    MainQueue::async(this, [this, settings] {
        ChoosePanel::beginSheet(settings, window(), [this](int code, const LocationList& chosen) {
            panelClosed(code, chosen);
        });
    });
}

void ViewController::panelClosed(int code, const LocationList& chosen) {
    logEvent("Inside %@ => %@... DONE...returncode = %i", receiver().className,
             "ibChangePath:", code);
    if (code == ChoosePanel::confirmed) {
        looksAgain_ = false;
        logEvent("process...");
        logEvent("selected %@", chosen);
        addAndStart(chosen);
    } else {
        sheetClosed();
    }
}
