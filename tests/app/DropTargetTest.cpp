#include "app/toolkit/DraggingPasteboard.h"
#include "app/toolkit/FileUris.h"
#include "tests/app/WindowFixture.h"

#include <QDropEvent>
#include <QMimeData>
#include <QUrl>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

struct DropTarget : WindowFixture {
    DropTarget() {
        folder.makeApplication("Good.app");
        folder.makeFolder("Folder");
        folder.makeFolder("P.bundle");
        folder.makeFile("notes.txt");
        openWindow();
        settle();
        view = controller().ibDragDropView();
        notifications.addObserver("newsearchpath", [this](const Notification& notification) {
            opened.push_back(std::get<LocationList>(notification.object));
        });
        log.clear();
    }
    [[nodiscard]] std::unique_ptr<QMimeData> urls(const std::vector<std::string>& names) const {
        auto data = std::make_unique<QMimeData>();
        QList<QUrl> list;
        for (const std::string& name : names)
            list.push_back(QUrl::fromLocalFile(QString::fromStdString(folder.path(name))));
        data->setUrls(list);
        return data;
    }
    [[nodiscard]] std::unique_ptr<QMimeData> text(const std::string& lines) const {
        auto data = std::make_unique<QMimeData>();
        data->setText(QString::fromStdString(lines));
        return data;
    }
    /// Whether a drag over a control is offered a drop; the outline is then up to date.
    bool enter(const QMimeData& data) const {
        QDragEnterEvent event(QPoint(5, 5), Qt::MoveAction | Qt::CopyAction, &data, Qt::LeftButton,
                              Qt::NoModifier);
        QCoreApplication::sendEvent(view, &event);
        settle();
        return event.isAccepted() && event.dropAction() == Qt::CopyAction;
    }
    void drop(const QMimeData& data) const {
        EXPECT_EQ(enter(data), data.hasUrls() || data.text().startsWith('/'));
        QDropEvent event(QPoint(5, 5), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
        QCoreApplication::sendEvent(view, &event);
        settle();
        if (auto* shown = window->findChild<ConfirmationSheet*>())
            shown->close();
        settle();
    }
    [[nodiscard]] static std::string step(const std::string& rest) {
        return "[MyDragDropView " + rest;
    }

    MyDragDropView* view = nullptr;
    std::vector<LocationList> opened;
};

} // namespace

TEST_F(DropTarget, IsOutlinedForFoldersAndPackagesOnly) {
    EXPECT_TRUE(enter(*urls({"Folder"})));
    EXPECT_TRUE(view->isHighlighted());
    QDragLeaveEvent leave;
    QCoreApplication::sendEvent(view, &leave);
    EXPECT_TRUE(view->isHighlighted()) << "changes one turn later";
    settle();
    EXPECT_FALSE(view->isHighlighted());
    EXPECT_TRUE(enter(*urls({"notes.txt"}))) << "offered a drop all the same";
    EXPECT_FALSE(view->isHighlighted());
    EXPECT_TRUE(enter(*urls({"notes.txt", "P.bundle"})));
    EXPECT_TRUE(view->isHighlighted());
    EXPECT_TRUE(enter(*urls({"notes.txt"})));
    EXPECT_FALSE(view->isHighlighted());
    QMimeData colour;
    colour.setColorData(QColor(Qt::red));
    EXPECT_FALSE(enter(colour));
    EXPECT_EQ(log.count(step("draggingEntered:]")), 4);
    EXPECT_EQ(log.count(step("draggingExited:]")), 1);
    EXPECT_EQ(log.count(step("draggingEnded:]")), 1);
    QMimeData link;
    link.setUrls({QUrl("https://example.org/")});
    EXPECT_TRUE(enter(link));
    EXPECT_EQ(log.count(step("draggingEntered:]  Invalid items.. ")), 1);
}

TEST_F(DropTarget, DrawsABlueOutlineFivePointsWide) {
    enter(*urls({"Folder"}));
    const QImage image = view->grab().toImage();
    EXPECT_EQ(image.pixelColor(0, image.height() / 2), QColor(Qt::blue));
    EXPECT_EQ(image.pixelColor(2, image.height() / 2), QColor(Qt::blue));
    EXPECT_NE(image.pixelColor(3, image.height() / 2), QColor(Qt::blue))
        << "half of the line is clipped";
    EXPECT_GT(log.count(step("drawRect:] isHighlighted = YES")), 0);
    view->setIsHighlighted(false);
    EXPECT_NE(view->grab().toImage().pixelColor(0, image.height() / 2), QColor(Qt::blue));
}

TEST_F(DropTarget, HandsOnFoldersAndApplicationsInOrder) {
    drop(*urls({"Good.app", "P.bundle", "Folder", "notes.txt"}));
    ASSERT_EQ(opened.size(), 1U);
    EXPECT_THAT(opened[0], ElementsAre(LocationItem(FileUrl(folder.path("Good.app"), true)),
                                       LocationItem(FileUrl(folder.path("Folder"), true))));
    EXPECT_FALSE(view->isHighlighted());
    std::vector<std::string> steps;
    for (const std::string& message : log.messages()) {
        if (message.starts_with("[MyDragDropView") && message.ends_with(":]"))
            steps.push_back(message);
    }
    EXPECT_THAT(steps, ElementsAre(step("draggingEntered:]"), step("prepareForDragOperation:]"),
                                   step("performDragOperation:]"), step("concludeDragOperation:]"),
                                   step("draggingEnded:]")));
    EXPECT_EQ(log.count("pboad types = (\n    NSURLPboardType,\n    NSFilenamesPboardType\n)"), 1);
    EXPECT_EQ(log.count("found utiType = public.folder"), 1);
    EXPECT_EQ(log.count("OK to process application bundle..." + folder.path("Good.app")), 1);
    EXPECT_EQ(log.count("OK to process Folder..." + folder.path("Folder")), 1);
    EXPECT_EQ(log.count("INVALID Item will be ignored => P.bundle"), 1);
    EXPECT_EQ(log.count("INVALID Item will be ignored => notes.txt"), 1);
}

TEST_F(DropTarget, TakesFileNamesWhereThereAreNoURLs) {
    drop(*text(folder.path("Folder") + "\nnot a path\r\n" + folder.path("Good.app") + "\n" +
               folder.path("notes.txt")));
    ASSERT_EQ(opened.size(), 1U);
    EXPECT_THAT(opened[0], ElementsAre(LocationItem(folder.path("Folder")),
                                       LocationItem(folder.path("Good.app"))));
    EXPECT_EQ(log.count("OK to process Folder..."), 1);
    EXPECT_EQ(log.count("OK to process application bundle..."), 1);
}

TEST_F(DropTarget, KeepsNamesThatAreNotUtf8) {
    folder.makeFolder("caf\xE9");
    QMimeData data;
    data.setUrls({QUrl(uriOfPath(folder.path("caf\xE9")))});
    drop(data);
    ASSERT_EQ(opened.size(), 1U);
    EXPECT_THAT(opened[0], ElementsAre(LocationItem(FileUrl(folder.path("caf\xE9"), true))));
}

TEST_F(DropTarget, HandsOnAnEmptyListToo) {
    drop(*urls({"notes.txt"}));
    drop(*text("nothing"));
    ASSERT_EQ(opened.size(), 1U) << "text without paths never comes as far as a drop";
    EXPECT_THAT(opened[0], IsEmpty());
    EXPECT_EQ(log.count("validitems = (\n)"), 1);
    EXPECT_EQ(log.count(logged("handleNewSearchPath:", "  NOT GOOD??? empty array....")), 1);
}
