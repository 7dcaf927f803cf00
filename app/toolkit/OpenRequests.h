#pragma once

#include "core/Location.h"

#include <QByteArray>
#include <QDBusAbstractAdaptor>
#include <QDBusMessage>
#include <QObject>
#include <QStringList>
#include <QVariantMap>

#include <functional>
#include <string>

/// What lets a window of another process come to front: made by the desktop for the start of this
/// one, and passed on with a request (the platform data of org.freedesktop.Application).
struct ActivationTokens {
    QByteArray activationToken = qgetenv("XDG_ACTIVATION_TOKEN");
    QByteArray startupId = qgetenv("DESKTOP_STARTUP_ID");
};

/// The desktop's way to hand locations to the one running application: the interface
/// org.freedesktop.Application (defined by freedesktop.org's Desktop Entry standard under "D-Bus
/// Activation") on the session bus, under the application's identifier. Without a session bus every
/// start is the first. Main thread.
class OpenRequests : public QObject {
    Q_OBJECT
public:
    /// `opened` gets the locations of each request, `activated` asks for the window to come to
    /// front.
    OpenRequests(std::string identifier, std::function<void(const LocationList&)> opened,
                 std::function<void()> activated,
                 std::function<void(const QString& action, const QString& target)> acted);

    /// Hands `locations` to the application that already runs; without any it is brought to the
    /// front. False if none runs: then this one is the application from now on. A request is sent
    /// once to each process that has the name: one that does not answer in time still gets it.
    [[nodiscard]] bool handOver(const LocationList& locations, const ActivationTokens& tokens = {});

    /// Gives up being the application: from now on a start is the first again.
    void release();

    void activate();
    void open(const QStringList& uris);
    /// An action of the desktop entry or of a notification, with what went along with it.
    void act(const QString& action, const QString& target) { acted_(action, target); }

private:
    [[nodiscard]] QDBusMessage request(const QString& owner, const LocationList& locations,
                                       const ActivationTokens& tokens) const;

    std::string identifier_;
    std::function<void(const LocationList&)> opened_;
    std::function<void()> activated_;
    std::function<void(const QString&, const QString&)> acted_;
};

/// What the bus sees of OpenRequests.
class OpenRequestsAdaptor : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Application")
public:
    explicit OpenRequestsAdaptor(OpenRequests* requests);

public slots:
    // The names are the interface's.
    void Activate(const QVariantMap& platformData);
    void Open(const QStringList& uris, const QVariantMap& platformData);
    void ActivateAction(const QString& name, const QVariantList& parameter,
                        const QVariantMap& platformData);

private:
    OpenRequests* requests_;
};
