#include "app/toolkit/ChoosePanel.h"

#include "tests/app/WindowFixture.h"

#include <QDir>
#include <QFileSystemModel>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QTest>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

struct Choose : WindowFixture {
    Choose() {
        for (const char* name : {"A/X.app", "A/Y.app", "B", "c", "K.framework", "Z.app"})
            folder.makeFolder(name);
        folder.makeFile("notes.txt");
        folder.makeFile("File.app");
        openWindow();
        settle();
        QTest::keyClick(window.get(), Qt::Key_O, Qt::ControlModifier);
        (void)waitUntil([this] {
            return (panel = window->findChild<ChoosePanel*>()) != nullptr && panel->isVisible();
        });
        list = panel->findChild<QListView*>("files");
        go("");
    }
    /// Types the name of a folder and awaits its listing.
    void go(const std::string& name) const {
        auto* path = panel->findChild<QLineEdit*>("path");
        path->setText(QString::fromStdString(folder.path(name)));
        QTest::keyClick(path, Qt::Key_Return);
        EXPECT_TRUE(waitUntil([this] {
            const int rows = list->model()->rowCount(list->rootIndex());
            return rows == 2 ||
                   (rows > 2 && nameAt(0) == "A" && nameAt(2) == "c" && nameAt(4) == "Z.app");
        }));
    }
    /// Picks entries as a person with Ctrl held down would.
    void pick(const std::vector<std::string>& names) const {
        list->clearSelection();
        for (const std::string& name : names)
            QTest::mouseClick(list->viewport(), Qt::LeftButton, Qt::ControlModifier,
                              list->visualRect(index(name)).center());
    }
    [[nodiscard]] QString nameAt(int row) const {
        return list->model()->index(row, 0, list->rootIndex()).data().toString();
    }
    [[nodiscard]] QModelIndex index(const std::string& name) const {
        auto* files = qobject_cast<QFileSystemModel*>(list->model());
        return files->index(QString::fromStdString(folder.path(name)));
    }
    void confirm() const {
        QTest::mouseClick(panel->findChild<QPushButton*>("confirm"), Qt::LeftButton);
        closeSheet();
    }
    /// Stops the batch that what was chosen has started.
    void closeSheet() const {
        settle();
        if (auto* shown = window->findChild<ConfirmationSheet*>())
            shown->close();
        settle();
    }
    [[nodiscard]] std::vector<std::string> waiting() const {
        return controller().fSetOfFolders()->allObjects();
    }

    QPointer<ChoosePanel> panel;
    QListView* list = nullptr;
};

} // namespace

TEST_F(Choose, ShowsItsTextsInASheet) {
    EXPECT_EQ(panel->windowModality(), Qt::WindowModal);
    EXPECT_EQ(panel->findChild<QPushButton*>("confirm")->text(), "Choose");
    std::vector<std::string> texts;
    for (const auto* label : panel->findChildren<QLabel*>())
        texts.push_back(label->text().toStdString());
    EXPECT_THAT(texts,
                testing::IsSupersetOf({"Please Select App Package and/or Folder:", "Select"}));
    EXPECT_EQ(log.count("Inside ViewController => ibChangePath:..."), 1);
    controller().ibChangePath(nullptr);
    settle();
    EXPECT_EQ(window->findChildren<ChoosePanel*>().size(), 1) << "no second panel over the first";
    panel->reject();
    settle();
    EXPECT_EQ(log.count("Inside ViewController => ibChangePath:... DONE...returncode = 0"), 1);
    EXPECT_EQ(log.count("process..."), 0);
    EXPECT_THAT(waiting(), IsEmpty());
}

TEST_F(Choose, PicksFoldersAndPackagesTogether) {
    pick({"Z.app", "B", "A", "notes.txt", "File.app", "K.framework"});
    confirm();
    EXPECT_EQ(log.count("Inside ViewController => ibChangePath:... DONE...returncode = 1"), 1);
    EXPECT_EQ(log.count("selected (\n    \"" + FileUrl(folder.path("A"), true).absoluteString() +
                        "\",\n    \"" + FileUrl(folder.path("B"), true).absoluteString() +
                        "\",\n    \"" + FileUrl(folder.path("Z.app"), true).absoluteString() +
                        "\"\n)"),
              1)
        << "no file and no other package can be picked";
    EXPECT_THAT(waiting(), ElementsAre(folder.path("A"), folder.path("Z.app")))
        << "those that hold or are packages";
}

