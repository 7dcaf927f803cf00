#include "app/results/RunActions.h"

#include "app/RevealInFinder.h"
#include "app/toolkit/Queues.h"
#include "app/toolkit/SessionBus.h"
#include "core/Path.h"
#include "core/RunSummary.h"

#include <QDBusConnectionInterface>
#include <QGuiApplication>
#include <QProcess>

#include <algorithm>

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
        reveal(target.toStdString());
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
        body +=
            QString::fromStdString(lastPathComponent(package.path) + ": " + failure->error) + '\n';
    }
    if (failed > named)
        body += tr("and %1 more").arg(failed - named) + '\n';
    body += QString::fromStdString(run.trouble);
    const QString title = run.packages.size() == 1
                              ? tr("The package failed")
                              : tr("%1 of %2 packages failed").arg(failed).arg(run.packages.size());
    notifyUser(QString::fromStdString(identifier), title, body.trimmed(),
               {{showResults, tr("Show Results"), QString::fromStdString(run.file)},
                {showFolder, tr("Show Folder"), folder}});
}

void RunActions::showRun(const std::string& file) {
    QStringList arguments{"--last-run"};
    if (!file.empty())
        arguments.push_back(QString::fromStdString(file));
    QProcess::startDetached(QCoreApplication::applicationFilePath(), arguments);
}

void RunActions::startWith(const std::vector<std::string>& packages) {
    QStringList arguments{"--"};
    for (const std::string& package : packages)
        arguments.push_back(QString::fromStdString(package));
    QProcess::startDetached(QCoreApplication::applicationFilePath(), arguments);
}

void RunActions::reveal(const std::string& path) {
    GlobalQueue::async([path] {
        revealItemInFinder(path, [](const std::string& failure) {
            notifyUser(QGuiApplication::desktopFileName(), tr("The folder cannot be shown"),
                       QString::fromStdString(failure));
        });
    });
}
