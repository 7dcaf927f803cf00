#include "app/VornNSViewAdditions.h"
#include "app/toolkit/ElidedLabel.h"
#include "app/toolkit/Layer.h"
#include "tests/app/WindowFixture.h"

#include <QAccessible>
#include <QCheckBox>
#include <QClipboard>
#include <QComboBox>
#include <QHelpEvent>
#include <QLabel>
#include <QScreen>
#include <QSignalSpy>
#include <QTest>
#include <QToolTip>
#include <QWindow>

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

struct Window : WindowFixture {};

constexpr const char* doNotCodesignKey = "prefDoNotCodesign";
constexpr const char* identityKey = "prefSelectedIdentityInfoDictionary";

} // namespace

TEST_F(Window, StartsInOrder) {
    if (!isFirst())
        return;
    settings.setBool("prefDNPTarget", true);
    settings.setBool(doNotCodesignKey, true);
    identitiesAre({"K: Jo (X1)"});
    // A timer that is due before another fires before it, however late both are.
    MainQueue::after(95ms, qApp, [] { logEvent("before a tenth of a second"); });
    openWindow();
    MainQueue::after(150ms, qApp, [] { logEvent("after a tenth of a second"); });
    EXPECT_EQ(controller().fSearchPath(), std::nullopt);
    EXPECT_FALSE(controller().fButton1Busy());
    ASSERT_NE(controller().fSetOfFolders(), nullptr);
    EXPECT_EQ(controller().fSetOfFolders()->count(), 0U);
    EXPECT_EQ(controller().fNumberOfFoldersToProcess(), std::nullopt) << "set one turn later";
    EXPECT_TRUE(settings.boolForKey("prefDNPTarget"));

    EXPECT_THAT(settingsFileAtOnce(), HasSubstr("prefDNPTarget=false\n"));
    EXPECT_EQ(controller().fNumberOfFoldersToProcess(), 0);
    EXPECT_TRUE(window->windowHandle()->flags().testFlag(Qt::WindowStaysOnTopHint));
    settle();
    EXPECT_FALSE(settings.boolForKey("prefDNPTarget"));
    EXPECT_TRUE(settings.boolForKey(doNotCodesignKey)) << "not derived from the selection";
    EXPECT_EQ(settings.stringForKey("prefAppVersion"), appVersionText(bundle.infoDictionary));
    EXPECT_EQ(find<ElidedLabel>("version")->fullText().toStdString(),
              appVersionText(bundle.infoDictionary));

    const auto* spinner = find<QPushButton>("progressview");
    ASSERT_TRUE(waitUntil([&] { return layerOf(spinner) != nullptr; }));
    EXPECT_THAT(layerOf(spinner)->animationKeys(), ElementsAre("rotation"));
    ASSERT_TRUE(waitUntil([&] { return log.contains("after a tenth of a second"); }));

    const std::vector<std::string> messages = log.messages();
    // The last place, since a resize starts the spinner too.
    const auto place = [&](const std::string& text) {
        return std::ranges::find_if(messages.rbegin(), messages.rend(),
                                    [&](const std::string& message) {
                                        return message.find(text) != std::string::npos;
                                    })
                   .base() -
               messages.begin();
    };
    EXPECT_LT(place("-getCodesigningIdentities..."), place("-setupCodesigningPopupStuff..."));
    EXPECT_LT(place("-setupCodesigningPopupStuff..."),
              place("awakeFromNib...self.ibDragDropView.frame = {{0, 0}, {"));
    EXPECT_LT(place("self.ibDragDropView.frame"), place("=> setupSpin...TESTING...."));
    EXPECT_LT(place("before a tenth of a second"), place("=> setupSpin...TESTING...."));
    EXPECT_LT(place("=> setupSpin...TESTING...."), place("after a tenth of a second"));

    log.clear();
    controller().awakeFromNib();
    EXPECT_TRUE(log.messages().empty()) << "only the first call does anything";
}

TEST_F(Window, WakesWithoutADropView) {
    if (!isFirst())
        return;
    QWidget view;
    ViewController alone(surroundings());
    alone.setView(&view);
    alone.awakeFromNib();
    EXPECT_EQ(log.count(formatted("%@", &alone) +
                        "-awakeFromNib...self.ibDragDropView.frame = {{0, 0}, {0, 0}}"),
              1);
}

