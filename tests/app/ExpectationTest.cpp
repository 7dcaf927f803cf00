#include "app/ExpectationLine.h"
#include "app/toolkit/ElidedPopup.h"
#include "tests/app/WindowFixture.h"

#include <QAccessible>
#include <QCheckBox>
#include <QLabel>
#include <QListWidget>
#include <QTest>
#include <QTextDocumentFragment>

using testing::HasSubstr;

namespace {

/// Three folders: one with six packages, two of them packed already, one with one, one with none.
struct Expected : WindowFixture {
    Expected() {
        identitiesAre({"K: Jane Doe (AB12CD34EF)"});
        for (const char* name : {"A", "B", "C", "D", "E & <b>  E"})
            folder.makeFolder(std::string("six/") + name + ".app");
        folder.makeFolder("six/F.APP");
        folder.makeFolder("six/.G.app");
        folder.makeLink("six/H.app", "nowhere");
        folder.makeFile("six/A.zip");
        folder.makeFile("six/F.zip");
        folder.makeFolder("one/X.app");
        folder.makeFolder("none/deeper/Y.app");
        openWindow();
        settle();
    }
    void drop(const std::vector<std::string>& names) {
        LocationList items;
        for (const std::string& name : names)
            items.emplace_back(folder.path(name));
        controller().addItemsToBeProcessedSet(items);
        settle();
    }
    /// Waits for it, and tells what is there else.
    [[nodiscard]] testing::AssertionResult says(const std::string& text) const {
        const auto* line = find<ExpectationLine>("expectation");
        if (waitUntil([&] { return line->isVisible() && line->fullText().toStdString() == text; }))
            return testing::AssertionSuccess();
        return testing::AssertionFailure() << line->fullText().toStdString();
    }
    void pick(const char* name) const { find<QComboBox>("identities")->setCurrentText(name); }
};

std::string textIn(const QWidget* sheet, const char* name) {
    const auto* label = sheet->findChild<QLabel*>(name);
    return label->isVisible() ? label->text().toStdString() : "";
}

} // namespace

TEST_F(Expected, FollowsThePopupTheBoxAndTheEntries) {
    EXPECT_TRUE(says("Packages will not be signed"));
    pick("K: Jane Doe (AB12CD34EF)");
    EXPECT_TRUE(says("Packages will be signed as Jane Doe (AB12CD34EF)"));
    drop({"one"});
    EXPECT_TRUE(says("1 package, signed as Jane Doe (AB12CD34EF)"));
    drop({"six", "none"});
    EXPECT_TRUE(says("7 packages, signed as Jane Doe (AB12CD34EF) · 2 archives will be replaced"));
    find<QCheckBox>("doNotCodesign")->click();
    EXPECT_TRUE(says("7 packages, not signed · 2 archives will be replaced"));
    controller().removeWaiting(folder.path("six"));
    controller().removeWaiting(folder.path("one"));
    EXPECT_TRUE(says("no packages"));
    find<QCheckBox>("doNotCodesign")->click();
    controller().removeWaiting(folder.path("none"));
    controller().ibListOfIdentities()->setSelectionIndex(9);
    EXPECT_TRUE(says("Packages will not be signed: no identity is picked"));
    installScript("fenwoZipAppsDNP", "");
    pick("K: Jane Doe (AB12CD34EF)");
    EXPECT_TRUE(says("Packages will not be signed")) << "this edition never does";
}

