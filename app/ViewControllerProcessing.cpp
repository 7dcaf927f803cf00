#include "app/ViewController.h"
#include "app/platform/GlobalQueue.h"
#include "app/platform/QtDescription.h"
#include "app/platform/SerialQueue.h"
#include "app/platform/SettingsStore.h"
#include "app/platform/WindowLevel.h"
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

ProcessingHooks ViewController::processingOutside() {
    return {
        .doNotCodesign = [this] { return surroundings_.settings.boolForKey("prefDoNotCodesign"); },
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
    onMainQueue([this] { activateIgnoringOtherApps(window()); });
    // So that the application is likely in front before the file browser comes.
    std::this_thread::sleep_for(pause);
    onMainQueue([this, revealed] { doRevealItem(revealed); });
    fSetOfFolders()->remove(item);
    onMainQueue([this] { refreshNumberOfFolders(); });
}

void ViewController::count(const std::vector<ScriptRun>& runs) {
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
    onMainQueue([this, body, failed] {
        // Who looks at the window sees that all is done, but not what failed.
        if (failed || QApplication::activeWindow() == nullptr)
            surroundings_.notifyUser(tr("Packages are done"), body);
    });
}

void ViewController::doProcessItemNew(const std::string& entry) {
    ProcessingHooks outside = processingOutside();
    outside.packageStarted = [this](const std::string& package) {
        onMainQueue([this, package] { setFProgressString1(progressText(package)); });
    };
    outside.packageProcessed = [this](const std::string&, const std::vector<ScriptRun>& runs) {
        count(runs);
    };
    processEntry(receiver(), surroundings_.bundle, outside, entry);
    finishItem(entry, entry, 10ms);
}

void ViewController::doProcessItem(const std::string& package) {
    static constexpr const char* methodName = "doProcessItem:";
    logEvent("%@-%@...", receiver(), methodName);
    if (processPackage(receiver().in(methodName), surroundings_.bundle, processingOutside(),
                       package))
        finishItem(package, std::nullopt, 100ms);
}

void ViewController::doProcessItemOnly(const std::string& package) {
    static constexpr const char* methodName = "doProcessItemOnly:";
    logEvent("%@-%@...", receiver(), methodName);
    processPackage(receiver().in(methodName), surroundings_.bundle, processingOutside(), package);
}

void ViewController::processSearchPath() {
    runScripts(surroundings_.bundle, processingOutside(), fSearchPath(), std::nullopt);
    onMainQueue([this] { activateIgnoringOtherApps(window()); });
    std::this_thread::sleep_for(100ms);
    onMainQueue([this] {
        setFButton1Busy(false);
        doRevealItem(std::nullopt);
    });
    std::this_thread::sleep_for(100ms);
    onMainQueue([this] { terminateUnlessAsking(); });
}

void ViewController::doProcess() {
    onMainQueue([this] {
        if (fButton1Busy()) {
            logEvent("%@-%@...Already in Process...", receiver(), "doProcess");
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
            logEvent("%@-%@...Already in Process...", receiver(), "doProcessOLD");
        else
            processSearchPath();
    });
}
