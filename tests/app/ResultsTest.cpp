#include "app/RevealInFinder.h"
#include "app/results/ResultsWindow.h"
#include "app/results/RunActions.h"
#include "app/results/RunReporter.h"
#include "app/toolkit/Queues.h"
#include "base/ProgressChannel.h"
#include "core/Path.h"
#include "core/RunSummary.h"
#include "tests/app/Support.h"
#include "tests/support/ScopedEnvironment.h"
#include "tests/support/TemporaryFolder.h"

#include <QAccessible>
#include <QClipboard>
#include <QDialog>
#include <QGuiApplication>
#include <QMenu>
#include <QScrollBar>
#include <QTest>
#include <QTextBlock>
#include <QTextLayout>

#include <csignal>

#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

struct Results : testing::Test {
    /// Records a run over packages, of which those named in `broken` fail.
    void record(const std::vector<std::string>& packages, const std::string& broken) const {
        RunRecord run(runs, "1.0");
        for (const std::string& package : packages) {
            const std::size_t number = run.packageStarted(package, "/p", std::nullopt);
            run.scriptEnded(number, {"fenwoJustZipApps.sh",
                                     broken.find(package) == broken.npos
                                         ? "packed: /p/Gone.zip\n"
                                         : "error: " + package + " is <b>broken</b>: mend it\n"});
            (void)run.packageEnded(number);
        }
        run.finish();
    }
    std::unique_ptr<ResultsWindow> open() {
        auto window = std::make_unique<ResultsWindow>(
            runs, ResultsWindow::Outside{[this](const std::string& path, const auto& tell) {
                                             revealed.push_back(path);
                                             revealItemInFinder(path, tell);
                                         },
                                         [this](const std::string& file) {
                                             retried = packagesToRetry(*readRun(file));
                                             return retryFails;
                                         }});
        window->showRecord();
        window->show();
        return window;
    }
    template <typename Widget>
    static Widget& part(const ResultsWindow& window, const char* name) {
        return *window.findChild<Widget*>(name);
    }
    static std::string message(const ResultsWindow& window) {
        return part<QPlainTextEdit>(window, "message").toPlainText().toStdString();
    }
    static std::vector<std::string> listed(const ResultsWindow& window) {
        const QAbstractItemModel& model = *part<ResultsList>(window, "results").model();
        std::vector<std::string> names;
        for (int row = 0; row < model.rowCount(); ++row)
            names.push_back(model.index(row, 0).data().toString().toStdString());
        return names;
    }

    TemporaryFolder folder;
    std::string runs = folder.path("runs");
    std::vector<std::string> revealed;
    std::vector<std::string> retried;
    std::string retryFails;
};

/// Takes a copy away, and the folders that were made for it.
void removeCopy(const std::filesystem::path& file) {
    std::filesystem::remove(file);
    std::error_code stillUsed;
    for (const auto& folder : {file.parent_path(), file.parent_path().parent_path()})
        std::filesystem::remove(folder, stillUsed);
}

/// What `write` gives where no file can have any content.
std::string onFullDisks(const std::function<std::string()>& write) {
    rlimit limit{};
    getrlimit(RLIMIT_FSIZE, &limit);
    const rlimit none{0, limit.rlim_max};
    const auto previous = std::signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &none);
    std::string given = write();
    setrlimit(RLIMIT_FSIZE, &limit);
    std::signal(SIGXFSZ, previous);
    return given;
}

/// What a screen reader says of a part and of all that is in it.
void collectNames(QAccessibleInterface* part, QStringList& names) {
    if (part == nullptr || part->state().invisible)
        return;
    const QString name = part->text(QAccessible::Name);
    if (part->state().focusable || part->role() == QAccessible::ListItem)
        names.push_back(name);
    for (int child = 0; child < part->childCount(); ++child)
        collectNames(part->child(child), names);
}

} // namespace

