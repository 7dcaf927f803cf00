#include "app/Names.h"
#include "app/ViewController.h"
#include "app/toolkit/QtDescription.h"
#include "app/toolkit/Queues.h"
#include "app/toolkit/SettingsStore.h"
#include "app/toolkit/WindowLevel.h"
#include "core/Log.h"
#include "core/ScriptOutcome.h"
#include "core/ShellRunners.h"

#include <QApplication>

#include <chrono>
#include <thread>

using namespace std::chrono_literals;

SerialQueue& ViewController::processQueue() {
    // Never destroyed: a job may outlast everything else.
    static SerialQueue& queue =
        *new SerialQueue(processQueueLabel(MainBundle::ofThisProcess().identifier));
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

void ViewController::addToTally(const std::vector<ScriptRun>& runs) {
    using Kind = ScriptOutcome::Kind;
    // The script that packs comes last.
    const bool packed = !runs.empty() && outcomeOf(runs.back()).kind == Kind::Packed;
    ++(packed ? tally_.packed : tally_.notPacked);
    if (runs.size() > 1 && outcomeOf(runs.front()).kind == Kind::Failed)
        ++tally_.notSigned;
}

void ViewController::tellEndOfRun() {
    if (tally_.packed + tally_.notPacked == 0)
        return;
    const bool failed = tally_.notPacked + tally_.notSigned > 0;
    QString body = tr("%1 packed").arg(tally_.packed);
    if (tally_.notPacked > 0)
        body += tr(", %1 not packed").arg(tally_.notPacked);
    if (tally_.notSigned > 0)
        body += tr(", %1 not signed").arg(tally_.notSigned);
    if (failed)
        body += tr("; the log tells why");
    tally_ = {};
    MainQueue::async(this, [this, body, failed] {
        // A person who looks at the window sees that all is done, but not what failed.
        if (failed || QApplication::activeWindow() == nullptr)
            surroundings_.notifyUser(tr("Packages are done"), body);
    });
}

void ViewController::doProcessItemNew(const std::string& entry) {
    ProcessingHooks hooks = processingHooks();
    hooks.packageStarted = [this](const std::string& package) {
        MainQueue::async(this, [this, package] { setFProgressString1(progressText(package)); });
    };
    hooks.packageProcessed = [this](const std::string&, const std::vector<ScriptRun>& runs) {
        addToTally(runs);
    };
    processEntry(receiver(), surroundings_.bundle, hooks, entry);
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
