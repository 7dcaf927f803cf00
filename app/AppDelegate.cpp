#include "app/AppDelegate.h"

#include "app/ViewController.h"
#include "app/platform/MainQueue.h"
#include "app/platform/NotificationCenter.h"
#include "core/Log.h"

void AppDelegate::applicationOpenURLs(const LocationList& urls) {
    logEvent("urls to open: %@", urls);
    MainQueue::async(
        [&notifications = notifications_, urls] { notifications.post("newsearchpath", urls); });
}

ViewController* AppDelegate::fMainViewController() const {
    return mainViewController_;
}

void AppDelegate::setFMainViewController(ViewController* controller) {
    mainViewController_ = controller;
}