TEST_F(Results, ShowWhatFailedFirstAndWhatToDo) {
    record({"/p/A.app", "/p/B.app", "/p/C.app"}, "/p/B.app");
    const auto window = open();
    EXPECT_THAT(listed(*window), ElementsAre("B.app", "A.app", "C.app"));
    EXPECT_EQ(part<QLabel>(*window, "summary").text(), "3 packages: 2 done, 1 failed.");
    EXPECT_EQ(message(*window), "B.app is <b>broken</b>.\nMend it.");
    auto& list = part<ResultsList>(*window, "results");
    EXPECT_EQ(window->focusWidget(), &list);
    QTest::keyClick(&list, Qt::Key_C, Qt::ControlModifier);
    EXPECT_THAT(QGuiApplication::clipboard()->text().toStdString(), HasSubstr("/p/B.app\n"));
    QTest::keyClick(&list, Qt::Key_Return);
    QTest::keyClick(&list, Qt::Key_Down);
    EXPECT_THAT(message(*window), HasSubstr("/p/Gone.zip"));
    QTest::keyClick(&list, Qt::Key_Return);
    EXPECT_THAT(revealed, ElementsAre("/p/B.app", "/p/A.app"));
    EXPECT_TRUE(waitUntil(
        [&] { return message(*window).starts_with("/p/A.app cannot be shown, since no folder"); }));
    for (const char* failure : {"It could not be started.", ""}) {
        retryFails = failure;
        QTest::mouseClick(&part<QPushButton>(*window, "retry"), Qt::LeftButton);
        EXPECT_THAT(std::exchange(retried, {}), ElementsAre("/p/B.app"));
        EXPECT_EQ(window->isVisible(), !retryFails.empty());
        EXPECT_EQ(message(*window), failure);
    }
}

TEST_F(Results, ShowEarlierRunsAndTheNewestWhenAskedAgain) {
    const auto window = open();
    EXPECT_THAT(part<QLabel>(*window, "summary").text().toStdString(), HasSubstr("No run"));
    EXPECT_FALSE(part<QPushButton>(*window, "retry").isEnabled());
    for (const char* package : {"/p/A.app", "/p/B.app"}) {
        record({package}, "/p/A.app");
        window->showRecord();
        EXPECT_THAT(listed(*window), ElementsAre(std::string(package).substr(3)));
    }
    EXPECT_FALSE(part<QPushButton>(*window, "retry").isEnabled());
    auto& choice = part<QComboBox>(*window, "runs");
    ASSERT_EQ(choice.count(), 2);
    EXPECT_TRUE(waitUntil([&] { return choice.itemText(1).endsWith("0 done, 1 failed."); }));
    EXPECT_TRUE(choice.itemText(0).endsWith("1 done."));
    QTest::keyClick(&choice, Qt::Key_Down);
    EXPECT_THAT(listed(*window), ElementsAre("A.app"));
    EXPECT_TRUE(part<QPushButton>(*window, "retry").isEnabled());

    RunRecord unfinished(runs, "1.0"); // as of who quits while the last archive is read
    const std::size_t number = unfinished.packageStarted("/p/C.app", "/p", std::nullopt);
    unfinished.scriptEnded(number, {"fenwoJustZipApps.sh", "packed: /p/Gone.zip\n"});
    (void)unfinished.scriptsEnded(number);
    unfinished.leave();
    window->showRecord();
    EXPECT_EQ(part<QLabel>(*window, "summary").text(), "1 package: 1 done.");
}

