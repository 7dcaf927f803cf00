#include "tests/endtoend/Desktop.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/Tree.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDeadlineTimer>
#include <QUrl>
#include <QVariantMap>

#include <functional>

#include <gmock/gmock.h>

using testing::HasSubstr;
using testing::Not;

namespace {

QString text(const std::string& string) {
    return QString::fromStdString(string);
}

/// The real program on a desktop of its own.
struct EndToEnd : testing::Test {
    EndToEnd() {
        tools.makeExecutable("open",
                             "#!/bin/sh\nprintf '%s\\n' \"$1\" >>'" + tools.path("opened") + "'\n");
        for (const char* package :
             {"three/One.app", "three/Two ü.app", "three/-Three.app", "more/Four.app"}) {
            folder.makeApplication(package);
            folder.makeFile(std::string(package) + "/Contents/Frameworks/K.framework/Versions/A/K",
                            "k");
            folder.makeLink(
                std::string(package) + "/Contents/Frameworks/K.framework/Versions/Current", "A");
        }
        folder.makeFolder("home/.config");
    }
    ~EndToEnd() override {
        if (program) {
            program->kill();
            program->waitForFinished();
        }
    }
    /// Starts the program and awaits its window.
    void launch(const QStringList& arguments = {}) {
        program = desktop.start(KELPMORAY_BIN_DIR "/kelpmoray", arguments);
        ASSERT_FALSE((window = desktop.awaitWindow("^Kelpmoray$")).isEmpty());
    }
    /// Asks the running program over the session bus to open folders of the test's.
    void open(const QStringList& names) const {
        QStringList uris;
        for (const QString& name : names)
            uris.push_back(QUrl::fromLocalFile(text(folder.path(name.toStdString())))
                               .toString(QUrl::FullyEncoded));
        QDBusMessage call =
            QDBusMessage::createMethodCall("com.quenbark.kelpmoray", "/com/quenbark/kelpmoray",
                                           "org.freedesktop.Application", "Open");
        call << uris << QVariantMap();
        QDBusConnection bus = QDBusConnection::connectToBus(desktop.busAddress(), "test");
        EXPECT_EQ(bus.call(call).type(), QDBusMessage::ReplyMessage);
        QDBusConnection::disconnectFromBus("test");
    }
    void answer(const QString& keys) const {
        const QString sheet = desktop.awaitWindow("^Process this Folder");
        ASSERT_FALSE(sheet.isEmpty());
        desktop.activate(sheet);
        desktop.press(keys);
    }
    void awaitNoSheet() const {
        ASSERT_TRUE(awaitThat([this] { return !desktop.hasWindow("^Process this Folder"); }));
        desktop.activate(window);
    }
    [[nodiscard]] bool awaitThat(const std::function<bool()>& condition) const {
        const QDeadlineTimer deadline(30'000);
        while (!condition() && !deadline.hasExpired())
            QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        return condition();
    }
    void expectEnd() {
        ASSERT_TRUE(program->waitForFinished(30'000)) << log();
        EXPECT_EQ(program->exitStatus(), QProcess::NormalExit);
        EXPECT_EQ(program->exitCode(), 0) << log();
    }
    /// The archive extracts to the tree of its package.
    void expectPacked(const std::string& name) const {
        const TemporaryFolder out;
        QProcess unzip;
        unzip.setWorkingDirectory(text(out.path()));
        unzip.start("unzip", {"-q", text(folder.path(name + ".zip"))});
        ASSERT_TRUE(unzip.waitForFinished());
        EXPECT_EQ(unzip.exitCode(), 0) << unzip.readAll().toStdString();
        const std::string package = name + ".app";
        EXPECT_EQ(treeAt(out.path(package.substr(package.find('/') + 1))),
                  treeAt(folder.path(package)));
    }
    [[nodiscard]] std::string log() const { return contentOf(tools.path("log")); }
    [[nodiscard]] bool exists(const std::string& name) const {
        return std::filesystem::exists(folder.path(name));
    }

    TemporaryFolder folder;
    TemporaryFolder tools{TemporaryFolder::withoutBlank};
    Desktop desktop{text(folder.path("home")), text(tools.path())};
    std::unique_ptr<QProcess> program;
    QString window;
};

} // namespace

TEST_F(EndToEnd, PacksWhatTheDesktopOpensAndQuits) {
    launch();
    open({"three"});
    answer("alt+p");
    expectEnd();
    for (const char* name : {"three/One", "three/Two ü", "three/-Three"})
        expectPacked(name);
    EXPECT_EQ(contentOf(tools.path("opened")), folder.path("three") + "\n");
    EXPECT_THAT(log(), HasSubstr("fenwoCodesignApps.sh \""));
}

TEST_F(EndToEnd, ProcessesByTabAndBlankToo) {
    launch({text(folder.path("more"))});
    answer("Tab");        // from Stop to the box
    desktop.press("Tab"); // and on to Process
    desktop.press("space");
    expectEnd();
    expectPacked("more/Four");
}

TEST_F(EndToEnd, SkipsAndQuits) {
    launch({text(folder.path("three"))});
    answer("alt+s");
    expectEnd();
    EXPECT_FALSE(exists("three/One.zip"));
    EXPECT_EQ(contentOf(tools.path("opened")), "");
}

TEST_F(EndToEnd, StopsOnReturnAndGoesOnLater) {
    launch({text(folder.path("three"))});
    answer("Return");
    awaitNoSheet();
    EXPECT_EQ(program->state(), QProcess::Running);
    EXPECT_FALSE(exists("three/One.zip"));
    desktop.press("alt+s");
    answer("Escape");
    awaitNoSheet();
    desktop.press("alt+s");
    answer("alt+p");
    expectEnd();
    expectPacked("three/One");
}

TEST_F(EndToEnd, OnlyPacksWhenTheBoxIsTicked) {
    launch({text(folder.path("more"))});
    answer("Tab"); // to the box
    desktop.press("space");
    desktop.press("alt+p");
    expectEnd();
    expectPacked("more/Four");
    EXPECT_THAT(log(), Not(HasSubstr("fenwoCodesignApps.sh \"")));
    EXPECT_THAT(contentOf(folder.path("home/.config/com.quenbark.kelpmoray.ini")),
                HasSubstr("prefDoNotCodesign=true"));
}

TEST_F(EndToEnd, HandsASecondStartToTheFirst) {
    launch({text(folder.path("more"))});
    ASSERT_FALSE(desktop.awaitWindow("^Process this Folder").isEmpty());
    const auto second = desktop.start(KELPMORAY_BIN_DIR "/kelpmoray", {text(folder.path("three"))});
    ASSERT_TRUE(second->waitForFinished(30'000));
    EXPECT_EQ(second->exitCode(), 0);
    answer("alt+p");
    ASSERT_TRUE(awaitThat([this] { return exists("more/Four.zip"); }));
    ASSERT_TRUE(awaitThat([this] { return log().find("doRevealItem:") != std::string::npos; }));
    answer("alt+p");
    expectEnd();
    for (const char* name : {"more/Four", "three/One", "three/Two ü", "three/-Three"})
        expectPacked(name);
    EXPECT_THAT(contentOf(tools.path("opened")), HasSubstr(folder.path("more") + "\n"));
    EXPECT_THAT(contentOf(tools.path("opened")), HasSubstr(folder.path("three") + "\n"))
        << "the last reveal is started before the end";
}

TEST_F(EndToEnd, TakesADrop) {
    launch();
    const auto source = desktop.start(DRAG_SOURCE, {text(folder.path("more"))});
    const QString from = desktop.awaitWindow("^Drag source$");
    ASSERT_FALSE(from.isEmpty());
    desktop.drag(from, window);
    answer("alt+p");
    expectEnd();
    expectPacked("more/Four");
    EXPECT_TRUE(exists("more/Four.app")) << "copied from, not moved";
    source->kill();
    source->waitForFinished();
}

TEST_F(EndToEnd, QuitsInTheMiddleOfAScriptWithoutHalfAnArchive) {
    folder.makeApplication("big/Big.app");
    QProcess noise;
    noise.start("sh", {"-c", "head -c 150000000 /dev/urandom >\"$1\"", "sh",
                       text(folder.path("big/Big.app/noise"))});
    ASSERT_TRUE(noise.waitForFinished());
    launch({text(folder.path("big"))});
    answer("alt+p");
    ASSERT_TRUE(awaitThat([this] {
        return log().find("cmdstring = " KELPMORAY_SHARE_DIR "/fenwoJustZipApps.sh") !=
               std::string::npos;
    }));
    awaitNoSheet();
    desktop.press("alt+F4");
    expectEnd();
    EXPECT_FALSE(exists("big/Big.zip")) << "the script was still at work";
    ASSERT_TRUE(awaitThat([this] { return exists("big/Big.zip"); }))
        << "and ends its work on its own";
    expectPacked("big/Big");
}

TEST_F(EndToEnd, IsTheFirstAgainAsSoonAsTheOldOneQuits) {
    tools.makeExecutable("open", "#!/bin/sh\n");
    launch({text(folder.path("more"))});
    answer("ctrl+q");
    const auto old = std::move(program);
    ASSERT_TRUE(awaitThat([this] { return !desktop.hasWindow("^Process this Folder"); }));
    launch({text(folder.path("three"))});
    answer("alt+s");
    expectEnd();
    ASSERT_TRUE(old->waitForFinished(30'000));
    EXPECT_EQ(old->exitCode(), 0);
    EXPECT_FALSE(exists("three/One.zip"));
}

TEST(CommandLine, IsAnsweredWithoutADisplay) {
    QProcess program;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.remove("DISPLAY");
    program.setProcessEnvironment(environment);
    for (const char* option : {"--version", "--help"}) {
        program.start(KELPMORAY_BIN_DIR "/kelpmoray", {option});
        ASSERT_TRUE(program.waitForFinished());
        EXPECT_EQ(program.exitCode(), 0);
        EXPECT_THAT(program.readAllStandardOutput().toStdString(), HasSubstr("kelpmoray"));
    }
}
