// From start to the first painted window: ours against a bare one, in turn.

#include "app/Application.h"
#include "app/platform/Preload.h"
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

/// Ends the process when a main window has been painted.
class FirstPaint : public QObject {
public:
    bool eventFilter(QObject* object, QEvent* event) override {
        if (event->type() == QEvent::UpdateRequest &&
            qobject_cast<QMainWindow*>(object) != nullptr) {
            object->removeEventFilter(this);
            object->event(event);
            std::_Exit(0);
        }
        return false;
    }
};

int showWindow(QApplication& toolkit, bool bare) {
    Log::setStandardErrorEnabled(false);
    FirstPaint firstPaint;
    toolkit.installEventFilter(&firstPaint);
    if (bare) {
        QMainWindow window;
        window.resize(520, 400);
        window.show();
        return QApplication::exec();
    }
    Preload::fontsAndStyle();
    Application application;
    if (application.handOver({}))
        return 1;
    application.start({});
    return QApplication::exec();
}

/// Milliseconds that this program takes to show the window that `argument` names.
double timed(const char* argument) {
    const auto start = std::chrono::steady_clock::now();
    if (QProcess::execute(QCoreApplication::applicationFilePath(), {argument}) != 0)
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
    const bool oursIsTimed = argc > 1 && argv[1] == std::string("ours");
    if (oursIsTimed)
        Preload::fontConfiguration();
    QApplication toolkit(argc, argv);
    if (argc > 1)
        return showWindow(toolkit, !oursIsTimed);
    std::vector<double> bare;
    std::vector<double> ours;
    std::vector<double> ratios;
    timed("bare");
    timed("ours");
    for (int i = 0; i < rounds; ++i) {
        bare.push_back(timed("bare"));
        ours.push_back(timed("ours"));
        ratios.push_back(ours.back() / bare.back());
    }
    std::printf("bare window %.1f ms, ours %.1f ms, ratio %.2f (medians of %d)\n", median(bare),
                median(ours), median(ratios), rounds);
}