TEST_F(Choose, TakesAPackageAsAnItemAndAFolderAsAPlace) {
    emit list->activated(index("A"));
    ASSERT_TRUE(waitUntil([this] { return list->model()->rowCount(list->rootIndex()) == 2; }));
    emit list->activated(index("A/X.app"));
    closeSheet();
    EXPECT_THAT(waiting(), ElementsAre(folder.path("A/X.app"))) << "not entered but chosen";
}

TEST_F(Choose, TakesTheShownFolderWhenNothingIsPickedAndOpensThereNextTime) {
    go("A");
    QTest::mouseClick(panel->findChild<QPushButton*>("confirm"), Qt::LeftButton);
    EXPECT_THAT(contentOf(folder.path("settings.ini")),
                testing::HasSubstr("prefChoosePanelFolder=" + folder.path("A") + "\n"));
    closeSheet();
    EXPECT_THAT(waiting(), ElementsAre(folder.path("A")));
    controller().ibChangePath(nullptr);
    settle();
    panel = window->findChild<ChoosePanel*>();
    ASSERT_NE(panel, nullptr);
    EXPECT_EQ(panel->findChild<QLineEdit*>("path")->text().toStdString(), folder.path("A"));
    panel->reject();
}

TEST_F(Choose, TakesWhatTheKeyboardSelectsOnceEachInTheOrderShown) {
    list->setFocus();
    QTest::keyClick(list, Qt::Key_A, Qt::ControlModifier);
    QTest::keyClick(list, Qt::Key_Return);
    closeSheet();
    std::string expected = "selected (";
    for (const char* name : {"A", "B", "c"})
        expected += "\n    \"" + FileUrl(folder.path(name), true).absoluteString() + "\",";
    EXPECT_EQ(log.count(expected + "\n    \"" +
                        FileUrl(folder.path("Z.app"), true).absoluteString() + "\"\n)"),
              1);
}

TEST_F(Choose, EntersOneFolderOnReturnAndConfirmsOnItsButton) {
    list->setCurrentIndex(index("A"));
    QTest::keyClick(list, Qt::Key_Return);
    ASSERT_TRUE(waitUntil([this] { return list->model()->rowCount(list->rootIndex()) == 2; }));
    auto* button = panel->findChild<QPushButton*>("confirm");
    button->setFocus();
    QTest::keyClick(button, Qt::Key_Return);
    closeSheet();
    EXPECT_THAT(waiting(), ElementsAre(folder.path("A")));
}

TEST_F(Choose, UnderstandsTheTypedPathOrSaysWhatIsWrong) {
    const ScopedEnvironment home("HOME", folder.path());
    auto* path = panel->findChild<QLineEdit*>("path");
    const auto* problem = panel->findChild<QLabel*>("problem");
    const auto type = [&](const QString& text) {
        path->setText(text);
        QTest::keyClick(path, Qt::Key_Return);
    };
    for (const char* typed : {"~/A", "../A", "~/./A/"}) {
        type(typed);
        EXPECT_EQ(path->text().toStdString(), folder.path("A")) << typed;
        EXPECT_FALSE(problem->isVisible());
    }
    type("~/notes.txt");
    EXPECT_EQ(problem->text().toStdString(),
              folder.path("notes.txt") + " is a file: type the path of a folder.");
    type("nowhere");
    EXPECT_TRUE(problem->isVisible());
    EXPECT_EQ(problem->text().toStdString(),
              "There is no " + folder.path("A/nowhere") + ": type the path of a folder.");
    type("~");
    EXPECT_FALSE(problem->isVisible());
    EXPECT_FALSE(
        qvariant_cast<QIcon>(list->model()->data(index("A"), Qt::DecorationRole)).isNull());
    panel->reject();
}
