#include "app/Application.h"
#include "app/platform/ProcessEnd.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QDir>
#include <QUrl>

namespace {

/// The locations on the command line: paths, and URLs as desktop entries give them.
LocationList locationsOnCommandLine(const QApplication& toolkit) {
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QObject::tr("Signs application packages and packs each into a zip."));
    parser.addHelpOption();
    parser.addVersionOption();
    parser.addPositionalArgument("PATH", QObject::tr("Packages, and folders that hold packages."),
                                 "[PATH...]");
    parser.process(toolkit);
    LocationList locations;
    for (const QString& argument : parser.positionalArguments()) {
        const QUrl url = QUrl::fromUserInput(argument, QDir::currentPath());
        const QString path = url.isLocalFile() ? url.toLocalFile() : argument;
        locations.emplace_back(FileUrl::fileURLWithPath(path.toStdString()));
    }
    return locations;
}

} // namespace

int main(int argc, char** argv) {
    QApplication toolkit(argc, argv);
    QApplication::setApplicationName("kelpmoray");
    QApplication::setApplicationDisplayName("Kelpmoray");
    QApplication::setApplicationVersion(KELPMORAY_VERSION);
    const LocationList locations = locationsOnCommandLine(toolkit);
    Application application;
    if (application.handOver(locations))
        return 0;
    application.start(locations);
    return endJobs(QApplication::exec());
}
