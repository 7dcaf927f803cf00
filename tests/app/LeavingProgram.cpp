#include "app/VornNSViewAdditions.h"
#include "app/toolkit/Queues.h"
#include "core/ShellRunners.h"

#include <QApplication>

#include <cstdlib>
#include <string>

/// Leaves its event loop with status 7: "script" while a serial job waits for a script and another
/// job waits its turn, "reveal COMMAND" right after handing a command to the global queue,
/// "effects" while two effects never complete, "idle" with nothing to do.
int main(int argc, char** argv) {
    const QApplication application(argc, argv);
    SerialQueue queue("processing");
    QWidget window;
    const std::string work = argc > 1 ? argv[1] : "idle";
    const auto quit = [] { QApplication::exit(7); };
    if (work == "script") {
        queue.async([&] {
            MainQueue::async(quit);
            static_cast<void>(runShellCommand("exec sleep 30"));
        });
        queue.async([] { std::abort(); });
    } else if (work == "reveal") {
        MainQueue::async([&] {
            GlobalQueue::async(
                [command = std::string(argv[2])] { static_cast<void>(runShellCommand(command)); });
            quit();
        });
    } else if (work == "effects") {
        VornNSViewAdditions::fadeInOut(&window, 2);
        VornNSViewAdditions::rotateImage(&window, 2);
        VornNSViewAdditions::nodLeftRightWithCompletionHandler(&window, quit);
    } else {
        queue.async([&] { MainQueue::async(quit); });
    }
    return endJobs(QApplication::exec());
}
