#include "app/Application.h"

#include "app/MainWindow.h"
#include "app/toolkit/UserNotification.h"
#include "app/toolkit/WindowLevel.h"

#include <QApplication>

Application::Application()
    : requests_(
          bundle_.identifier,
          [this](const LocationList& urls) {
              activateIgnoringOtherApps(window_.get());
              open(urls);
          },
          [this] { activateIgnoringOtherApps(window_.get()); }) {}

Application::~Application() = default;

bool Application::handOver(const LocationList& locations, const ActivationTokens& tokens) {
    return requests_.handOver(locations, tokens);
}

void Application::start(const LocationList& locations) {
    QApplication::setDesktopFileName(QString::fromStdString(bundle_.identifier));
    QApplication::setQuitOnLastWindowClosed(
        delegate_.applicationShouldTerminateAfterLastWindowClosed());
    QObject::connect(qApp, &QApplication::aboutToQuit, &requests_, [this] {
        requests_.release();
        delegate_.applicationWillTerminate();
    });

    settings_ = std::make_unique<SettingsStore>();
    const ViewController::Surroundings surroundings = {
        .bundle = bundle_,
        .settings = *settings_,
        .notifications = notifications_,
        .tools = ToolPaths::of(bundle_),
        .terminate = &QApplication::quit,
        .notifyUser = [this](const QString& summary, const QString& body) {
            notifyUser(QString::fromStdString(bundle_.identifier), summary, body);
        }};
    window_ = std::make_unique<MainWindow>(surroundings, delegate_);
    window_->show();
    delegate_.applicationDidFinishLaunching();
    if (!locations.empty())
        open(locations);
}

void Application::open(const LocationList& locations) {
    window_->load(); // until then the controller does not observe open requests
    delegate_.applicationOpenURLs(locations);
}
