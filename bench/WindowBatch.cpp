// What the window adds to its scripts over a thousand packages: time, against the same scripts in a
// shell loop, and memory.

#include "app/AppDelegate.h"
#include "app/ConfirmationSheet.h"
#include "app/MainWindow.h"
#include "app/toolkit/NotificationCenter.h"
#include "app/toolkit/Queues.h"
#include "app/toolkit/SettingsStore.h"
#include "core/Log.h"
#include "core/Path.h"

#include <QApplication>
#include <QPushButton>
#include <QTimer>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>

#include <stdlib.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
constexpr int packages = 1'000;

double secondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void makePackages(const fs::path& folder) {
    for (int i = 0; i < packages; ++i) {
        const fs::path contents = folder / ("Package " + std::to_string(i) + ".app") / "Contents";
        fs::create_directories(contents);
        std::ofstream(contents / "file") << "content " << i;
    }
}

double runInShell(const MainBundle& bundle, const fs::path& folder) {
    const std::string command = "for p in '" + folder.string() + "'/*.app; do '" +
                                bundle.resourcesFolder + "/fenwoCodesignApps.sh' \"$p\"; '" +
                                bundle.resourcesFolder +
                                "/fenwoJustZipApps.sh' \"$p\"; done >/dev/null";
    const auto start = std::chrono::steady_clock::now();
    if (std::system(command.c_str()) != 0)
        std::exit(1);
    return secondsSince(start);
}

/// Resident memory in megabytes; 0 where the system does not tell.
double memory() {
    long size = 0;
    long resident = 0;
    std::ifstream("/proc/self/statm") >> size >> resident;
    return static_cast<double>(resident * sysconf(_SC_PAGESIZE)) / 1e6;
}

} // namespace

int main(int argc, char** argv) {
    QApplication toolkit(argc, argv);
    QApplication::setDoubleClickInterval(0); // a sheet would not be answered before it is over
    std::string name = fs::temp_directory_path() / "kelpmoray-bench-XXXXXX";
    const fs::path root = mkdtemp(name.data());
    makePackages(root / "window");
    makePackages(root / "shell");
    const MainBundle bundle =
        MainBundle::ofExecutable(deletingLastPathComponent(deletingLastPathComponent(
                                     QApplication::applicationFilePath().toStdString())) +
                                 "/bin/kelpmoray");
    Log::setStandardErrorEnabled(false);
    const double inShell = runInShell(bundle, root / "shell");

    NotificationCenter notifications;
    AppDelegate delegate(notifications);
    RunReporter runs(root / "runs", "1.0");
    SettingsStore settings(QString::fromStdString(root / "settings.ini"));
    const auto start = std::chrono::steady_clock::now();
    double inWindow = 0;
    MainWindow window({.bundle = bundle,
                       .settings = settings,
                       .notifications = notifications,
                       .tools = {},
                       .terminate =
                           [&] {
                               inWindow = secondsSince(start);
                               QApplication::quit();
                           },
                       .notifyUser = [](const QString&, const QString&) {},
                       .runs = runs,
                       .tellFailure = [] {}},
                      delegate);
    int processed = 0;
    double atHundred = 0;
    QObject::connect(&window.controller(), &ViewController::propertyChanged, &window, [&] {
        static std::optional<std::string> shown;
        if (window.controller().fProgressString1() == shown)
            return;
        shown = window.controller().fProgressString1();
        if (++processed == 101)
            atHundred = memory();
    });
    QTimer press;
    QObject::connect(&press, &QTimer::timeout, &window, [&] {
        if (auto* sheet = window.findChild<ConfirmationSheet*>())
            sheet->findChild<QPushButton*>("Process")->click();
    });
    press.start(1);
    window.load();
    window.show();
    delegate.applicationOpenURLs({FileUrl::fileURLWithPath((root / "window").string())});
    QApplication::exec();

    const double extra = (inWindow - inShell) / packages * 1e3;
    std::printf("shell loop %.2f s, window %.2f s: %.2f ms more a package, ratio %.2f\n", inShell,
                inWindow, extra, inWindow / inShell);
    std::printf("memory at package 100: %.1f MB, at %d: %.1f MB\n", atHundred, packages, memory());
    fs::remove_all(root);
    return endJobs(0);
}