TEST_F(Results, AreOfThisRunEvenIfItCouldNotBeWrittenDown) {
    record({"/p/Of another run.app"}, "");
    const std::string blocked = folder.makeFile("blocked", "in the way") + "/runs";
    RunReporter reporter(blocked, "1.0");
    EXPECT_EQ(reporter.file(), "") << "nothing has run";
    QStringList told;
    QObject::connect(&reporter, &RunReporter::recordFailed,
                     [&told](const QString& sentence) { told.push_back(sentence); });
    reporter.packagesFound({"/p/A.app", "/p/B.app", "/p/C.app"});
    reporter.packageStarted("/p/A.app", "/p", std::nullopt);
    reporter.scriptEnded({"fenwoJustZipApps.sh", "error: A.app is broken: mend it\n"});
    reporter.packageEnded();
    EXPECT_TRUE(reporter.runEnded());
    EXPECT_TRUE(waitUntil([&] { return !reporter.isUntold() && !told.empty(); }));
    EXPECT_THAT(told.join('\n').toStdString(), HasSubstr(blocked + ": Not a directory"));
    EXPECT_EQ(told.size(), 1);

    // Neither the session nor the user has a folder for temporary files, or each has one.
    const auto window = open();
    const auto summary = [&window] {
        return part<QLabel>(*window, "summary").text().toStdString();
    };
    const std::string ofUser = "/kelpmoray-" + std::to_string(getuid()) + "/runs/";
    const std::string session = folder.makeFolder("session");
    const std::string temporary = folder.makeFolder("temporary");
    for (const auto& [runtime, variable, place] :
         {std::tuple{std::optional<std::string>(), std::optional<std::string>(), "/tmp" + ofUser},
          {folder.path("gone"), temporary, temporary + ofUser},
          {session, temporary, session + "/kelpmoray/runs/"}}) {
        const ScopedEnvironment ofSession("XDG_RUNTIME_DIR", runtime);
        const ScopedEnvironment ofTemporary("TMPDIR", variable);
        reporter.model().setPackages(reporter.model().packages()); // as a fact does
        const std::string copy = reporter.file();
        EXPECT_TRUE(copy.starts_with(place)) << copy;
        window->showRecord(copy);
        EXPECT_THAT(listed(*window), ElementsAre("A.app", "B.app", "C.app"));
        EXPECT_EQ(message(*window), reporter.trouble() + "\nA.app is broken.\nMend it.");
        EXPECT_EQ(summary(), "3 packages: 0 done, 1 failed, 2 left. This run could not be written "
                             "down. The run was stopped.");
        EXPECT_EQ(part<QComboBox>(*window, "runs").count(), 2);
        // The next entry is not another run before a package of it begins.
        reporter.packagesFound({"/q/D.app"});
        bool turned = false;
        MainQueue::async([&turned] { turned = true; });
        EXPECT_TRUE(waitUntil([&turned] { return turned; }));
        EXPECT_THAT(reporter.trouble(), HasSubstr(blocked));
        EXPECT_EQ(reporter.file(), copy);
        removeCopy(copy);
    }
    EXPECT_THAT(part<QPlainTextEdit>(*window, "message").verticalScrollBar()->maximum(), 0);

    // Where others may write, nothing is put.
    const std::string shared = folder.makeFolder("temporary/kelpmoray-" + std::to_string(getuid()));
    std::filesystem::permissions(shared, std::filesystem::perms::all);
    const ScopedEnvironment noSession("XDG_RUNTIME_DIR", std::nullopt);
    const ScopedEnvironment open("TMPDIR", temporary);
    reporter.model().setPackages(reporter.model().packages());
    const std::string elsewhere = reporter.file();
    EXPECT_TRUE(elsewhere.starts_with("/tmp" + ofUser)) << elsewhere;
    removeCopy(elsewhere);

    reporter.model().setPackages(reporter.model().packages());
    const std::string nowhere = onFullDisks([&] { return reporter.file(); });
    removeCopy("/tmp" + ofUser + "none");
    window->showRecord(nowhere);
    EXPECT_THAT(summary(), HasSubstr("could be written down neither in " + blocked));
    EXPECT_THAT(listed(*window), IsEmpty());
}

TEST_F(Results, SayWhatHasBecomeOfTheRecord) {
    record({"/p/A.app"}, "/p/A.app");
    const std::string file = recordedRuns(runs).front();
    ResultsWindow window(runs, {&RunActions::reveal, &RunActions::retry});
    const auto summary = [&window] { return part<QLabel>(window, "summary").text().toStdString(); };
    const auto press = [&window] {
        window.show();
        part<QPushButton>(window, "retry").click();
        EXPECT_TRUE(window.isVisible());
        return message(window);
    };
    window.showRecord(runs + "/../runs/" + lastPathComponent(file));
    EXPECT_EQ(part<QComboBox>(window, "runs").count(), 1) << "it is the same";
    const std::string content = contentOf(file);
    folder.makeFile("runs/" + lastPathComponent(file), "{}");
    EXPECT_THAT(press(), HasSubstr("This record cannot be read: " + file));
    std::filesystem::remove(file);
    EXPECT_THAT(press(), HasSubstr("This record is no longer there: " + file + ". Choose another"));
    window.showRecord(file);
    EXPECT_THAT(summary(), HasSubstr("This record is no longer there: " + file));
    folder.makeFile("runs/" + lastPathComponent(file), content);
    window.showRecord(file);
    std::filesystem::remove(file);
    record({"/p/A.app"}, "");
    std::filesystem::rename(recordedRuns(runs).front(), file);
    EXPECT_THAT(press(), HasSubstr("Nothing failed and nothing was left in the run recorded in " +
                                   file + ". To process"));
    const std::string spoilt = folder.makeFile("runs/2999.json", "{}");
    window.showRecord();
    EXPECT_THAT(summary(), HasSubstr("This record cannot be read: " + spoilt));
}

