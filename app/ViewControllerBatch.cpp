#include "app/ConfirmationSheet.h"
#include "app/ViewController.h"
#include "app/toolkit/Beep.h"
#include "app/toolkit/QtDescription.h"
#include "app/toolkit/Queues.h"
#include "app/toolkit/Sheet.h"
#include "app/toolkit/WindowLevel.h"
#include "core/Log.h"
#include "core/Path.h"

#include <algorithm>
#include <utility>

namespace {

constexpr const char* loopMethod = "doButton1Loop:";

} // namespace

void ViewController::doButton1(QObject* sender) {
    setFSearchPath(std::nullopt);
    if (fNumberOfFoldersToProcess().value_or(0) == 0) {
        playBeep();
        return;
    }
    startLoop(sender);
}

void ViewController::startLoop(QObject* sender) {
    processQueue().async([this, sender, stops = stops_.load()] {
        if (stops == stops_)
            doButton1Loop(sender);
    });
}

void ViewController::terminateUnlessAsking() {
    looksAgain_ = window() != nullptr && hasAttachedSheet(window());
    if (!looksAgain_)
        surroundings_.terminate();
}

void ViewController::doButton1Loop(QObject*) {
    receiver().in(loopMethod).step("...");
    MainQueue::async(this, [this] {
        setStalledAt(std::nullopt);
        // Only logs: a second loop stops at the sheet of the first.
        if (fButton1Busy())
            receiver().in(loopMethod).step("... ALREADY in Progress...");
        else
            setFButton1Busy(true);
    });
    const std::vector<std::string> entries = fSetOfFolders()->allObjects();
    if (entries.empty()) {
        tellEndOfRun();
        MainQueue::async(this, [this] {
            loopEnded();
            terminateUnlessAsking();
        });
        return;
    }
    const std::string& entry = entries.front();
    MainQueue::async(this, [this, entry] {
        setFButton1Busy(true);
        setFSearchPath(entry);
        setFProgressString1("Processing.....");
    });
    if (isDirectory(entry)) {
        AskedEntry asked{.expectation = expectationOf(entry),
                         .isPackage = hasAppExtension(entry),
                         .total = entries.size(),
                         .identity = std::nullopt,
                         .neverSigns = neverSigns()};
        MainQueue::async(this, [this, entry, asked = std::move(asked)] { confirm(entry, asked); });
        return;
    }
    // The loop stops here; the next start is not to stop at the same entry again.
    fSetOfFolders()->moveToEnd(entry);
    tellEndOfRun();
    MainQueue::async(this, [this, entry] {
        if (std::ranges::count(fSetOfFolders()->allObjects(), entry) == 0)
            return loopEnded(); // it was removed meanwhile
        setStalledAt(entry);
        explainRefusal(LocationItem(entry));
        surroundings_.explain("Start goes on with what waits; Waiting removes " +
                                  lastPathComponent(entry) + ".",
                              entry);
    });
}

void ViewController::confirm(const std::string& entry, AskedEntry asked) {
    if (window() == nullptr)
        return;
    if (hasAttachedSheet(window())) {
        receiver().in(loopMethod).step("...Already An Alert showing....");
        playBeep();
        looksAgain_ = true;
        return;
    }
    asked.position += answered_;
    asked.total += answered_;
    if (const auto identity = selectedIdentity())
        asked.identity = identity->identitystring;
    auto* sheet = new ConfirmationSheet(
        fSearchPath(), std::move(asked), surroundings_.settings,
        [this, entry](Confirmation::Answer given) { confirmed(entry, given); });
    activateIgnoringOtherApps(window());
    beginSheet(sheet, window());
}

void ViewController::confirmed(const std::string& entry, Confirmation::Answer answer) {
    looksAgain_ = false; // the loop goes on, or is to stop
    ++answered_;
    switch (answer) {
    case Confirmation::Answer::Process:
        stopsBefore_ = stops_.load();
        setEntryAtWork(entry);
        processQueue().async([this, entry] {
            doProcessItemNew(entry);
            MainQueue::async(this, [this] { setEntryAtWork(std::nullopt); });
            if (stops_ == stopsBefore_)
                return doButton1Loop(nullptr);
            tellEndOfRun();
            MainQueue::async(this, [this] { loopEnded(); });
        });
        break;
    case Confirmation::Answer::Skip:
        MainQueue::async(this, [this, entry] {
            setFButton1Busy(false);
            fSetOfFolders()->remove(entry);
            refreshNumberOfFolders();
            startLoop();
        });
        break;
    case Confirmation::Answer::Stop:
        processQueue().async([this] { tellEndOfRun(); });
        MainQueue::async(this, [this] { loopEnded(); });
        break;
    }
}

void ViewController::loopEnded() {
    answered_ = 0;
    setFButton1Busy(false);
}

void ViewController::sheetClosed() {
    if (std::exchange(looksAgain_, false))
        startLoop();
}

void ViewController::removeWaiting(const std::string& entry) {
    if (entry == entryAtWork())
        return;
    fSetOfFolders()->remove(entry);
    refreshNumberOfFolders();
    if (entry != stalledAt())
        return;
    setStalledAt(std::nullopt);
    loopEnded();
}
