#include "app/RevealInFinder.h"
#include "app/toolkit/ArrayController.h"
#include "tests/app/WindowFixture.h"

#include <QLabel>
#include <QThread>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

struct Processing : WindowFixture {
    Processing() {
        folder.makeFolder("A/X.app");
        identitiesAre({"K: Jo (X1)"});
        tools.codesign = bin.makeExecutable("codesign", "#!/bin/sh\necho 'Authority=K: Jo (X1)'\n");
        openWindow();
        settle();
        controller().ibListOfIdentities()->setSelectionIndex(1);
    }
    /// Runs `method` on the processing queue and awaits all that comes of it.
    void process(void (ViewController::*method)(const std::string&), const std::string& path) {
        ViewController::processQueue().async(
            [this, method, path] { (controller().*method)(path); });
        settle();
    }
    [[nodiscard]] std::string bothCalls(const std::string& path,
                                        const std::string& identity) const {
        return "fenwoCodesignApps.sh|" + path + "|" + identity + "\nfenwoJustZipApps.sh|" + path +
               "|\n";
    }
    void awaitReveal(const std::string& path) {
        EXPECT_TRUE(waitUntil([&] { return contentOf(folder.path("opened")) == path + "\n"; }));
        EXPECT_TRUE(waitUntil([&] { return log.count("shellcommand returned = (null)") == 1; }));
    }
};

constexpr const char* needsFolder = "User Needs to Select a Valid Existing Folder...";

} // namespace

TEST_F(Processing, OfAnEntryRevealsAndRemovesIt) {
    controller().addItemsToBeProcessedSet({folder.path("A"), folder.path("B")});
    settle();
    window->showMinimized();
    process(&ViewController::doProcessItemNew, folder.path("A"));
    EXPECT_FALSE(window->isMinimized()) << "comes to front afterwards";
    EXPECT_EQ(calls(), bothCalls(folder.path("A/X.app"), "Jo (X1)|"));
    EXPECT_EQ(controller().fProgressString1(), "Processing App Package: X.app...");
    EXPECT_THAT(controller().fSetOfFolders()->allObjects(), ElementsAre(folder.path("B")));
    EXPECT_EQ(controller().fNumberOfFoldersToProcess(), 1);
    EXPECT_FALSE(controller().fButton1Busy()) << "the loop's, not touched";
    EXPECT_EQ(log.count(logged("isValidItemToSign:", "...FOUND object = [K: Jo (X1)]....")), 1);
    awaitReveal(folder.path("A"));
}

TEST_F(Processing, OfASinglePackageRevealsTheSearchPath) {
    controller().setFSearchPath(folder.path("A"));
    controller().addItemsToBeProcessedSet({folder.path("A/X.app")});
    settle();
    process(&ViewController::doProcessItem, folder.path("A/X.app"));
    EXPECT_EQ(calls(), bothCalls(folder.path("A/X.app"), "Jo (X1)|"));
    EXPECT_EQ(controller().fProgressString1(), std::nullopt);
    EXPECT_THAT(controller().fSetOfFolders()->allObjects(), IsEmpty());
    awaitReveal(folder.path("A"));
    EXPECT_EQ(log.count(logged("doProcessItem:", "...")), 1);
}

TEST_F(Processing, OfAPackageOnlyRunsTheScripts) {
    controller().addItemsToBeProcessedSet({folder.path("A/X.app")});
    settle();
    process(&ViewController::doProcessItemOnly, folder.path("A/X.app"));
    EXPECT_EQ(calls(), bothCalls(folder.path("A/X.app"), "Jo (X1)|"));
    EXPECT_EQ(controller().fSetOfFolders()->count(), 1U);
    EXPECT_EQ(log.count(logged("doRevealItem:", "...")), 0);
    settings.setBool("prefDoNotCodesign", true);
    process(&ViewController::doProcessItemOnly, folder.path("A/X.app"));
    EXPECT_EQ(
        log.count(logged("isValidItemToSign:", "...returning Valid as prefDoNotCodesign = NO...")),
        1);
}

