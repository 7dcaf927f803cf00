#include "app/toolkit/ChoosePanel.h"
#include "app/toolkit/ElidedLabel.h"
#include "tests/app/WindowFixture.h"

#include <QCheckBox>
#include <QLabel>
#include <QMenu>
#include <QTest>

#include <fstream>

#include <sys/stat.h>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

struct BatchLoop : WindowFixture {
    BatchLoop() {
        for (const char* package : {"A/X.app", "A/Y.app", "B/Z.app"})
            folder.makeFolder(package);
        openWindow();
        settle();
    }
    void start(const std::vector<std::string>& names) {
        LocationList items;
        for (const std::string& name : names)
            items.emplace_back(folder.path(name));
        controller().addItemsToBeProcessedSet(items);
        MainQueue::async([this] { controller().doButton1(nullptr); });
        settle();
    }
    /// Presses the button of that title on the sheet, awaits its end, and what comes of it.
    void press(const char* title) const {
        QTest::mouseClick(sheet()->findChild<QPushButton*>(title), Qt::LeftButton);
        settle();
    }
    [[nodiscard]] std::string shownPath() const {
        return sheet()->findChild<QLabel*>("folderPath")->text().remove('\n').toStdString();
    }
    void awaitTermination() const {
        EXPECT_TRUE(waitUntil([this] { return terminations > 0; }));
    }
    [[nodiscard]] std::vector<std::string> waiting() const {
        return controller().fSetOfFolders()->allObjects();
    }
    [[nodiscard]] std::string loop(const std::string& rest) const {
        return logged("doButton1Loop:", rest);
    }
};

} // namespace

TEST_F(BatchLoop, OnlyBeepsWithNothingToDo) {
    const std::size_t beeps = beepsPlayed();
    controller().setFSearchPath("/x");
    controller().doButton1(nullptr);
    settle();
    EXPECT_EQ(beepsPlayed(), beeps + 1);
    EXPECT_EQ(controller().fSearchPath(), std::nullopt);
    EXPECT_EQ(log.count(loop("...")), 0);
}

TEST_F(BatchLoop, AsksInASheet) {
    window->showMinimized();
    start({"A"});
    ConfirmationSheet* shown = sheet();
    ASSERT_NE(shown, nullptr);
    EXPECT_FALSE(window->isMinimized());
    EXPECT_EQ(shown->windowModality(), Qt::WindowModal);
    EXPECT_EQ(shown->findChild<QLabel*>("messageText")->text(), "Process this Folder?");
    EXPECT_EQ(shown->findChild<QLabel*>("informativeText")->text(),
              "Click 'Process' to begin processing items in folder:");
    EXPECT_EQ(shownPath(), folder.path("A"));
    std::vector<std::string> titles;
    for (const auto* button : shown->findChildren<QPushButton*>())
        titles.push_back(button->text().toStdString());
    EXPECT_THAT(titles, ElementsAre("Process", "Skip", "Stop"));
    EXPECT_TRUE(shown->findChild<QPushButton*>("Stop")->isDefault());
    EXPECT_TRUE(controller().fButton1Busy());
    EXPECT_EQ(controller().fProgressString1(), "Processing.....");
    EXPECT_EQ(controller().fSearchPath(), folder.path("A"));
    press("Stop");
}

