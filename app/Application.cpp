#include "app/Application.h"

#include "app/MainWindow.h"
#include "app/toolkit/UserNotification.h"
#include "app/toolkit/WindowLevel.h"
#include "core/Log.h"
#include "core/RunSummary.h"

#include <QApplication>

#include <algorithm>

Application::Application()
    : requests_(
          bundle_.identifier,
          [this](const LocationList& urls) {
              showWindow();
              open(urls);
          },
          [this] { showWindow(); },
          [this](const QString& action, const QString& target) {
              if (!actions_.act(action, target))
                  showWindow();
              else if (!window_->isVisible())
                  QApplication::quit(); // the bus has started us for this alone
          }) {}

Application::~Application() = default;

bool Application::handOver(const LocationList& locations, const ActivationTokens& tokens) {
    return requests_.handOver(locations, tokens);
}

bool Application::lastRunFailed() const {
    return std::ranges::any_of(runs_.model().packages(), hasFailed);
}

void Application::showWindow() {
    window_->show();
    activateIgnoringOtherApps(window_.get());
}

void Application::start(const LocationList& locations) {
    const bool startedByBus = qEnvironmentVariableIsSet("DBUS_STARTER_ADDRESS");
    for (const char* name : {"DBUS_STARTER_ADDRESS", "DBUS_STARTER_BUS_TYPE"})
        qunsetenv(name); // not for those that we start
    QApplication::setDesktopFileName(QString::fromStdString(bundle_.identifier));
    QApplication::setQuitOnLastWindowClosed(
        delegate_.applicationShouldTerminateAfterLastWindowClosed());
    QObject::connect(qApp, &QApplication::aboutToQuit, &requests_, [this] {
        requests_.release();
        // Whoever quits at a later sheet, or while a package is processed, has not been told yet.
        if (runs_.isUntold() && lastRunFailed())
            tellFailure();
        runs_.leave(); // what is at work would look as if it went on
        if (lastRunFailed())
            tellOutside(RunActions::showRun(runs_.file()));
        delegate_.applicationWillTerminate();
    });

    settings_ = std::make_unique<SettingsStore>();
    const Surroundings surroundings = {
        .bundle = bundle_,
        .settings = *settings_,
        .notifications = notifications_,
        .tools = ToolPaths::of(bundle_),
        .terminate = &QApplication::quit,
        .notifyUser =
            [this](const QString& summary, const QString& body) {
                notifyUser(QString::fromStdString(bundle_.identifier), summary, body);
            },
        .runs = runs_,
        .tellFailure = [this] { tellFailure(); },
        .showLastRun = [this] { showRun(""); }};
    window_ = std::make_unique<MainWindow>(surroundings, delegate_);
    // Started by the bus, we get a request, which may ask for no window.
    if (!startedByBus)
        window_->show();
    delegate_.applicationDidFinishLaunching();
    if (!locations.empty())
        open(locations);
}

void Application::tellFailure() {
    RunActions::tellFailure(bundle_.identifier,
                            {runs_.model().packages(), runs_.file(), runs_.trouble()});
}

void Application::showRun(const std::string& file) {
    // One that could not be written is not the last one among the records.
    const std::string failure =
        RunActions::showRun(file.empty() && !runs_.trouble().empty() ? runs_.file() : file);
    if (!window_->isVisible())
        return tellOutside(failure);
    if (failure.empty())
        return;
    window_->load();
    window_->explain(failure);
}

void Application::tellOutside(const std::string& failure) {
    if (failure.empty())
        return;
    logEvent("results: %@", failure);
    notifyUser(QString::fromStdString(bundle_.identifier),
               QObject::tr("The results cannot be shown"), QString::fromStdString(failure));
}

void Application::open(const LocationList& locations) {
    window_->load(); // until then the controller does not observe open requests
    delegate_.applicationOpenURLs(locations);
}
