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
        onMainQueue([this] {
            setFButton1Busy(false);
            surroundings_.terminate();
        });
        return;
    }
    const std::string& entry = entries.front();
    onMainQueue([this, entry] {
        setFButton1Busy(true);
        setFSearchPath(entry);
        setFProgressString1("Processing.....");
    });
    if (isDirectory(entry))
        onMainQueue([this, entry] { confirm(entry); });
}

void ViewController::confirm(const std::string& entry) {
    if (window() == nullptr)
        return;
    if (hasAttachedSheet(window())) {
        logEvent("%@-%@...Already An Alert showing....", receiver(), loopMethod);
        playBeep();
        return;
    }
    auto* sheet =
        new ConfirmationSheet(fSearchPath(), surroundings_.settings,
                              [this, entry](Confirmation::Answer given) { answer(entry, given); });
    activateIgnoringOtherApps(window());
    beginSheet(sheet, window());
}

void ViewController::answer(const std::string& entry, Confirmation::Answer given) {
    switch (given) {
    case Confirmation::Answer::Process:
        processQueue().async([this, entry] {
            doProcessItemNew(entry);
            doButton1Loop(nullptr);
        });
        break;
    case Confirmation::Answer::Skip:
        onMainQueue([this, entry] {
            setFButton1Busy(false);
            fSetOfFolders()->remove(entry);
            refreshNumberOfFolders();
            processQueue().async([this] { doButton1Loop(nullptr); });
        });
        break;
    case Confirmation::Answer::Stop:
        processQueue().async([this] { tally_ = {}; });
        onMainQueue([this] { setFButton1Busy(false); });
        break;
    }
}