TEST_F(Results, OfferOnlyWhatThereIsAndByKeyboardToo) {
    RunRecord run(runs, "1.0");
    run.packagesFound({"/p/A.app", "/p/B.app", "/p/A.app"}, "/p");
    for (const char* entry : {"/p", "/p/A.app"}) { // handed over twice, and fails each time
        const std::size_t number = run.packageStarted("/p/A.app", entry, std::nullopt);
        run.scriptEnded(number, {"fenwoJustZipApps.sh", "error: A.app is broken: mend it\n"});
        (void)run.packageEnded(number);
    }
    const auto window = open();
    EXPECT_EQ(part<QLabel>(*window, "summary").text(),
              "3 packages: 0 done, 2 failed, 1 to come. The run is still under way.");
    EXPECT_EQ(part<QPushButton>(*window, "retry").text(), "Retry &Failed");
    run.finish();
    window->showRecord();
    EXPECT_EQ(part<QPushButton>(*window, "retry").text(), "Process Re&st");

    auto& list = part<ResultsList>(*window, "results");
    const auto& output = part<QPushButton>(*window, "output");
    for (const bool hasOutput : {true, false}) {
        list.setCurrentIndex(list.model()->index(hasOutput ? 0 : 2, 0));
        EXPECT_EQ(output.isEnabled(), hasOutput);
        QStringList offered;
        QTimer::singleShot(0, [&offered] {
            auto* menu = qobject_cast<QMenu*>(QApplication::activePopupWidget());
            for (const QAction* action : menu != nullptr ? menu->actions() : QList<QAction*>())
                offered += action->isEnabled() ? action->text() : QString();
            if (menu != nullptr)
                menu->close();
        });
        QTest::keyClick(&list, Qt::Key_F10, Qt::ShiftModifier);
        EXPECT_EQ(offered.join('|').toStdString(),
                  hasOutput ? "&Reveal|&Copy Message|Show Full &Output" : "&Reveal|&Copy Message|");
        list.showOutputOfCurrent();
        EXPECT_EQ(window->findChildren<QDialog*>().size(), 1) << "of the first package";
    }
    auto& text = part<QPlainTextEdit>(*window, "message");
    const auto outline = [&text] { return text.grab().toImage().pixel(0, text.height() / 2); };
    const QRgb before = outline();
    window->activateWindow();
    QTest::keyClick(&list, Qt::Key_Tab);
    ASSERT_TRUE(waitUntil([&text] { return text.hasFocus(); }));
    EXPECT_NE(outline(), before) << "where the focus is can be seen";
    for (const int lines : {4, 5}) { // there is room for four
        text.setPlainText(QString("line\n").repeated(lines).trimmed());
        EXPECT_EQ(text.verticalScrollBar()->maximum(), lines - 4);
    }
}

TEST_F(Results, AreReadOutWithoutMarkup) {
    record({"/p/A & <i>.app"}, "/p/A & <i>.app");
    const auto window = open();
    QStringList names;
    QAccessibleInterface* top = QAccessible::queryAccessibleInterface(window.get());
    EXPECT_EQ(top->role(), QAccessible::Window);
    collectNames(top, names);
    EXPECT_TRUE(names.contains("A & <i>.app: Not packed. A & <i>.app is <b>broken</b>. Mend it."))
        << names.join('\n').toStdString();
    for (const char* button : {"Reveal", "Copy", "Show Full Output", "Retry Failed"})
        EXPECT_TRUE(names.contains(button)) << button << '\n' << names.join('\n').toStdString();
    EXPECT_FALSE(names.contains("")) << names.join('\n').toStdString();
}

