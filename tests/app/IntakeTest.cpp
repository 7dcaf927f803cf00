#include "tests/app/WindowFixture.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/// Each test ends the batch that an intake starts by stopping at its sheet.
struct Intake : WindowFixture {
    Intake() {
        folder.makeFolder("A/X.app");
        folder.makeFolder("B");
        openWindow();
        settle();
    }
    void post(NotificationObject object) {
        notifications.post("newsearchpath", std::move(object));
        settle();
    }
    void stop() const {
        if (auto* shown = sheet())
            shown->close();
    }
    [[nodiscard]] std::vector<std::string> waiting() const {
        return controller().fSetOfFolders()->allObjects();
    }
};

} // namespace

TEST_F(Intake, TakesLocationsOnceAndBeepsForTheRest) {
    const std::size_t beeps = beepsPlayed();
    controller().addItemsToBeProcessedSet(
        {folder.path("A"), FileUrl(folder.path("A"), true), OtherItem{"7"}, folder.path("B")});
    EXPECT_THAT(waiting(), IsEmpty()) << "added one turn later";
    settle();
    EXPECT_THAT(waiting(), ElementsAre(folder.path("A"), folder.path("B")));
    EXPECT_EQ(beepsPlayed(), beeps + 1);
    EXPECT_EQ(controller().fNumberOfFoldersToProcess(), 2);
    const std::string method = "addItemsToBeProcessedSet:";
    EXPECT_EQ(log.count(logged(method, " = unable to convert to NSString???  anitem = 7....")), 1);
    EXPECT_EQ(
        log.count(logged(method, " = final self.fSetOfFolders(2) = {(\n    \"" + folder.path("A") +
                                     "\",\n    \"" + folder.path("B") + "\"\n)}")),
        1);
    controller().addItemsToBeProcessedSet({});
    EXPECT_EQ(log.count(logged(method, " = nil or empty array list....")), 1);
    EXPECT_EQ(log.count(formatted("%@-%@...", &controller(), "doButton1Loop:")), 0)
        << "starts no batch";
}

TEST_F(Intake, StartsTheLoopForTheFirstSingleItemOnly) {
    controller().addItemToBeProcessedSet(folder.path("A"));
    EXPECT_THAT(waiting(), IsEmpty()) << "added one turn later";
    settle();
    EXPECT_NE(sheet(), nullptr);
    controller().addItemToBeProcessedSet(folder.path("B"));
    const std::size_t beeps = beepsPlayed();
    controller().addItemToBeProcessedSet(folder.path("B"));
    settle();
    EXPECT_EQ(beepsPlayed(), beeps + 1);
    EXPECT_EQ(log.count(formatted("%@-%@...", &controller(), "doButton1Loop:")), 1);
    stop();
}

TEST_F(Intake, TakesAFolderForThePackagesInIt) {
    folder.makeApplication("A/Y.app");
    delegate.applicationOpenURLs({FileUrl(folder.path("A"), true)});
    EXPECT_THAT(waiting(), IsEmpty());
    settle();
    EXPECT_THAT(waiting(), ElementsAre(folder.path("A")));
    EXPECT_NE(sheet(), nullptr) << "and starts the batch";
    EXPECT_EQ(log.count("urls to open: (\n    \"" +
                        FileUrl(folder.path("A"), true).absoluteString() + "\"\n)"),
              1);
    stop();
    post(LocationList{folder.path("A/Y.app"), folder.path("A")});
    EXPECT_THAT(waiting(), ElementsAre(folder.path("A"))) << "what the folder holds goes with it";
    stop();
}

TEST_F(Intake, TakesOnePathOrOneURL) {
    post(LocationItem(folder.makeApplication("Good.app")));
    EXPECT_THAT(waiting(), ElementsAre(folder.path("Good.app")));
    stop();
    post(LocationItem(FileUrl(folder.path("B"), true)));
    EXPECT_THAT(waiting(), ElementsAre(folder.path("Good.app"), folder.path("B")))
        << "a folder without packages is taken as it is";
    stop();
}

TEST_F(Intake, TurnsAwayWhatIsNeitherFolderNorApplication) {
    const std::string message = logged("handleNewSearchPath:", "  NOT GOOD??? empty array....");
    post(LocationList{folder.makeFile("notes.txt"), FileUrl(folder.makeFolder("P.bundle"), true),
                      OtherItem{"7"}});
    EXPECT_EQ(log.count(message), 1);
    post(LocationList{});
    post(LocationItem(OtherItem{"7"}));
    EXPECT_EQ(log.count(message), 3);
    post({});
    EXPECT_EQ(log.count(message), 3) << "without an object nothing more is said";
    EXPECT_THAT(waiting(), IsEmpty());
    EXPECT_EQ(window->findChild<ConfirmationSheet*>(), nullptr);
}

TEST_F(Intake, KeepsTheOldHandler) {
    controller().handleNewSearchPathOLD({"newsearchpath", LocationItem(OtherItem{"7"})});
    controller().handleNewSearchPathOLD({"newsearchpath", LocationList{folder.path("A")}});
    settle();
    EXPECT_EQ(controller().fSearchPath(), std::nullopt);
    const std::size_t beeps = beepsPlayed();
    bool wasSet = false;
    QObject::connect(&controller(), &ViewController::propertyChanged, &controller(),
                     [&] { wasSet |= controller().fSearchPath() == folder.path("A"); });
    controller().handleNewSearchPathOLD({"newsearchpath", LocationItem(folder.path("A"))});
    ASSERT_TRUE(waitUntil([&] { return beepsPlayed() > beeps; }))
        << "nothing waits, so the start beeps";
    EXPECT_TRUE(wasSet);
    EXPECT_EQ(controller().fSearchPath(), std::nullopt) << "the start clears it";
}
