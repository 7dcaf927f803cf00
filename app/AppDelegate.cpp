#include "app/AppDelegate.h"

#include "app/Names.h"
#include "app/ViewController.h"
#include "app/toolkit/NotificationCenter.h"
#include "app/toolkit/Queues.h"
#include "core/Log.h"

void AppDelegate::applicationOpenURLs(const LocationList& urls) {
    logEvent("urls to open: %@", urls);
    MainQueue::async([&notifications = notifications_, urls] {
        notifications.post(Names::newSearchPath, urls);
    });
}

ViewController* AppDelegate::fMainViewController() const {
    return mainViewController_;
}

void AppDelegate::setFMainViewController(ViewController* controller) {
    mainViewController_ = controller;
}
