#include "app/ViewController.h"

#include "app/MyDragDropView.h"
#include "app/RevealInFinder.h"
#include "app/VornNSStringAdditions.h"
#include "app/VornNSViewAdditions.h"
#include "app/platform/ArrayController.h"
#include "app/platform/GlobalQueue.h"
#include "app/platform/MainQueue.h"
#include "app/platform/QtDescription.h"
#include "app/platform/SettingsStore.h"
#include "app/platform/WindowLevel.h"
#include "core/Log.h"
#include "core/Path.h"

#include <QPushButton>

#include <mutex>

ViewController::ViewController(Surroundings surroundings)
    : surroundings_(std::move(surroundings)) {}

ViewController::~ViewController() = default;

Caller ViewController::receiver() const {
    return {"ViewController", formatted("%@", this)};
}

void ViewController::onMainQueue(std::function<void()> job) {
    MainQueue::async([self = QPointer<ViewController>(this), job = std::move(job)] {
        if (self)
            job();
    });
}

QWidget* ViewController::window() const {
    return view_ ? view_->window() : nullptr;
}

void ViewController::setFSearchPath(std::optional<std::string> path) {
    fSearchPath_.set(std::move(path));
    emit propertyChanged();
}

void ViewController::setFButton1Busy(bool busy) {
    fButton1Busy_.set(busy);
    emit propertyChanged();
}

void ViewController::setProcessing(bool processing) {
    isProcessing_.set(processing);
    emit propertyChanged();
}

std::optional<std::string> ViewController::fProgressString1() const {
    return fProgressString1_.get();
}

void ViewController::setFProgressString1(std::optional<std::string> text) {
    fProgressString1_.set(std::move(text));
    emit propertyChanged();
}

std::optional<std::string> ViewController::fVersionString() const {
    return fVersionString_.get();
}

void ViewController::setFVersionString(std::optional<std::string> text) {
    fVersionString_.set(std::move(text));
    emit propertyChanged();
}

void ViewController::setFSetOfFolders(std::shared_ptr<WorkSet> set) {
    fSetOfFolders_.set(std::move(set));
    emit propertyChanged();
}

std::optional<int> ViewController::fNumberOfFoldersToProcess() const {
    return fNumberOfFoldersToProcess_.get();
}

void ViewController::setFNumberOfFoldersToProcess(std::optional<int> count) {
    fNumberOfFoldersToProcess_.set(count);
    emit propertyChanged();
}

void ViewController::awakeFromNib() {
    static std::once_flag once;
    std::call_once(once, [this] {
        QRect frame(0, 0, 0, 0);
        if (ibDragDropView_) {
            // Both rectangles count from the content area's corner.
            ibDragDropView_->setGeometry(view_ ? view_->rect() : frame);
            frame = ibDragDropView_->geometry();
        }
        logEvent("%@-%@...self.ibDragDropView.frame = %@", receiver(), "awakeFromNib", frame);
        onMainQueue([this] {
            setFNumberOfFoldersToProcess(0);
            setWindowLevel(window(), statusWindowLevel);
            (void)VornNSStringAdditions::getAppVersionString(surroundings_.bundle,
                                                             surroundings_.settings);
            surroundings_.settings.setBool("prefDNPTarget", false);
            surroundings_.settings.synchronize();
        });
        MainQueue::after(std::chrono::milliseconds(100), [self = QPointer<ViewController>(this)] {
            if (self)
                self->setupSpin();
        });
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
    observe("newsearchpath", &ViewController::handleNewSearchPath);
    getCodesigningIdentities();
    setupCodesigningPopupStuff();
    observe("NSWindowDidResizeNotification", &ViewController::boundsDidChangeNotification);
}

void ViewController::setupSpin() {
    logEvent("Inside %@ => %@...TESTING....", receiver().className, "setupSpin");
    onMainQueue([this] {
        if (!view_)
            return;
        QWidget* spinner = VornNSViewAdditions::findViewWithIdentifier(
            view_, "progressview", QPushButton::staticMetaObject);
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
    logEvent("%@-%@ = keypath = %@", receiver(), methodName, keyPath);
    logEvent("%@-%@ = change = %@", receiver(), methodName, change);
    logEvent("%@-%@ = context = %@", receiver(), methodName, context);
}

void ViewController::doRevealItem(const std::optional<LocationItem>& item) {
    logEvent("%@-%@...", receiver(), "doRevealItem:");
    GlobalQueue::async([this, item] {
        const auto* path = item ? std::get_if<std::string>(&*item) : nullptr;
        revealItemInFinder(path != nullptr ? std::optional(*path) : fSearchPath());
    });
}
