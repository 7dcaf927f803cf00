#include "app/Application.h"
#include "app/results/ResultsWindow.h"
#include "app/toolkit/ClearOutlines.h"
#include "app/toolkit/FileUris.h"
#include "app/toolkit/NamedImage.h"
#include "app/toolkit/Queues.h"
#include "app/toolkit/WindowLevel.h"
#include "base/ProgramStart.h"
#include "base/Version.h"
#include "core/Path.h"

#include <QApplication>

#include <cstdio>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include <stdlib.h>

namespace {

constexpr const char* help = R"(usage: kelpmoray [PATH...]
       kelpmoray --last-run [FILE]

Opens the window and the PATHs in it: application packages (Name.app) and folders that hold some, or
their file URLs. If Kelpmoray runs already, the running program opens them.

  --last-run [FILE]    show what became of the packages of the last run, or of the one whose record
                       is FILE, and of earlier ones
  --help, --version    print this, or the version, and end
)";

/// The exit status if the arguments ask for a text only; -1 otherwise. Needs no display.
int answerInText(int argc, char** argv) {
    for (const std::string_view argument : std::span(argv, std::size_t(argc)).subspan(1)) {
        if (argument == "--help" || argument == "--version") {
            const std::string version = std::string("kelpmoray ") + base::version();
            std::puts(argument == "--help" ? help : version.c_str());
            return 0;
        }
        if (argument == "--")
            break;
    }
    return -1;
}

/// Paths, and URLs as desktop entries give them. They are bytes, whatever the locale.
LocationList locationsIn(int argc, char** argv) {
    LocationList locations;
    for (const std::string argument : std::span(argv, std::size_t(argc)).subspan(1)) {
        if (argument == "--")
            continue;
        const auto path = argument.starts_with("file:")
                              ? pathOfUri(QUrl(QString::fromStdString(argument)))
                              : standardizedPath(absolutePath(argument));
        locations.emplace_back(FileUrl::fileURLWithPath(path.value_or(argument)));
    }
    return locations;
}

bool isLastRunAsked(int argc, char** argv) {
    for (const std::string_view argument : std::span(argv, std::size_t(argc)).subspan(1)) {
        if (argument == "--" || argument == "--last-run")
            return argument == "--last-run";
    }
    return false;
}

/// Runs the window of results, a program of its own; it and the main program may end in any order.
/// Only one runs: another start brings it to the front, where it shows what that start asked for.
/// `file` is as for showRecord().
int showRun(const std::string& file, const ActivationTokens& tokens) {
    const std::string application = MainBundle::ofThisProcess().identifier;
    std::unique_ptr<ResultsWindow> window;
    const auto show = [&window](const std::string& record) {
        if (!window)
            return;
        window->showRecord(record);
        setWindowLevel(window.get(), statusWindowLevel); // or the main window covers it
        window->show();
        activateIgnoringOtherApps(window.get());
    };
    OpenRequests requests(
        application + ".results",
        [show](const LocationList& records) {
            show(records.empty() ? "" : pathOf(records.front()).value_or(""));
        },
        [show] { show(""); }, [show](const QString&, const QString&) { show(""); });
    LocationList records;
    if (!file.empty())
        records.emplace_back(FileUrl::fileURLWithPath(file));
    if (requests.handOver(records, tokens))
        return 0;
    QApplication::setDesktopFileName(QString::fromStdString(application));
    const RunActions actions(show, application);
    window = std::make_unique<ResultsWindow>(
        RunRecord::userFolder(),
        ResultsWindow::Outside{&RunActions::reveal, &RunActions::startWith});
    window->setWindowIcon(applicationIcon());
    show(file);
    QObject::connect(qApp, &QApplication::aboutToQuit, &requests,
                     [&requests] { requests.release(); });
    return endJobs(QApplication::exec());
}

/// The toolkit would advise to install the program again, and abort.
void sayThatThereIsNoDisplay(QtMsgType type, const QMessageLogContext& context,
                             const QString& message) {
    if (type != QtFatalMsg) {
        std::fprintf(stderr, "%s\n", qPrintable(qFormatLogMessage(type, context, message)));
        return;
    }
    std::fprintf(stderr,
                 "%s\nkelpmoray: no display can be reached; kelpmoray-batch does the same on a "
                 "terminal\n",
                 qPrintable(message.section(". ", 0, 0)));
    _Exit(1);
}

} // namespace

int main(int argc, char** argv) {
    base::startProgram();
    if (const int status = answerInText(argc, argv); status >= 0)
        return status;
    // Without HOME the toolkit would keep the settings in the root folder.
    setenv("HOME", homeFolder().c_str(), 1);
    qInstallMessageHandler(sayThatThereIsNoDisplay);
    const ActivationTokens tokens;          // the toolkit takes them out of the environment
    const QApplication toolkit(argc, argv); // takes its own options out of the arguments
    qInstallMessageHandler(nullptr);
    QApplication::setApplicationName("kelpmoray");
    useClearOutlines();
    const LocationList locations = locationsIn(argc, argv);
    if (isLastRunAsked(argc, argv)) {
        if (argc <= 3 && argv[1] == std::string_view("--last-run"))
            return showRun(argc == 3 ? standardizedPath(absolutePath(argv[2])) : "", tokens);
        std::fputs(
            "kelpmoray: --last-run takes no PATHs, and at most one FILE behind it. Leave out "
            "the rest.\n",
            stderr);
        return 2;
    }
    Application application;
    if (application.handOver(locations, tokens))
        return 0;
    application.start(locations);
    return endJobs(QApplication::exec());
}