TEST_F(Expected, IsSaidInTheQuestionToo) {
    drop({"six", "one", "none", "one/X.app"});
    pick("K: Jane Doe (AB12CD34EF)");
    struct Case {
        std::string place, summary, replaced;
        int listed;
    };
    const Case cases[] = {{"folder 1 of 4", "6 packages, signed as Jane Doe (AB12CD34EF)",
                           "2 archives will be replaced", 6},
                          {"folder 2 of 4", "1 package, signed as Jane Doe (AB12CD34EF)", "", 1},
                          {"folder 3 of 4", "no packages directly in this folder", "", 0},
                          {"package 4 of 4", "1 package, signed as Jane Doe (AB12CD34EF)", "", 0}};
    controller().doButton1(nullptr);
    for (const Case& expected : cases) {
        const ConfirmationSheet* asking = sheet();
        ASSERT_NE(asking, nullptr);
        EXPECT_EQ(textIn(asking, "place"), expected.place);
        EXPECT_EQ(textIn(asking, "summary"), expected.summary);
        EXPECT_EQ(textIn(asking, "replaced"), expected.replaced);
        const auto* names = asking->findChild<QListWidget*>("packages");
        EXPECT_EQ(names->isVisible() ? names->count() : 0, expected.listed);
        if (expected.listed > 5) {
            EXPECT_EQ(names->item(5)->text(), "F.APP");
            const QString tip = names->item(4)->toolTip();
            EXPECT_TRUE(Qt::mightBeRichText(tip));
            EXPECT_EQ(QTextDocumentFragment::fromHtml(tip).toPlainText(), "E & <b>  E.app");
            EXPECT_FALSE(names->viewport()->rect().contains(names->visualItemRect(names->item(5))))
                << "many are scrolled";
            asking->findChild<QCheckBox*>("doNotCodesign")->click();
            EXPECT_EQ(textIn(asking, "summary"), "6 packages, not signed");
            asking->findChild<QCheckBox*>("doNotCodesign")->click();
        }
        asking->findChild<QPushButton*>("Skip")->click();
        settle();
    }
    for (const char* package : {"Back\\slash", "Save$", "New\nLine", "not UTF-8: \xff", "b$HOME"})
        folder.makeFolder(std::string("shell/") + package + ".app");
    drop({"shell"});
    controller().doButton1(nullptr);
    EXPECT_EQ(textIn(sheet(), "place"), "") << "one alone";
    EXPECT_EQ(
        textIn(sheet(), "renaming"),
        "b$HOME.app will fail, since the shell reads characters of its path: rename it first");
    sheet()->findChild<QPushButton*>("Stop")->click();
    settle();
    for (const char* package : {"c`d`", "a\nb$c"})
        folder.makeFolder(std::string("shell/") + package + ".app");
    controller().doButton1(nullptr);
    EXPECT_EQ(textIn(sheet(), "renaming"),
              "a␤b$c.app and 2 more will fail, since the shell reads characters of their paths: "
              "rename them first");
}

TEST_F(Expected, LooksAgainAfterProcessingAndBeforeAQuestion) {
    drop({"one"});
    EXPECT_TRUE(says("1 package, not signed"));
    controller().setEntryAtWork("/x");
    EXPECT_FALSE(find("expectation")->isVisible());
    folder.makeFile("one/X.zip");
    controller().setEntryAtWork(std::nullopt);
    EXPECT_TRUE(says("1 package, not signed · 1 archive will be replaced"));
    std::filesystem::remove_all(folder.path("one/X.app"));
    find<QPushButton>("button1")->click();
    ASSERT_NE(sheet(), nullptr);
    EXPECT_EQ(textIn(sheet(), "summary"), "no packages directly in this folder");
    EXPECT_TRUE(says("no packages"));
    sheet()->close();
    settle();
}

TEST(ElidedPopup, ShortensInTheMiddle) {
    ElidedPopup popup;
    popup.addItem("Developer ID Application: " + QString(100, 'x') + " (AB12CD34EF)");
    popup.resize(300, 30);
    popup.show();
    EXPECT_TRUE(popup.shownText().startsWith("Developer"));
    EXPECT_TRUE(popup.shownText().endsWith("CD34EF)"));
    EXPECT_THAT(popup.shownText().toStdString(), HasSubstr("…"));
    const QImage shown = popup.grab().toImage();
    popup.setItemText(0, popup.shownText());
    EXPECT_EQ(shown, popup.grab().toImage()) << "it draws that text";
}