TEST_F(Processing, OfTheWholeFolderQuitsAtTheEnd) {
    controller().setFSearchPath(folder.path("A"));
    window->showMinimized();
    controller().doProcess();
    controller().doProcess();
    ASSERT_TRUE(waitUntil([this] { return terminations == 1; }));
    EXPECT_FALSE(window->isMinimized());
    EXPECT_EQ(log.count(logged("doProcess", "...Already in Process...")), 1);
    EXPECT_EQ(calls(), bothCalls(folder.path("A"), "")) << "without the identity";
    EXPECT_FALSE(controller().fButton1Busy());
    EXPECT_EQ(controller().fProgressString1(), "Processing.....");
    awaitReveal(folder.path("A"));
}

TEST_F(Processing, OfTheWholeFolderTheOldWayMarksNothing) {
    controller().setFButton1Busy(true);
    controller().doProcessOLD();
    ASSERT_TRUE(waitUntil(
        [this] { return log.count(logged("doProcessOLD", "...Already in Process...")) == 1; }));
    controller().setFButton1Busy(false);
    controller().doProcessOLD();
    ASSERT_TRUE(waitUntil([this] { return terminations == 1; }));
    EXPECT_EQ(calls(), bothCalls("(null)", "")) << "there is no search path";
    EXPECT_EQ(controller().fProgressString1(), std::nullopt);
}

TEST_F(Processing, RevealsOffTheMainThread) {
    std::atomic<int> onMain = -1;
    Log::capture([&](Log::Severity, std::string_view message) {
        if (message.starts_with("Inside revealItemInFinder"))
            onMain = QThread::currentThread() == qApp->thread() ? 1 : 0;
    });
    controller().setFSearchPath(folder.path("A")); // for what is no path
    controller().doRevealItem(LocationItem(FileUrl(folder.path(), true)));
    ASSERT_TRUE(
        waitUntil([&] { return contentOf(folder.path("opened")) == folder.path("A") + "\n"; }));
    EXPECT_EQ(onMain, 0);
}

TEST_F(Processing, RevealsFoldersAndThePlacesOfPackages) {
    const ScopedEnvironment home("HOME", folder.path());
    revealItemInFinder("~/A/../A");
    revealItemInFinder(folder.path("A/X.app"));
    EXPECT_EQ(contentOf(folder.path("opened")), folder.path("A") + "\n" + folder.path("A") + "\n");
    const std::size_t beeps = beepsPlayed();
    for (const std::optional<std::string>& path :
         {std::optional<std::string>(), std::optional<std::string>(""),
          std::optional(folder.path("missing")), std::optional(folder.makeFile("file"))})
        revealItemInFinder(path);
    EXPECT_EQ(beepsPlayed(), beeps + 4);
    EXPECT_EQ(log.count(needsFolder), 4);
    EXPECT_EQ(contentOf(folder.path("opened")), folder.path("A") + "\n" + folder.path("A") + "\n");
}

TEST_F(Processing, TellsWhenAFolderCannotBeShown) {
    std::string failure;
    const auto tell = [&failure](const std::string& sentence) { failure = sentence; };
    revealItemInFinder(folder.path("A"), tell);
    revealItemInFinder(std::nullopt, tell);
    EXPECT_EQ(failure, "");
    revealItemInFinder(folder.path("Gone.app"), tell);
    EXPECT_THAT(failure, testing::HasSubstr("Gone.app cannot be shown, since no folder"));
    bin.makeExecutable("open", "#!/bin/sh\necho \"$1 has no 'browser'\"\nexit 4\n");
    revealItemInFinder(folder.path("A"), tell);
    EXPECT_THAT(failure, testing::HasSubstr(folder.path("A") + " cannot be shown"));
    EXPECT_THAT(failure, testing::HasSubstr("status 4"));
    EXPECT_EQ(log.count("shellcommand returned = " + folder.path("A") + " has no 'browser'\n"), 1);
    {
        const ScopedEnvironment nowhere("PATH", folder.path());
        revealItemInFinder(folder.path("A"), tell);
        EXPECT_THAT(failure, testing::HasSubstr("xdg-utils"));
    }
    controller().doRevealItem(folder.path("A"));
    EXPECT_TRUE(waitUntil([this] {
        return find<QLabel>("notice")->text().contains("status 4") && told.size() == 1;
    }));
}
