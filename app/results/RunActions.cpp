#include "app/results/RunActions.h"

#include "app/RevealInFinder.h"
#include "app/toolkit/Queues.h"
#include "app/toolkit/SessionBus.h"
#include "app/toolkit/ShownText.h"
#include "core/Format.h"
#include "core/Path.h"
#include "core/RunSummary.h"

#include <QDBusConnectionInterface>
#include <QGuiApplication>
#include <QProcess>

#include <algorithm>

namespace {

/// Why the program cannot be started anew with these arguments; empty if it was.
std::string start(const QStringList& arguments) {
    QProcess program;
    program.setProgram(QCoreApplication::applicationFilePath());
    program.setArguments(arguments);
    if (program.startDetached())
        return "";
    return formatted("Kelpmoray could not be started: %@. Check whether %@ is still there.",
                     program.errorString().toStdString(), program.program().toStdString());
}

} // namespace

RunActions::RunActions(std::function<void(const std::string&)> showRun, std::string precedence)
    : showRun_(std::move(showRun)), precedence_(QString::fromStdString(precedence)) {
    if (auto bus = sessionBus())
        bus->connect({}, "/org/freedesktop/Notifications", "org.freedesktop.Notifications",
                     "ActionInvoked", this, SLOT(invoked(uint, QString)));
}

void RunActions::invoked(uint, const QString& key) {
    const auto bus = sessionBus();
    if (!precedence_.isEmpty() && bus && bus->interface()->isServiceRegistered(precedence_))
        return;
    // The signal comes for notifications of all programs; ours have the target in the key.
    act(key.section(' ', 0, 0), key.section(' ', 1));
}

bool RunActions::act(const QString& action, const QString& target) {
    if (action == showResults)
        showRun_(target.toStdString());
    else if (action == showFolder)
        reveal(target.toStdString(), [](const std::string& failure) {
            // At once: the bus may have started us for this alone.
            notifyUser(QGuiApplication::desktopFileName(), tr("The folder cannot be shown"),
                       QString::fromStdString(failure));
        });
    else
        return false;
    return true;
}

void RunActions::tellFailure(const std::string& identifier, const EndedRun& run) {
    constexpr std::ptrdiff_t named = 3;
    std::ptrdiff_t failed = 0;
    QString body;
    QString folder;
    for (const PackageRecord& package : run.packages) {
        const auto failure = failureOf(package);
        if (!failure || ++failed > named)
            continue;
        if (folder.isEmpty())
            folder = QString::fromStdString(package.path);
        body += shownLine(lastPathComponent(package.path) + ": " + failure->error) + '\n';
    }
    if (failed > named)
        body += tr("and %1 more").arg(failed - named) + '\n';
    body += shownLine(run.trouble);
    const QString title = run.packages.size() == 1
                              ? tr("The package failed")
                              : tr("%1 of %2 packages failed").arg(failed).arg(run.packages.size());
    notifyUser(QString::fromStdString(identifier), title, body.trimmed(),
               {{showResults, tr("Show Results"), QString::fromStdString(run.file)},
                {showFolder, tr("Show Folder"), folder}});
}

std::string RunActions::showRun(const std::string& file) {
    QStringList arguments{"--last-run"};
    if (!file.empty())
        arguments.push_back(QString::fromStdString(file));
    return start(arguments);
}

std::string RunActions::retry(const std::string& file) {
    // Not the packages: there may be more than a command line has room for.
    return start({"--retry", QString::fromStdString(file)});
}

void RunActions::reveal(const std::string& path, std::function<void(const std::string&)> tell) {
    GlobalQueue::async([path, tell = std::move(tell)] { revealItemInFinder(path, tell); });
}