TEST_F(Results, ShowNamesAndLongWordsAsTheyAre) {
    const std::string turned = "/p/gpj\u202e\u2066\r.app";
    const std::string lengthy = "/p/" + std::string(200, 'x') + ".app";
    record({turned, lengthy}, turned + lengthy);
    const auto window = open();
    EXPECT_THAT(listed(*window).front(), "gpj???.app");
    EXPECT_EQ(message(*window), "gpj???.app is <b>broken</b>.\nMend it.");
    window->resize(window->minimumSize());
    auto& list = part<ResultsList>(*window, "results");
    const QString tip = list.model()->index(0, 0).data(Qt::ToolTipRole).toString();
    EXPECT_FALSE(tip.contains(QChar(0x202e)) || tip.contains('\r'));
    list.showOutputOfCurrent();
    const auto* output = part<QDialog>(*window, "fullOutput").findChild<QPlainTextEdit*>();
    EXPECT_TRUE(output->toPlainText().startsWith("fenwoJustZipApps.sh:\nerror: /p/gpj???.app"));
    QTest::keyClick(&list, Qt::Key_Down);
    auto& text = part<QPlainTextEdit>(*window, "message");
    EXPECT_TRUE(text.toPlainText().startsWith(QString(200, 'x') + ".app is "));
    const QTextLayout* lines = text.document()->firstBlock().layout();
    EXPECT_GT(lines->lineCount(), 1);
    EXPECT_LE(lines->boundingRect().width(), text.viewport()->width());
    EXPECT_EQ(window->size(), window->minimumSize());
}

TEST_F(Results, GrowLiveWithTheProgressOfTheSteps) {
    const ScopedEnvironment runtime("XDG_RUNTIME_DIR", folder.path());
    RunReporter reporter(runs, "1.0");
    const std::string pipe = getenv(base::ProgressChannel::variable);
    const auto tell = [&](const char* line) { std::ofstream(pipe) << line << std::flush; };
    const auto shows = [&](const char* beginning) {
        return waitUntil([&] { return reporter.progressText().startsWith(beginning); });
    };
    reporter.packagesFound({"/p/Notes.app", "/p/Other.app"});
    reporter.packageStarted("/p/Notes.app", "/p", "Jo (X1)");
    reporter.scriptStarted("fenwoCodesignApps.sh");
    EXPECT_TRUE(shows("1 of 2 · Signing Notes.app · 0:0"));
    tell("7%\n43%\n");
    EXPECT_TRUE(shows("1 of 2 · Signing Notes.app · 43 % · 0:0"));
    EXPECT_DOUBLE_EQ(reporter.share(), 0.43 / 2 / 2);
    reporter.scriptEnded({"fenwoCodesignApps.sh", "signed: /p/Notes.app\n"});
    reporter.scriptStarted("fenwoJustZipApps.sh");
    tell("100%\n"); // comes late, of the step before
    EXPECT_TRUE(shows("1 of 2 · Packing Notes.app · 0:0"));
    EXPECT_DOUBLE_EQ(reporter.share(), 0.25);
    for (const char* line : {"50%\n", "nonsense\n", "7 apples%\n", "300%\n"})
        tell(line);
    tell("51%\n");
    EXPECT_TRUE(shows("1 of 2 · Packing Notes.app · 51 %"));
    EXPECT_EQ(reporter.model().index(0, RunModel::State).data(), "Working");
    reporter.scriptEnded({"fenwoJustZipApps.sh", "packed: /p/Notes.zip\n"});
    reporter.packageEnded();
    EXPECT_TRUE(waitUntil([&] { return reporter.share() == 0.5; }));
    EXPECT_TRUE(waitUntil([&] { return reporter.progressText().isEmpty(); }));
    EXPECT_EQ(reporter.model().index(0, RunModel::State).data(), "Done");
    EXPECT_TRUE(reporter.runEnded());
    EXPECT_FALSE(reporter.runEnded()) << "nothing was processed since";
    EXPECT_TRUE(readRun(recordedRuns(runs).at(0))->finished);

    const auto window = open();
    EXPECT_EQ(part<QLabel>(*window, "summary").text(),
              "2 packages: 1 done, 1 left. The run was stopped.");
    EXPECT_THAT(listed(*window), ElementsAre("Notes.app", "Other.app"));
    EXPECT_EQ(part<QPushButton>(*window, "retry").text(), "Process Re&st");
    part<QPushButton>(*window, "retry").click();
    EXPECT_THAT(retried, ElementsAre("/p/Other.app"));
}
