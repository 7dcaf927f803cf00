// From start to the first painted window: ours against a bare one, in turn. Ours is empty at first;
// how long it takes until it has been painted with what is in it is told beside.

#include "app/Application.h"
#include "app/toolkit/Queues.h"
#include "core/Log.h"

#include <QApplication>
#include <QEvent>
#include <QMainWindow>
#include <QProcess>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace {

constexpr int rounds = 21;
constexpr const char* bare = "bare";
constexpr const char* ours = "ours";
constexpr const char* oursFilled = "ours-filled";

/// Ends the process when a main window has been painted, or when the turn after that is over, in
/// which ours gets what is in it.
class FirstPaint : public QObject {
public:
    explicit FirstPaint(bool filled) : filled_(filled) {}
    bool eventFilter(QObject* object, QEvent* event) override {
        if (qobject_cast<QMainWindow*>(object) == nullptr)
            return false;
        if (event->type() == QEvent::Polish)
            object->installEventFilter(this); // the application's filters see no painting
        if (event->type() != QEvent::Paint)
            return false;
        object->removeEventFilter(this);
        object->event(event);
        if (!filled_)
            std::_Exit(0);
        MainQueue::async([] { std::_Exit(0); });
        return true;
    }

private:
    bool filled_;
};

int showWindow(QApplication& toolkit, const std::string& which) {
    Log::setStandardErrorEnabled(false);
    FirstPaint firstPaint(which == oursFilled);
    toolkit.installEventFilter(&firstPaint);
    if (which == bare) {
        QMainWindow window;
        window.resize(520, 400);
        window.show();
        return QApplication::exec();
    }
    Application application;
    if (application.handOver(LocationList{}))
        return 1;
    application.start({});
    return QApplication::exec();
}

/// Milliseconds that this program takes to show the window that `which` names.
double timed(const char* which) {
    const auto start = std::chrono::steady_clock::now();
    if (QProcess::execute(QCoreApplication::applicationFilePath(), {which}) != 0)
        std::exit(1);
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
        .count();
}

double median(std::vector<double> values) {
    std::ranges::sort(values);
    return values[values.size() / 2];
}

} // namespace

int main(int argc, char** argv) {
    QApplication toolkit(argc, argv);
    if (argc > 1)
        return showWindow(toolkit, argv[1]);
    std::vector<double> milliseconds[3];
    std::vector<double> ratios[3];
    for (int round = -1; round < rounds; ++round) {
        const double times[] = {timed(bare), timed(ours), timed(oursFilled)};
        if (round < 0)
            continue; // the disk's cache is cold
        for (int i = 0; i < 3; ++i) {
            milliseconds[i].push_back(times[i]);
            ratios[i].push_back(times[i] / times[0]);
        }
    }
    std::printf("bare window %.1f ms; ours %.1f ms, ratio %.2f; with what is in it %.1f ms, "
                "ratio %.2f (medians of %d)\n",
                median(milliseconds[0]), median(milliseconds[1]), median(ratios[1]),
                median(milliseconds[2]), median(ratios[2]), rounds);
}