TEST_F(Window, WakesOnceItHasBeenPainted) {
    window = std::make_unique<MainWindow>(surroundings(), delegate);
    EXPECT_EQ(controller().fSetOfFolders(), nullptr);
    window->show();
    EXPECT_TRUE(waitUntil([this] { return controller().fSetOfFolders() != nullptr; }));
    EXPECT_TRUE(controller().ibDragDropView()->acceptDrops());
}

TEST_F(Window, KeepsOneRotationHoweverOftenItIsResized) {
    openWindow();
    controller().ibTestSpin(nullptr);
    const auto* spinner = find<QPushButton>("progressview");
    ASSERT_TRUE(waitUntil([&] { return layerOf(spinner) != nullptr; }));
    for (int width : {600, 700, 650}) {
        log.clear();
        window->resize(width, 420);
        ASSERT_TRUE(waitUntil(
            [&] { return log.count("Inside ViewController => setupSpin...TESTING....") > 0; }));
        settle();
    }
    EXPECT_THAT(layerOf(spinner)->animationKeys(), ElementsAre("rotation"));
    EXPECT_EQ(find("dragDropView")->size(), find("view")->size());
    log.clear();
    QWidget other;
    other.show();
    other.resize(300, 200);
    EXPECT_GT(log.count("Inside " + logged("boundsDidChangeNotification:", "...")), 0)
        << "any window's";
}

TEST_F(Window, ShowsWhyThereAreNoIdentities) {
    std::filesystem::remove(tools.security);
    openWindow();
    const auto* popup = find<QComboBox>("identities");
    EXPECT_FALSE(popup->isEnabled());
    EXPECT_EQ(popup->currentText(), "No identity tool here");
    EXPECT_THAT(popup->toolTip().toStdString(), HasSubstr(tools.security));
    EXPECT_EQ(
        log.count(logged("setupCodesigningPopupStuff", "...NO LIST to set selectionIndex????????")),
        1);
    EXPECT_EQ(controller().getCodesigningIdentity(), std::nullopt);
}

TEST_F(Window, RemembersTheLastRealIdentity) {
    identitiesAre({"K: Jo (X1)", "L: Kim (Y2)"});
    openWindow();
    auto* popup = find<QComboBox>("identities");
    EXPECT_EQ(popup->currentText(), "Do NOT Codesign");
    EXPECT_EQ(controller().getCodesigningIdentity(), "donotcodesign");

    const auto turnWheel = [&] {
        QWheelEvent event(QPointF(5, 5), popup->mapToGlobal(QPointF(5, 5)), {}, {0, -120}, {}, {},
                          Qt::NoScrollPhase, false);
        QApplication::sendEvent(popup, &event);
    };
    find("choose")->setFocus();
    turnWheel();
    EXPECT_EQ(popup->currentIndex(), 0) << "only with the focus";
    popup->setFocus();
    ASSERT_TRUE(waitUntil([&] { return popup->hasFocus(); }));
    turnWheel();
    EXPECT_EQ(popup->currentIndex(), 1);
    settle();
    settings.setRecord(identityKey, {"", "", ""});
    log.clear();
    QTest::keyClick(popup, Qt::Key_End);
    EXPECT_EQ(settings.stringForKey(identityKey + QString("/title")), "") << "one turn later";
    EXPECT_THAT(settingsFileAtOnce(), HasSubstr("identitystring=Kim (Y2)\n"));
    const auto line = [&](const std::string& text) {
        return "Inside " + logged("ibClickedOnIdentityPopup:", "..." + text);
    };
    const IdentityList content = *controller().ibListOfIdentities()->content();
    const std::string list = "self.ibListOfIdentities.";
    std::vector<std::string> said = log.messages();
    std::erase(said, "Inside ViewController => setupSpin...TESTING...."); // a timer's, at any turn
    EXPECT_THAT(said, ElementsAre(line(""), line(list + "selectionIndex = 2..."),
                                  line("managedOjbectContext[(null)] = (null)"),
                                  line(formatted("%@content = %@", list, content)),
                                  line(formatted("%@selection = %@", list, content[2])),
                                  line(formatted("%@selectedObjects = %@", list, content[2]))));
    log.clear();
    controller().ibClickedOnCheckButton(nullptr);
    EXPECT_THAT(log.messages(),
                ElementsAre(logged("ibClickedOnCheckButton:", "..."),
                            logged("ibClickedOnCheckButton:", "...user selected index = 2"),
                            logged("ibClickedOnCheckButton:", "...user selected object = ") +
                                formatted("%@", IdentityList{content[2]})));
    settle();
    EXPECT_EQ(controller().getCodesigningIdentity(), "Kim (Y2)");
    EXPECT_EQ(settings.recordForKey(identityKey)->displaystring, "L: Kim (Y2)");
    EXPECT_FALSE(settings.boolForKey(doNotCodesignKey));
    EXPECT_EQ(log.count(logged("getCodesigningIdentity", "...user selected object = ") +
                        formatted("%@", content[2])),
              1);

    QTest::keyClick(popup, Qt::Key_Home);
    settle();
    EXPECT_TRUE(settings.boolForKey(doNotCodesignKey));
    EXPECT_EQ(settings.recordForKey(identityKey)->identitystring, "Kim (Y2)") << "still remembered";

    identitiesAre({"K: Jo (X1)", "L: KIM (y2)"});
    openWindow();
    EXPECT_EQ(find<QComboBox>("identities")->currentText(), "L: KIM (y2)") << "in any letter case";
    EXPECT_TRUE(settings.boolForKey(doNotCodesignKey));
}

