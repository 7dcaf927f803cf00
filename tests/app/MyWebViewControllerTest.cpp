#include "app/MyWebViewController.h"

#include "app/toolkit/NamedImage.h"
#include "tests/app/Support.h"

#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

namespace {

class HelpViewer : public testing::Test {
protected:
    HelpViewer() {
        bundle.resourcesFolder = folder.path().toStdString();
        QFile page(file);
        if (page.open(QIODevice::WriteOnly))
            page.write("<p>Help is here</p>");
    }

    const QTemporaryDir folder;
    const QString file = folder.filePath(QStringLiteral("TestDocument.html"));
    MainBundle bundle;
    QTextBrowser viewer;
};

} // namespace

TEST_F(HelpViewer, LoadsThePageAnewEachTime) {
    MyWebViewController controller(bundle);
    controller.setIbMyWebView(&viewer);
    controller.viewDidLoad();
    controller.awakeFromNib();
    EXPECT_TRUE(viewer.toPlainText().isEmpty());
    controller.doLoadDoc(nullptr);
    EXPECT_EQ(viewer.toPlainText(), "Help is here");
    EXPECT_EQ(viewer.source(), QUrl::fromLocalFile(file));

    QFile page(file);
    ASSERT_TRUE(page.open(QIODevice::WriteOnly));
    page.write("<p>Changed</p>");
    page.close();
    controller.doLoadDoc(&viewer);
    EXPECT_EQ(viewer.toPlainText(), "Changed");
}

TEST_F(HelpViewer, ShowsTheShippedPageInItsOwnWindow) {
    MyWebViewController controller(MainBundle::ofThisProcess());
    QWidget* view = controller.view();
    EXPECT_EQ(controller.view(), view);
    EXPECT_EQ(controller.ibMyWebView(), view);
    EXPECT_FALSE(view->windowIcon().isNull());
    view->show();
    view->activateWindow();
    ASSERT_TRUE(waitUntil([&] { return view->isActiveWindow(); }));
    QTest::keyClick(view, Qt::Key_Escape);
    EXPECT_FALSE(view->isVisible());
    controller.doLoadDoc(nullptr);
    const QString text = controller.ibMyWebView()->toPlainText();
    for (const char* subject : {"Process", "Skip", "Stop", "do not codesign", ".zip", "Linux"})
        EXPECT_TRUE(text.contains(subject)) << subject;
    const QString source = controller.ibMyWebView()->toHtml();
    int pictures = 0;
    static const QRegularExpression image("<img[^>]*src=\"([^\"]+)\"");
    for (auto found = image.globalMatch(source); found.hasNext(); ++pictures) {
        const QUrl picture(found.next().captured(1));
        EXPECT_FALSE(controller.ibMyWebView()
                         ->loadResource(QTextDocument::ImageResource, picture)
                         .toByteArray()
                         .isEmpty())
            << picture.toString().toStdString();
    }
    EXPECT_EQ(pictures, 4);
    // Each line of the contents leads somewhere.
    static const QRegularExpression link("<a href=\"#([^\"]+)\"");
    int links = 0;
    for (auto found = link.globalMatch(source); found.hasNext(); ++links) {
        const QString anchor = found.next().captured(1);
        EXPECT_TRUE(source.contains("name=\"" + anchor + '"')) << anchor.toStdString();
    }
    EXPECT_GT(links, 5);
}

TEST(NamedImage, FindsTheIconInAllItsSizesAndNothingElse) {
    const QIcon icon = applicationIcon();
    EXPECT_EQ(icon.availableSizes().size(), 4);
    for (const int size : {16, 64})
        EXPECT_EQ(icon.pixmap(size, size).size(), QSize(size, size));
    EXPECT_TRUE(imageNamed("no-such-image.png").isNull());
}
