#include "app/ViewController.h"

#include "app/Names.h"
#include "app/RevealInFinder.h"
#include "app/VornNSStringAdditions.h"
#include "app/VornNSViewAdditions.h"
#include "app/toolkit/ArrayController.h"
#include "app/toolkit/QtDescription.h"
#include "app/toolkit/Queues.h"
#include "app/toolkit/SettingsStore.h"
#include "app/toolkit/WindowLevel.h"
#include "core/Log.h"
#include "core/Path.h"

#include <QPushButton>

#include <mutex>

ViewController::ViewController(Surroundings surroundings)
    : surroundings_(std::move(surroundings)) {}

Caller ViewController::receiver() const {
    return {"ViewController", formatted("%@", this)};
}

QWidget* ViewController::window() const {
    return view() ? view()->window() : nullptr;
}

void ViewController::awakeFromNib() {
    static std::once_flag once;
    std::call_once(once, [this] {
        QRect frame(0, 0, 0, 0);
        if (ibDragDropView()) {
            // Both rectangles count from the content area's corner.
            ibDragDropView()->setGeometry(view() ? view()->rect() : frame);
            frame = ibDragDropView()->geometry();
        }
        receiver().in("awakeFromNib").step("...self.ibDragDropView.frame = %@", frame);
        MainQueue::async(this, [this] {
            setFNumberOfFoldersToProcess(0);
            setWindowLevel(window(), statusWindowLevel);
            (void)VornNSStringAdditions::getAppVersionString(surroundings_.bundle,
                                                             surroundings_.settings);
            surroundings_.settings.setBool(Names::target, false);
            surroundings_.settings.synchronize();
        });
        MainQueue::after(std::chrono::milliseconds(100), this, [this] { setupSpin(); });
    });
}

void ViewController::viewDidLoad() {
    setFButton1Busy(false);
    setFSearchPath("~/Desktop/testzip");
    setFSearchPath(standardizedPath(*fSearchPath()));
    setFSearchPath(std::nullopt);
    setFSetOfFolders(std::make_shared<WorkSet>());
    const auto observe = [&](const char* name,
                             void (ViewController::*handler)(const Notification&)) {
        surroundings_.notifications.addObserver(name, [self = QPointer<ViewController>(this),
                                                       handler](const Notification& notification) {
            if (self)
                (self->*handler)(notification);
        });
    };
    observe(Names::newSearchPath, &ViewController::handleNewSearchPath);
    getCodesigningIdentities();
    setupCodesigningPopupStuff();
    observe(Names::windowDidResize, &ViewController::boundsDidChangeNotification);
}

void ViewController::setupSpin() {
    logEvent("Inside %@ => %@...TESTING....", receiver().className, "setupSpin");
    MainQueue::async(this, [this] {
        if (!view())
            return;
        QWidget* spinner = VornNSViewAdditions::findViewWithIdentifier(
            view(), "progressview", QPushButton::staticMetaObject);
        if (spinner == nullptr)
            return;
        VornNSViewAdditions::clearAnimationKeys(spinner);
        VornNSViewAdditions::rotateViewWithCompletionBlock(spinner, [] {});
    });
}

void ViewController::ibTestSpin(QObject*) {
    logEvent("Inside %@ => %@...TESTING....", receiver().className, "ibTestSpin:");
    setupSpin();
}

void ViewController::boundsDidChangeNotification(const Notification&) {
    logEvent("Inside %@-%@...", receiver(), "boundsDidChangeNotification:");
    setupSpin();
}

void ViewController::observeValueForKeyPath(const std::string& keyPath, const QObject*,
                                            const std::string& change, const std::string& context) {
    static constexpr const char* methodName = "observeValueForKeyPath:ofObject:change:context:";
    logEvent("Inside %@-%@...", receiver(), methodName);
    receiver().in(methodName).step(" = keypath = %@", keyPath);
    receiver().in(methodName).step(" = change = %@", change);
    receiver().in(methodName).step(" = context = %@", context);
}

void ViewController::doRevealItem(const std::optional<LocationItem>& item) {
    receiver().in("doRevealItem:").step("...");
    const auto tell = [self = QPointer(this),
                       notify = surroundings_.notifyUser](const std::string& failure) {
        // At once: the application often quits by now.
        notify(tr("The folder cannot be shown"), QString::fromStdString(failure));
        MainQueue::async([self, failure] {
            if (self)
                self->surroundings_.explain(failure, "");
        });
    };
    GlobalQueue::async([this, item, tell] {
        const auto* path = item ? std::get_if<std::string>(&*item) : nullptr;
        revealItemInFinder(path != nullptr ? std::optional(*path) : fSearchPath(), tell);
    });
}