TEST_F(Window, SelectsNothingWhenTheRememberedIdentityIsGone) {
    settings.setRecord(identityKey, {"K", "Gone (Z9)", "K: Gone (Z9)"});
    identitiesAre({"K: Jo (X1)"});
    openWindow();
    EXPECT_EQ(controller().getSelectionIndexFromIdentityString("Gone (Z9)"), 2U);
    EXPECT_EQ(find<QComboBox>("identities")->currentIndex(), -1);
    EXPECT_EQ(find<QComboBox>("identities")->placeholderText(),
              "K: Gone (Z9) is gone: pick another");
    EXPECT_EQ(controller().getCodesigningIdentity(), std::nullopt);
    settings.setBool(doNotCodesignKey, true);
    controller().updateDoNotCodesignFromSelectedIdentity();
    EXPECT_TRUE(settings.boolForKey(doNotCodesignKey)) << "changes one turn later";
    EXPECT_THAT(settingsFileAtOnce(), HasSubstr("prefDoNotCodesign=false\n"));
    EXPECT_FALSE(settings.boolForKey(doNotCodesignKey));
}

TEST_F(Window, ShowsHelpOnlyIfThereIsSome) {
    openWindow();
    const auto helpShown = [] {
        return std::ranges::any_of(QApplication::topLevelWidgets(), [](const QWidget* widget) {
            return widget->objectName() == "helpview" && widget->isVisible();
        });
    };
    find<QAction>("helpAction")->trigger();
    EXPECT_FALSE(helpShown());
    EXPECT_EQ(log.count("help: the page is not in " + bin.path() + ", install Kelpmoray again"), 1);
    bin.makeFile("TestDocument.html", "<p>Help</p>");
    find<QAction>("helpAction")->trigger();
    EXPECT_TRUE(helpShown());
}

TEST_F(Window, BindsTheCheckBoxToTheSetting) {
    openWindow();
    auto* box = find<QCheckBox>("doNotCodesign");
    box->setFocus();
    QTest::keyClick(box, Qt::Key_Space);
    EXPECT_TRUE(settings.boolForKey(doNotCodesignKey));
    EXPECT_EQ(log.count(logged("ibClickedOnCheckButton:", "...user selected object = (\n)")), 1);
    settings.setBool(doNotCodesignKey, false);
    EXPECT_FALSE(box->isChecked());
}

TEST_F(Window, RemembersItsFrame) {
    openWindow();
    window->move(90, 70);
    window->resize(600, 380);
    window->close();
    EXPECT_THAT(contentOf(folder.path("settings.ini")),
                HasSubstr("prefWindowFrame=\"{{90, 70}, {600, 380}}\"\n"));
    openWindow();
    EXPECT_EQ(QRect(window->pos(), window->size()), QRect(90, 70, 600, 380));
    settings.setString("prefWindowFrame", "{{90000, 70}, {900000, 380}}");
    openWindow();
    EXPECT_TRUE(window->screen()->geometry().contains(window->pos())) << "no screen is there";
    EXPECT_EQ(window->width(), window->screen()->availableSize().width());
    for (const char* unreadable : {"", "{{1, 2}"}) {
        settings.setString("prefWindowFrame", unreadable);
        openWindow();
        EXPECT_EQ(window->size(), QSize(520, 400));
    }
}

