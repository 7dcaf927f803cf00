#include "app/Names.h"
#include "app/ViewController.h"
#include "app/toolkit/QtDescription.h"
#include "app/toolkit/Queues.h"
#include "app/toolkit/SettingsStore.h"
#include "app/toolkit/WindowLevel.h"
#include "base/NeverDestroyed.h"
#include "core/Log.h"
#include "core/RunSummary.h"
#include "core/ShellRunners.h"

#include <QApplication>

#include <chrono>
#include <thread>

using namespace std::chrono_literals;

SerialQueue& ViewController::processQueue() {
    static SerialQueue& queue = base::neverDestroyed<SerialQueue>(
        processQueueLabel(MainBundle::ofThisProcess().identifier));
    return queue;
}

ProcessingHooks ViewController::processingHooks() {
    return {
        .doNotCodesign = [this] { return surroundings_.settings.boolForKey(Names::doNotCodesign); },
        .codesigningIdentity = [this] { return getCodesigningIdentity(); },
        .isValidItemToSign =
            [this](const std::string& package) { return isValidItemToSign(package); },
        .runShellCommand = runShellCommand};
}

bool ViewController::neverSigns() const {
    return surroundings_.bundle.pathForResource("fenwoZipAppsDNP", "sh").has_value();
}

void ViewController::refreshNumberOfFolders() {
    setFNumberOfFoldersToProcess(static_cast<int>(fSetOfFolders()->count()));
}

void ViewController::finishItem(const std::string& item,
                                const std::optional<LocationItem>& revealed,
                                std::chrono::microseconds pause) {
    MainQueue::async(this, [this] { activateIgnoringOtherApps(window()); });
    // So that the application is likely in front before the file browser comes.
    std::this_thread::sleep_for(pause);
    MainQueue::async(this, [this, revealed] { doRevealItem(revealed); });
    fSetOfFolders()->remove(item);
    MainQueue::async(this, [this] { refreshNumberOfFolders(); });
}

void ViewController::tellEndOfRun() {
    if (!surroundings_.runs.runEnded())
        return;
    MainQueue::async(this, [this] {
        const RunTally tally = tallyOf(surroundings_.runs.model().packages());
        if (tally.notPacked + tally.notSigned > 0)
            surroundings_.tellFailure();
        else if (QApplication::activeWindow() == nullptr)
            surroundings_.notifyUser(tr("Packages are done"), tr("%1 packed").arg(tally.packed));
    });
}

void ViewController::doProcessItemNew(const std::string& entry) {
    RunReporter& runs = surroundings_.runs;
    ProcessingHooks hooks = processingHooks();
    std::optional<std::string> identity;
    hooks.codesigningIdentity = [this, &identity] { return identity = getCodesigningIdentity(); };
    hooks.goesOn = [this] { return stops_ == stopsBefore_; };
    hooks.packagesFound = [&runs](const auto& packages) { runs.packagesFound(packages); };
    hooks.packageStarted = [&, this](const std::string& package) {
        const bool isSigned = !hooks.doNotCodesign() && !neverSigns();
        runs.packageStarted(package, entry,
                            isSigned ? std::optional(identity.value_or("")) : std::nullopt);
        MainQueue::async(this, [this, package] { setFProgressString1(progressText(package)); });
    };
    hooks.scriptStarted = [&runs](const std::string& script) { runs.scriptStarted(script); };
    hooks.scriptEnded = [&runs](const ScriptRun& run) { runs.scriptEnded(run); };
    hooks.packageProcessed = [&runs](const auto&, const auto&) { runs.packageEnded(); };
    if (processEntry(receiver(), surroundings_.bundle, hooks, entry))
        finishItem(entry, entry, 10ms);
}

void ViewController::doProcessItem(const std::string& package) {
    static constexpr const char* methodName = "doProcessItem:";
    receiver().in(methodName).step("...");
    if (processPackage(receiver().in(methodName), surroundings_.bundle, processingHooks(), package))
        finishItem(package, std::nullopt, 100ms);
}

void ViewController::doProcessItemOnly(const std::string& package) {
    static constexpr const char* methodName = "doProcessItemOnly:";
    receiver().in(methodName).step("...");
    processPackage(receiver().in(methodName), surroundings_.bundle, processingHooks(), package);
}

void ViewController::processSearchPath() {
    runScripts(surroundings_.bundle, processingHooks(), fSearchPath(), std::nullopt);
    MainQueue::async(this, [this] { activateIgnoringOtherApps(window()); });
    std::this_thread::sleep_for(100ms);
    MainQueue::async(this, [this] {
        setFButton1Busy(false);
        doRevealItem(std::nullopt);
    });
    std::this_thread::sleep_for(100ms);
    MainQueue::async(this, [this] { terminateUnlessAsking(); });
}

void ViewController::doProcess() {
    MainQueue::async(this, [this] {
        if (fButton1Busy()) {
            receiver().in("doProcess").step("...Already in Process...");
            return;
        }
        setFButton1Busy(true);
        setFProgressString1("Processing.....");
        GlobalQueue::async([this] { processSearchPath(); });
    });
}

void ViewController::doProcessOLD() {
    GlobalQueue::async([this] {
        if (fButton1Busy())
            receiver().in("doProcessOLD").step("...Already in Process...");
        else
            processSearchPath();
    });
}
