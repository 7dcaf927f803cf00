#include "app/Application.h"
#include "app/results/ResultsWindow.h"
#include "app/toolkit/ClearOutlines.h"
#include "app/toolkit/FileUris.h"
#include "app/toolkit/NamedImage.h"
#include "app/toolkit/Queues.h"
#include "app/toolkit/WindowLevel.h"
#include "base/Printable.h"
#include "base/ProgramStart.h"
#include "base/Version.h"
#include "core/Path.h"
#include "core/RunSummary.h"

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
       kelpmoray --retry FILE

Opens the window and the PATHs in it: application packages (Name.app) and folders that hold some, or
their file URLs. If Kelpmoray runs already, the running program opens them.

  --last-run [FILE]    show what became of the packages of the last run, or of the one whose record
                       is FILE, and of earlier ones
  --retry FILE         open the packages that failed or were left in the run whose record is FILE
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

constexpr std::string_view lastRun = "--last-run";
constexpr std::string_view retry = "--retry";

/// The option that asks for the record of a run; empty if there is none.
std::string_view recordOption(int argc, char** argv) {
    for (const std::string_view argument : std::span(argv, std::size_t(argc)).subspan(1)) {
        if (argument == "--")
            break;
        if (argument == lastRun || argument == retry)
            return argument;
    }
    return "";
}

/// The packages of a recorded run that are to be processed again; says so if there are none.
LocationList locationsToRetry(const std::string& file) {
    LocationList locations;
    if (const auto run = readRun(file)) {
        for (const std::string& package : packagesToRetry(*run))
            locations.emplace_back(FileUrl::fileURLWithPath(package));
    }
    if (locations.empty())
        std::fprintf(stderr, "kelpmoray: %s is no record of a run with packages to retry.\n",
                     base::printable(file).c_str());
    return locations;
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
        RunRecord::userFolder(), ResultsWindow::Outside{&RunActions::reveal, &RunActions::retry});
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
                 "%s\nkelpmoray: No display can be reached. kelpmoray-batch does the same on a "
                 "terminal.\n",
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
    const std::string_view option = recordOption(argc, argv);
    const std::string file = argc > 2 ? standardizedPath(absolutePath(argv[2])) : "";
    if (!option.empty() && (argv[1] != option || argc > 3 || (option == retry && argc < 3))) {
        std::fprintf(stderr,
                     "kelpmoray: %s stands first and takes one FILE, no PATHs. See --help.\n",
                     option.data());
        return 2;
    }
    if (option == lastRun)
        return showRun(file, tokens);
    const LocationList locations =
        option == retry ? locationsToRetry(file) : locationsIn(argc, argv);
    if (option == retry && locations.empty())
        return 2;
    Application application;
    if (application.handOver(locations, tokens))
        return 0;
    application.start(locations);
    return endJobs(QApplication::exec());
}
