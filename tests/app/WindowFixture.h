#pragma once

#include "app/AppDelegate.h"
#include "app/ConfirmationSheet.h"
#include "app/MainWindow.h"
#include "app/toolkit/Beep.h"
#include "app/toolkit/NotificationCenter.h"
#include "app/toolkit/QtDescription.h"
#include "app/toolkit/Queues.h"
#include "app/toolkit/SettingsStore.h"
#include "core/RunSummary.h"
#include "tests/app/Support.h"
#include "tests/support/LogCapture.h"
#include "tests/support/ScopedEnvironment.h"
#include "tests/support/TemporaryFolder.h"

#include <QApplication>
#include <QProcess>
#include <QPushButton>
#include <QSignalSpy>
#include <QTimer>

#include <atomic>

#include <gmock/gmock.h>

/// The real main window over a settings file, identities, scripts and file browser of the test's
/// own.
struct WindowFixture : testing::Test {
    WindowFixture() {
        QApplication::setDoubleClickInterval(0); // or each sheet would have to be read first
        tools.security = bin.path("security");
        bin.makeExecutable("security", "#!/bin/sh\n");
        bin.makeExecutable("open",
                           "#!/bin/sh\nprintf '%s\\n' \"$1\" >>'" + folder.path("opened") + "'\n");
        bundle.resourcesFolder = bin.path();
        for (const char* script : {"fenwoCodesignApps", "fenwoJustZipApps"})
            installScript(script, "");
    }
    /// Waits until no job can call the window any more.
    ~WindowFixture() override { settle(); }

    /// Installs a script that writes down its name and arguments, then does `more`.
    void installScript(const std::string& name, const std::string& more) const {
        bin.makeExecutable(name + ".sh", "#!/bin/sh\nprintf '%s|' \"${0##*/}\" \"$@\" >>'" +
                                             folder.path("calls") + "'\necho >>'" +
                                             folder.path("calls") + "'\n" + more + "\n");
    }
    void identitiesAre(const std::vector<std::string>& names) const {
        std::string script = "#!/bin/sh\n";
        for (const std::string& name : names)
            script += "echo '1) 00 \"" + name + "\"'\n";
        bin.makeExecutable("security", script + "echo '  identities found'\n");
    }
    [[nodiscard]] Surroundings surroundings() {
        return {.bundle = bundle,
                .settings = settings,
                .notifications = notifications,
                .tools = tools,
                .terminate = [this] { ++terminations; },
                .notifyUser =
                    [this, test = QPointer(&alive)](const QString& summary, const QString& body) {
                        // The file browser's command may outlast the test.
                        MainQueue::async([this, test, text = summary + ": " + body] {
                            if (test)
                                told.push_back(text.toStdString());
                        });
                    },
                .runs = runs,
                .tellFailure = [this] { told.push_back(summaryOf(runs.model().packages())); }};
    }
    MainWindow& openWindow() {
        window = std::make_unique<MainWindow>(surroundings(), delegate);
        wasOpened = true;
        window->load();
        window->show();
        return *window;
    }
    [[nodiscard]] ViewController& controller() const { return window->controller(); }
    template <typename Widget = QWidget>
    [[nodiscard]] Widget* find(const char* name) const {
        return window->findChild<Widget*>(name);
    }
    /// Whether this process has opened no window yet. If it has, the test that asks is run in a
    /// process of its own: the controller wakes once in a process.
    [[nodiscard]] static bool isFirst() {
        if (!wasOpened)
            return true;
        const auto* test = testing::UnitTest::GetInstance()->current_test_info();
        EXPECT_EQ(QProcess::execute(
                      QCoreApplication::applicationFilePath(),
                      {QString("--gtest_filter=%1.%2").arg(test->test_suite_name(), test->name())}),
                  0);
        return false;
    }
    /// The sheet on the window, awaited; null if none comes.
    [[nodiscard]] ConfirmationSheet* sheet() const {
        ConfirmationSheet* found = nullptr;
        (void)waitUntil([&] {
            found = window->findChild<ConfirmationSheet*>();
            return found != nullptr && found->isVisible();
        });
        return found;
    }
    /// Lets everything that is queued now happen: what the main queue hands to the processing
    /// queue, and what that posts back.
    static void settle() {
        for (int round = 0; round < 3; ++round) {
            std::atomic<bool> done = false;
            MainQueue::async([&] { ViewController::processQueue().async([&] { done = true; }); });
            EXPECT_TRUE(waitUntil([&] { return done.load(); }));
        }
        bool turned = false;
        MainQueue::async([&] { turned = true; });
        EXPECT_TRUE(waitUntil([&] { return turned; }));
    }
    /// The settings' file right behind the jobs that are queued now: what they wrote without
    /// synchronizing is not in it yet.
    [[nodiscard]] std::string settingsFileAtOnce() const {
        std::optional<std::string> content;
        MainQueue::async([&] { content = contentOf(folder.path("settings.ini")); });
        EXPECT_TRUE(waitUntil([&] { return content.has_value(); }));
        return content.value_or("");
    }
    /// Lets the time pass that it takes to read what the notice shows, page by page.
    void readNotice() const {
        auto* end = window->findChild<QTimer*>("noticeEnd");
        for (QSignalSpy ended(end, &QTimer::timeout); end->isActive(); ended.clear()) {
            end->start(0);
            EXPECT_TRUE(waitUntil([&] { return !ended.empty(); }));
        }
    }
    [[nodiscard]] std::string calls() const { return contentOf(folder.path("calls")); }
    [[nodiscard]] std::string logged(const std::string& method, const std::string& rest) const {
        return formatted("%@", &controller()) + '-' + method + rest;
    }

    inline static bool wasOpened = false;
    TemporaryFolder folder;
    TemporaryFolder bin{TemporaryFolder::withoutBlank};
    ScopedEnvironment searchPath{"PATH", pathWith(bin.path())};
    LogCapture log;
    MainBundle bundle;
    ToolPaths tools;
    SettingsStore settings{QString::fromStdString(folder.path("settings.ini"))};
    NotificationCenter notifications;
    AppDelegate delegate{notifications};
    RunReporter runs{folder.path("runs"), "1.0"};
    std::atomic<int> terminations = 0;
    QObject alive;
    std::vector<std::string> told; ///< to a person who looks elsewhere
    std::unique_ptr<MainWindow> window;
};
