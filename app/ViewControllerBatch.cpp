#include "app/ConfirmationSheet.h"
#include "app/ViewController.h"
#include "app/platform/Beep.h"
#include "app/platform/QtDescription.h"
#include "app/platform/SerialQueue.h"
#include "app/platform/Sheet.h"
#include "app/platform/WindowLevel.h"
#include "core/Log.h"
#include "core/Path.h"

namespace {

constexpr const char* loopMethod = "doButton1Loop:";

} // namespace

void ViewController::doButton1(QObject* sender) {
    setFSearchPath(std::nullopt);
    if (fNumberOfFoldersToProcess().value_or(0) == 0) {
        playBeep();
        return;
    }
    processQueue().async([this, sender] { doButton1Loop(sender); });
}

void ViewController::startLoop() {
    processQueue().async([this] { doButton1Loop(nullptr); });
}

void ViewController::terminateUnlessAsking() {
    looksAgain_ = window() != nullptr && hasAttachedSheet(window());
    if (!looksAgain_)
        surroundings_.terminate();
}

void ViewController::doButton1Loop(QObject*) {
    logEvent("%@-%@...", receiver(), loopMethod);
    onMainQueue([this] {
        // Only logs: a second loop stops at the sheet of the first.
        if (fButton1Busy())
            logEvent("%@-%@... ALREADY in Progress...", receiver(), loopMethod);
        else
            setFButton1Busy(true);
    });
    const std::vector<std::string> entries = fSetOfFolders()->allObjects();
    if (entries.empty()) {
        tellEndOfRun();
        onMainQueue([this] {
            setFButton1Busy(false);
            terminateUnlessAsking();
        });
        return;
    }
    const std::string& entry = entries.front();
    onMainQueue([this, entry] {
        setFButton1Busy(true);
        setFSearchPath(entry);
        setFProgressString1("Processing.....");
    });
    if (isDirectory(entry)) {
        onMainQueue([this, entry] { confirm(entry); });
        return;
    }
    // The loop stops here; the next start is not to stop at the same entry again.
    fSetOfFolders()->moveToEnd(entry);
    tellEndOfRun();
}

void ViewController::confirm(const std::string& entry) {
    if (window() == nullptr)
        return;
    if (hasAttachedSheet(window())) {
        logEvent("%@-%@...Already An Alert showing....", receiver(), loopMethod);
        playBeep();
        looksAgain_ = true;
        return;
    }
    auto* sheet =
        new ConfirmationSheet(fSearchPath(), surroundings_.settings,
                              [this, entry](Confirmation::Answer given) { answer(entry, given); });
    activateIgnoringOtherApps(window());
    beginSheet(sheet, window());
}

void ViewController::answer(const std::string& entry, Confirmation::Answer given) {
    looksAgain_ = false; // the loop goes on, or is to stop
    switch (given) {
    case Confirmation::Answer::Process:
        setProcessing(true);
        processQueue().async([this, entry] {
            doProcessItemNew(entry);
            onMainQueue([this] { setProcessing(false); });
            doButton1Loop(nullptr);
        });
        break;
    case Confirmation::Answer::Skip:
        onMainQueue([this, entry] {
            setFButton1Busy(false);
            fSetOfFolders()->remove(entry);
            refreshNumberOfFolders();
            startLoop();
        });
        break;
    case Confirmation::Answer::Stop:
        processQueue().async([this] { tellEndOfRun(); });
        onMainQueue([this] { setFButton1Busy(false); });
        break;
    }
}