TEST_F(BatchLoop, ShowsTheWholePathOverSeveralLines) {
    const std::string name = std::string(200, 'x') + "/" + std::string(200, 'y');
    folder.makeFolder(name + "/Z.app");
    start({name});
    EXPECT_EQ(shownPath(), folder.path(name));
    EXPECT_LT(sheet()->width(), 1'000);
    press("Stop");
}

TEST_F(BatchLoop, TakesNoPressThatCameBeforeTheSheetWasRead) {
    start({"A"});
    QApplication::setDoubleClickInterval(60'000);
    for (const char* button : {"Process", "Skip"})
        press(button);
    for (const int key : {Qt::Key_P, Qt::Key_S})
        QTest::keyClick(sheet(), Qt::Key(key), Qt::AltModifier);
    settle();
    QApplication::setDoubleClickInterval(0);
    for (const int key : {Qt::Key_P, Qt::Key_S})
        QTest::keyClick(sheet(), Qt::Key(key), Qt::AltModifier);
    settle();
    EXPECT_THAT(waiting(), ElementsAre(folder.path("A")));
    EXPECT_EQ(calls(), "");
    press("Process");
    awaitTermination();
    EXPECT_NE(calls(), "");
}

TEST_F(BatchLoop, ProcessesFolderAfterFolderThenQuits) {
    start({"A", "B"});
    press("Process");
    ASSERT_TRUE(waitUntil([this] { return controller().fSearchPath() == folder.path("B"); }));
    EXPECT_THAT(waiting(), ElementsAre(folder.path("B")));
    press("Process");
    awaitTermination();
    EXPECT_FALSE(controller().fButton1Busy());
    EXPECT_EQ(controller().fNumberOfFoldersToProcess(), 0);
    std::string expected;
    for (const char* package : {"A/X.app", "A/Y.app", "B/Z.app"})
        expected += "fenwoCodesignApps.sh|" + folder.path(package) + "|\nfenwoJustZipApps.sh|" +
                    folder.path(package) + "|\n";
    EXPECT_EQ(calls(), expected);
    EXPECT_EQ(log.count(loop("... ALREADY in Progress...")), 2)
        << "every turn after a processed entry";
    ASSERT_TRUE(waitUntil([this] {
        return log.count("runCommand will execute: open \"" + folder.path("B") + "\"") == 1;
    }));
    EXPECT_EQ(log.count("runCommand will execute: open \"" + folder.path("A") + "\""), 1);
}

TEST_F(BatchLoop, SkipsWithoutProcessing) {
    start({"A", "B"});
    press("Skip");
    ASSERT_TRUE(waitUntil([this] { return controller().fSearchPath() == folder.path("B"); }));
    EXPECT_EQ(controller().fNumberOfFoldersToProcess(), 1);
    press("Skip");
    awaitTermination();
    EXPECT_EQ(calls(), "");
    EXPECT_EQ(log.count(logged("doRevealItem:", "...")), 0);
    EXPECT_EQ(log.count(loop("... ALREADY in Progress...")), 0);
}

TEST_F(BatchLoop, StopsAndKeepsWhatWaits) {
    const auto stopsBy = [this](const std::function<void(ConfirmationSheet*)>& action) {
        ConfirmationSheet* shown = sheet();
        ASSERT_NE(shown, nullptr);
        action(shown);
        settle();
        EXPECT_FALSE(controller().fButton1Busy());
        EXPECT_THAT(waiting(), ElementsAre(folder.path("A"), folder.path("B")));
        EXPECT_EQ(terminations, 0);
        EXPECT_TRUE(
            waitUntil([this] { return window->findChild<ConfirmationSheet*>() == nullptr; }));
        controller().doButton1(nullptr);
        settle();
    };
    start({"A", "B"});
    stopsBy([](QWidget* shown) {
        QTest::mouseClick(shown->findChild<QPushButton*>("Stop"), Qt::LeftButton);
    });
    stopsBy([](QWidget* shown) { QTest::keyClick(shown, Qt::Key_Return); });
    stopsBy([](QWidget* shown) {
        shown->findChild<QPushButton*>("Process")->setFocus();
        QTest::keyClick(shown->findChild<QPushButton*>("Process"), Qt::Key_Return);
    });
    stopsBy([](QWidget* shown) { QTest::keyClick(shown->findChild<QCheckBox*>(), Qt::Key_Enter); });
    stopsBy([](QWidget* shown) { QTest::keyClick(shown, Qt::Key_Escape); });
    stopsBy([](QWidget* shown) { shown->close(); });
    press("Stop");
    EXPECT_EQ(calls(), "");
}

TEST_F(BatchLoop, TakesTheTickedBoxAtOnceAndForAllThatFollow) {
    start({"A", "B"});
    QTest::keyClick(sheet()->findChild<QCheckBox*>("doNotCodesign"), Qt::Key_Space);
    EXPECT_TRUE(settings.boolForKey("prefDoNotCodesign"));
    press("Process");
    ASSERT_TRUE(waitUntil([this] { return controller().fSearchPath() == folder.path("B"); }));
    EXPECT_TRUE(sheet()->findChild<QCheckBox*>("doNotCodesign")->isChecked());
    press("Process");
    awaitTermination();
    std::string expected;
    for (const char* package : {"A/X.app", "A/Y.app", "B/Z.app"})
        expected += "fenwoJustZipApps.sh|" + folder.path(package) + "|\n";
    EXPECT_EQ(calls(), expected);
}

TEST_F(BatchLoop, ShowsNoSheetOverAnother) {
    start({"A"});
    ASSERT_NE(sheet(), nullptr);
    const std::size_t beeps = beepsPlayed();
    start({"B"});
    EXPECT_EQ(beepsPlayed(), beeps + 1);
    EXPECT_EQ(log.count(loop("...Already An Alert showing....")), 1);
    EXPECT_EQ(window->findChildren<ConfirmationSheet*>().size(), 1);
    EXPECT_THAT(waiting(), ElementsAre(folder.path("A"), folder.path("B")));
    press("Stop");
    EXPECT_EQ(window->findChild<ConfirmationSheet*>(), nullptr) << "stop means stop";
}

TEST_F(BatchLoop, StallsAtAnEntryThatIsNoFolder) {
    for (const std::string& entry : {folder.makeFile("file.app"), folder.path("gone")}) {
        controller().fSetOfFolders()->add(entry);
        controller().setFNumberOfFoldersToProcess(1);
        controller().doButton1(nullptr);
        settle();
        EXPECT_TRUE(controller().fButton1Busy());
        EXPECT_EQ(window->findChild<ConfirmationSheet*>(), nullptr);
        EXPECT_THAT(waiting(), ElementsAre(entry));
        controller().fSetOfFolders()->remove(entry);
    }
    EXPECT_EQ(terminations, 0);
    readNotice();
    EXPECT_TRUE(find<QLabel>("notice")->text().contains("Waiting removes gone."))
        << "why it is held up";
    controller().fSetOfFolders()->add(folder.path("gone"));
    controller().addItemsToBeProcessedSet({folder.path("A")});
    settle();
    controller().doButton1(nullptr);
    settle();
    EXPECT_EQ(window->findChild<ConfirmationSheet*>(), nullptr);
    EXPECT_THAT(waiting(), ElementsAre(folder.path("A"), folder.path("gone")));
    find<QPushButton>("button1")->click();
    EXPECT_EQ(shownPath(), folder.path("A")) << "a later start is the way out";
    EXPECT_TRUE(find("notice")->isVisible()) << "it has just been told again";
    readNotice();
    EXPECT_FALSE(find("notice")->isVisible());
    press("Stop");
    controller().removeWaiting(folder.path("A"));
    find<QPushButton>("button1")->click();
    settle();
    EXPECT_TRUE(controller().fButton1Busy());
    QMenu* waitingMenu = find<QPushButton>("waiting")->menu();
    emit waitingMenu->aboutToShow();
    waitingMenu->actions().back()->trigger(); // clears all
    settle();
    EXPECT_FALSE(find("notice")->isVisible());
    EXPECT_TRUE(find("busyState")->isVisible());
    EXPECT_EQ(terminations, 0) << "as after a stop";
    start({"A"});
    EXPECT_EQ(shownPath(), folder.path("A"));
    press("Stop");
}

TEST_F(BatchLoop, LooksAgainWhenThePanelIsClosed) {
    installScript("fenwoJustZipApps", "while [ ! -e '" + folder.path("go on") + "' ]; do :; done");
    start({"B"});
    QTest::mouseClick(sheet()->findChild<QPushButton*>("Process"), Qt::LeftButton);
    controller().ibChangePath(nullptr);
    QPointer<ChoosePanel> panel;
    ASSERT_TRUE(waitUntil([&] { return (panel = window->findChild<ChoosePanel*>()) != nullptr; }));
    folder.makeFile("go on");
    settle();
    ASSERT_EQ(waiting(), std::vector<std::string>());
    EXPECT_EQ(terminations, 0) << "under the hands";
    panel->reject();
    awaitTermination();
}

TEST_F(BatchLoop, StaysResponsiveWhileScriptsRun) {
    installScript("fenwoJustZipApps", "while [ ! -e '" + folder.path("go on") + "' ]; do :; done");
    start({"B"});
    QTest::mouseClick(sheet()->findChild<QPushButton*>("Process"), Qt::LeftButton);
    ASSERT_TRUE(
        waitUntil([this] { return calls().find("fenwoJustZipApps") != std::string::npos; }));
    ASSERT_TRUE(waitUntil([this] {
        return find<ElidedLabel>("progressLine")->fullText() == "Processing App Package: Z.app...";
    }));
    controller().addItemsToBeProcessedSet({folder.path("A")});
    ASSERT_TRUE(waitUntil([this] { return controller().fNumberOfFoldersToProcess() == 2; }));
    EXPECT_FALSE(find("identityArea")->isEnabled()) << "who signs is not to change meanwhile";
    EXPECT_FALSE(find("button1")->isEnabled());
    EXPECT_EQ(find<QLabel>("folderCount")->text(), "1 folder waiting");
    folder.makeFile("go on");
    ASSERT_NE(sheet(), nullptr) << "what came meanwhile is asked about next";
    press("Stop");
    EXPECT_TRUE(find("identityArea")->isEnabled());
    EXPECT_THAT(waiting(), ElementsAre(folder.path("A")));
}

TEST_F(BatchLoop, TellsTheEndOfARunToWhoLooksElsewhere) {
    installScript("fenwoCodesignApps", "echo error: no identity: pick one");
    installScript("fenwoJustZipApps",
                  "while [ ! -e '" + folder.path("go on") + "' ]; do :; done; echo packed: Z.zip");
    start({"B"});
    press("Stop");
    find<QPushButton>("button1")->click();
    folder.makeFile("go on");
    controller().addItemsToBeProcessedSet({folder.path("A")});
    QTest::mouseClick(sheet()->findChild<QPushButton*>("Process"), Qt::LeftButton);
    ASSERT_TRUE(waitUntil([this] { return controller().fNumberOfFoldersToProcess() == 1; }));
    EXPECT_THAT(told, IsEmpty()) << "the run goes on";
    std::filesystem::remove(folder.path("go on"));
    QTest::mouseClick(sheet()->findChild<QPushButton*>("Process"), Qt::LeftButton);
    {
        QWidget other;
        other.show();
        other.activateWindow();
        ASSERT_TRUE(waitUntil([&] { return other.isActiveWindow(); }));
    }
    ASSERT_TRUE(waitUntil([] { return QApplication::activeWindow() == nullptr; }));
    folder.makeFile("go on");
    awaitTermination();
    EXPECT_THAT(told, ElementsAre("3 packages: 0 done, 3 failed."));
}

TEST_F(BatchLoop, StopsBetweenTwoPackagesAndLeavesTheEntry) {
    settings.setBool("prefDoNotCodesign", true);
    installScript("fenwoJustZipApps",
                  "while [ ! -e '" + folder.path("go on") + "' ]; do :; done; echo \"packed: $1\"");
    start({"A"});
    QTest::mouseClick(sheet()->findChild<QPushButton*>("Process"), Qt::LeftButton);
    ASSERT_TRUE(waitUntil([this] { return find("stop")->isVisible() && !calls().empty(); }));
    const auto* notice = find<QLabel>("notice");
    notifications.post("newsearchpath", LocationList{folder.path("A"), folder.path("B")});
    ASSERT_TRUE(waitUntil([&] { return notice->text().contains("is being processed"); }));
    QMenu* waitingMenu = find<QPushButton>("waiting")->menu();
    emit waitingMenu->aboutToShow();
    EXPECT_EQ(waitingMenu->actions().size(), 3) << "B, a line, Clear All";
    controller().removeWaiting(folder.path("A"));
    find<QPushButton>("stop")->click();
    folder.makeFile("go on");
    ASSERT_TRUE(waitUntil([this] { return !controller().fButton1Busy(); }));
    const std::string begun = calls();
    settle();
    EXPECT_EQ(std::ranges::count(begun, '\n'), 1) << begun;
    EXPECT_EQ(window->findChild<ConfirmationSheet*>(), nullptr) << "of a start before the stop";
    EXPECT_THAT(waiting(), testing::UnorderedElementsAre(folder.path("A"), folder.path("B")));
    EXPECT_EQ(terminations, 0);
    EXPECT_FALSE(find("stop")->isVisible());
    const auto recorded = recordedRuns(folder.path("runs"));
    ASSERT_EQ(recorded.size(), 1U);
    EXPECT_EQ(summaryOf(readRun(recorded.front())->packages), "2 packages: 1 done, 1 left.");
    ASSERT_EQ(runs.model().rowCount(), 2);
    EXPECT_EQ(runs.model().index(1, RunModel::State).data(), "Not begun");
    EXPECT_EQ(runs.share(), 0);
    EXPECT_TRUE(find("results")->isVisible());
}

TEST_F(BatchLoop, StopsForTurnsThatWereQueuedBeforeToo) {
    installScript("fenwoJustZipApps", "while [ ! -e '" + folder.path("go on") + "' ]; do :; done");
    start({"B"});
    QTest::mouseClick(sheet()->findChild<QPushButton*>("Process"), Qt::LeftButton);
    ASSERT_TRUE(waitUntil([this] { return find("stop")->isVisible(); }));
    controller().fSetOfFolders()->remove(folder.path("B"));
    controller().addItemToBeProcessedSet(folder.path("A")); // the only one: queues a turn
    ASSERT_TRUE(waitUntil([this] { return !waiting().empty(); }));
    find<QPushButton>("stop")->click();
    folder.makeFile("go on");
    ASSERT_TRUE(waitUntil([this] { return !controller().fButton1Busy(); }));
    settle();
    EXPECT_EQ(window->findChild<ConfirmationSheet*>(), nullptr);
    EXPECT_THAT(waiting(), ElementsAre(folder.path("A")));
    EXPECT_EQ(terminations, 0);
}

TEST_F(BatchLoop, TellsThatItReadsTheLastArchive) {
    settings.setBool("prefDoNotCodesign", true);
    const std::string archive = folder.path("Z.zip");
    ASSERT_EQ(mkfifo(archive.c_str(), 0600), 0); // read only once it is written to
    installScript("fenwoJustZipApps", "echo 'packed: " + archive + "'");
    start({"B"});
    QTest::mouseClick(sheet()->findChild<QPushButton*>("Process"), Qt::LeftButton);
    const auto* line = find<ElidedLabel>("stepLine");
    EXPECT_TRUE(waitUntil(
        [&] { return line->fullText() == "Reading Z.zip…" && !find("stop")->isVisible(); }));
    EXPECT_TRUE(line->isVisible());
    EXPECT_EQ(find<ElidedLabel>("progressLine")->fullText(), "Processing App Package: Z.app...");
    std::ofstream{archive};
    awaitTermination();
    EXPECT_TRUE(waitUntil([&] { return !line->isVisible(); }));
}

TEST_F(BatchLoop, TellsWhoSeesTheWindowOfFailuresOnly) {
    settings.setBool("prefDoNotCodesign", true);
    for (const char* answer : {"Process", "Skip", "Stop"}) {
        told.clear();
        installScript("fenwoJustZipApps", "echo packed: Z.zip");
        start({"B", "A"});
        press("Process");
        press(answer == std::string("Stop") ? "Skip" : answer);
        EXPECT_THAT(told, IsEmpty());
        installScript("fenwoJustZipApps", "echo error: no room: make some");
        start({"B", "A"});
        press("Process");
        press(answer);
        ASSERT_EQ(told.size(), 1U) << answer;
        EXPECT_THAT(told.front(),
                    testing::EndsWith(": 0 done, " +
                                      std::to_string(answer == std::string("Process") ? 3 : 1) +
                                      " failed."))
            << answer;
    }
}