TEST_F(Window, TellsItsVersionAndLicencesForCopying) {
    if (!isFirst())
        return;
    openWindow();
    settle();
    find<QAction>("aboutAction")->trigger();
    const auto* about = find<QDialog>("aboutBox");
    ASSERT_NE(about, nullptr);
    QTest::mouseClick(about->findChild<QPushButton*>("copy"), Qt::LeftButton);
    EXPECT_THAT(QApplication::clipboard()->text().toStdString(),
                testing::AllOf(HasSubstr(appVersionText(bundle.infoDictionary)),
                               HasSubstr("MIT License"), HasSubstr("Qt")));
    controller().addItemToBeProcessedSet(folder.makeFolder("apps"));
    EXPECT_NE(sheet(), nullptr) << "it holds nothing up";
}

TEST_F(Window, ShowsTheStateOfTheBatch) {
    openWindow();
    const auto* start = find<QPushButton>("button1");
    EXPECT_FALSE(start->isEnabled());
    controller().setFNumberOfFoldersToProcess(2);
    EXPECT_TRUE(start->isEnabled());
    EXPECT_EQ(find<QLabel>("folderCount")->text(), "2 folders waiting");
    controller().setFButton1Busy(true);
    controller().setFProgressString1("Processing App Package: A.app...");
    EXPECT_TRUE(start->isEnabled()) << "the way out when the loop has stalled";
    EXPECT_EQ(find<ElidedLabel>("progressLine")->fullText(), "Processing App Package: A.app...");
    EXPECT_FALSE(find<QLabel>("busyState")->isVisible());
    EXPECT_TRUE(find("progressview")->isVisible());
    controller().setFButton1Busy(false);
    EXPECT_TRUE(find<QLabel>("busyState")->isVisible());
    EXPECT_FALSE(find("progressview")->isVisible());
    EXPECT_EQ(find<ElidedLabel>("progressLine")->fullText(), "");
}

TEST_F(Window, CanBeWorkedByKeyboardAndNamesItsControls) {
    identitiesAre({"K: Jo (X1)"});
    openWindow();
    controller().setFNumberOfFoldersToProcess(1);
    std::vector<std::string> reached;
    find("choose")->setFocus();
    for (int i = 0; i < 4; ++i) {
        reached.push_back(window->focusWidget()->objectName().toStdString());
        EXPECT_FALSE(window->focusWidget()->accessibleName().isEmpty()) << reached.back();
        QTest::keyClick(window->focusWidget(), Qt::Key_Tab);
    }
    EXPECT_THAT(reached, ElementsAre("choose", "button1", "identities", "doNotCodesign"));
    window->resize(1, 1);
    EXPECT_EQ(window->size(), QSize(420, 300));
    for (const char* name : {"choose", "identities", "progressLine", "version"})
        EXPECT_TRUE(find("dragDropView")
                        ->rect()
                        .contains(QRect(find(name)->mapTo(find("dragDropView"), QPoint(0, 0)),
                                        find(name)->size())))
            << name;
}

TEST(ElidedLabel, ShortensInTheMiddleAndKeepsTheWholeText) {
    ElidedLabel label;
    const QString path = "/a/" + QString(300, 'x') + "/line\nbreak & <b>markup</b>";
    label.setFullText(path);
    label.resize(200, 20);
    label.show();
    EXPECT_THAT(label.text().toStdString(), HasSubstr("…"));
    EXPECT_TRUE(label.text().startsWith("/a/"));
    EXPECT_EQ(label.fullText(), path);
    EXPECT_FALSE(QAccessible::queryAccessibleInterface(&label)
                     ->text(QAccessible::Description)
                     .contains("&lt;"));
    QHelpEvent hover(QEvent::ToolTip, {5, 5}, label.mapToGlobal(QPoint(5, 5)));
    QApplication::sendEvent(&label, &hover);
    EXPECT_THAT(QToolTip::text().toStdString(), HasSubstr("&lt;b&gt;markup"));
    QToolTip::hideText();
    label.resize(20'000, 20);
    EXPECT_EQ(label.text(), QString(path).replace('\n', QChar(0x2424)));
    label.setFullText("\u202ea\tb");
    EXPECT_EQ(label.text(), "?a b");
}
