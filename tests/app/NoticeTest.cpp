#include "tests/app/WindowFixture.h"

#include <QHelpEvent>
#include <QLabel>
#include <QListWidget>
#include <QMenu>
#include <QRegularExpression>
#include <QTimer>
#include <QToolTip>

using namespace std::chrono_literals;
using testing::HasSubstr;

namespace {

struct Notices : WindowFixture {};

} // namespace

TEST_F(Notices, SaysWhatItDoesNotTakeForAsLongAsItTakesToRead) {
    openWindow();
    settle();
    const auto* notice = find<QLabel>("notice");
    EXPECT_FALSE(notice->isVisible());
    window->resize(window->minimumSize());
    folder.makeFolder("apps/X.app");
    const LocationList wrong = {folder.makeFile("file.txt"), folder.makeFolder("Broken.app"),
                                folder.makeFolder("empty"), folder.path("apps")};
    notifications.post("newsearchpath", wrong);
    const std::vector<std::string> sentences = {
        "file.txt: a file is there. Give a folder or an application package (Name.app).",
        "Broken.app: this package is not a complete application (its Info.plist or executable is "
        "missing)",
        "empty: no packages are directly in this folder"};
    for (const std::string& sentence : sentences)
        EXPECT_THAT(notice->accessibleName().toStdString(),
                    HasSubstr(folder.path() + '/' + sentence));
    EXPECT_TRUE(find("applicationIcon")->isHidden());
    const int needed = notice->heightForWidth(notice->width());
    ASSERT_TRUE(waitUntil([&] { return notice->height() >= needed; })) << needed;
    settle();
    controller().addItemToBeProcessedSet(folder.path("apps"));
    ASSERT_TRUE(waitUntil([&] {
        return notice->accessibleName().endsWith("apps: it waits already, and is not added again");
    }));
    EXPECT_GT(window->findChild<QTimer*>("noticeEnd")->remainingTimeAsDuration(), 5s);
    std::string read;
    const auto reading = QObject::connect(window->findChild<QTimer*>("noticeEnd"), &QTimer::timeout,
                                          [&] { read += notice->text().toStdString() + '\n'; });
    read = notice->text().toStdString() + '\n';
    EXPECT_THAT(read, HasSubstr("\nand 2 more\n")) << "this window has room for two";
    readNotice();
    QObject::disconnect(reading);
    for (const std::string& sentence : sentences)
        EXPECT_THAT(read, HasSubstr(sentence));
    EXPECT_THAT(read, HasSubstr("apps: it waits already, and is not added again"));
    EXPECT_FALSE(notice->isVisible());
}

TEST_F(Notices, ShortensOnlyPathsInWhatItSays) {
    openWindow();
    settle();
    window->resize(600, 400);
    const auto* notice = find<QLabel>("notice");
    const std::string path = "/" + std::string(300, 'x') + "/a\nb 0: c";
    const std::string error = "Cannot write the record of " + path +
                              ": No space left on device. Make room: remove what is not needed.";
    window->explain(path + ": wrong", path);
    window->explain(error);
    EXPECT_LT(window->findChild<QTimer*>("noticeEnd")->remainingTimeAsDuration(), 30s)
        << "what is left out takes no time";
    const std::string shown = notice->text().toStdString();
    EXPECT_THAT(shown, testing::ContainsRegex("^/x+…x*/a␤b 0: c: wrong\nCannot write the record of "
                                              "/x+…x*/a␤b 0: c: No space left on device\\. Make "
                                              "room: remove what is not needed\\.$"));
    for (const QString& word : notice->text().split(QRegularExpression("[ \n]")))
        EXPECT_LE(notice->fontMetrics().horizontalAdvance(word), notice->width());
    EXPECT_EQ(window->width(), 600);
    const std::string whole = std::string(path).replace(path.find('\n'), 1, "␤") + ": wrong";
    EXPECT_THAT(notice->accessibleName().toStdString(), testing::StartsWith(whole + '\n'));
    QHelpEvent hover(QEvent::ToolTip, {5, 5}, notice->mapToGlobal(QPoint(5, 5)));
    QApplication::sendEvent(find("notice"), &hover);
    EXPECT_THAT(QToolTip::text().toStdString(), HasSubstr(whole));
    QToolTip::hideText();
    readNotice();
    EXPECT_FALSE(notice->isVisible());
    emit runs.recordFailed("Cannot write it: No space left on device. Make room.");
    EXPECT_EQ(notice->text(),
              "The results of this run are not kept: Cannot write it: No space left "
              "on device. Make room.");
}

TEST_F(Notices, ShowsNoNameThatItWouldObey) {
    openWindow();
    settle();
    const std::string name = "\u202eevil\tCtrl+Q & Co";
    folder.makeFolder("A/" + name + "/" + name + ".app");
    controller().addItemsToBeProcessedSet({folder.path("A/" + name)});
    settle();
    const QString shown = "?evil Ctrl+Q & Co";
    QMenu* waitingMenu = find<QPushButton>("waiting")->menu();
    emit waitingMenu->aboutToShow();
    EXPECT_THAT(waitingMenu->actions().front()->text().toStdString(),
                testing::EndsWith("?evil Ctrl+Q && Co"));
    window->explain(name, "");
    EXPECT_EQ(find<QLabel>("notice")->text(), shown);
    controller().doButton1(nullptr);
    ASSERT_NE(sheet(), nullptr);
    EXPECT_TRUE(sheet()->findChild<QLabel*>("folderPath")->text().remove('\n').endsWith(shown));
    EXPECT_EQ(sheet()->findChild<QListWidget*>("packages")->item(0)->text(), shown + ".app");
    sheet()->close();
    settle();
}
