#include "app/toolkit/OpenRequests.h"

#include "app/toolkit/FileUris.h"
#include "app/toolkit/SessionBus.h"
#include "core/Log.h"

#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QThread>
#include <QUrl>

namespace {

constexpr int attempts = 10;
constexpr int patience = 5'000;           // milliseconds for one answer
constexpr unsigned long retryPause = 100; // milliseconds between two attempts

QString objectPath(const std::string& identifier) {
    return '/' + QString::fromStdString(identifier).replace('.', '/');
}

} // namespace

OpenRequests::OpenRequests(std::string identifier, std::function<void(const LocationList&)> opened,
                           std::function<void()> activated,
                           std::function<void(const QString&, const QString&)> acted)
    : identifier_(std::move(identifier)), opened_(std::move(opened)),
      activated_(std::move(activated)), acted_(std::move(acted)) {
    new OpenRequestsAdaptor(this);
}

bool OpenRequests::handOver(const LocationList& locations, const ActivationTokens& tokens) {
    auto bus = sessionBus();
    if (!bus)
        return false;
    // The object first: another process may call as soon as it sees the name.
    bus->registerObject(objectPath(identifier_), this);
    const QString name = QString::fromStdString(identifier_);
    QString asked;
    // The process that has the name may be about to end, and then does not answer.
    for (int attempt = 0; attempt < attempts; ++attempt) {
        if (bus->registerService(name))
            return false;
        const QString owner = bus->interface()->serviceOwner(name);
        if (!owner.isEmpty() && owner == asked) {
            logEvent("the window that runs does not answer yet, it opens what it was given later");
            return true;
        }
        if (!owner.isEmpty()) {
            asked = owner;
            const QDBusMessage answer =
                bus->call(request(owner, locations, tokens), QDBus::Block, patience);
            if (answer.type() == QDBusMessage::ReplyMessage)
                return true;
        }
        QThread::msleep(retryPause);
    }
    return false;
}

void OpenRequests::release() {
    const auto bus = sessionBus();
    if (!bus)
        return;
    // unregisterService() would wait for a bus that has stopped for 25 seconds.
    QDBusMessage call = QDBusMessage::createMethodCall(
        "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "ReleaseName");
    call << QString::fromStdString(identifier_);
    bus->call(call, QDBus::Block, patience);
}

QDBusMessage OpenRequests::request(const QString& owner, const LocationList& locations,
                                   const ActivationTokens& tokens) const {
    QDBusMessage call = QDBusMessage::createMethodCall(owner, objectPath(identifier_),
                                                       "org.freedesktop.Application",
                                                       locations.empty() ? "Activate" : "Open");
    QStringList uris;
    for (const LocationItem& location : locations) {
        if (const auto path = pathOf(location))
            uris.push_back(uriOfPath(*path));
    }
    if (!locations.empty())
        call << uris;
    QVariantMap platformData;
    if (!tokens.activationToken.isEmpty())
        platformData["activation-token"] = QString::fromUtf8(tokens.activationToken);
    if (!tokens.startupId.isEmpty())
        platformData["desktop-startup-id"] = QString::fromUtf8(tokens.startupId);
    call << platformData;
    return call;
}

void OpenRequests::activate() {
    activated_();
}

void OpenRequests::open(const QStringList& uris) {
    LocationList locations;
    for (const QString& uri : uris) {
        const QUrl url(uri);
        if (const auto path = pathOfUri(url))
            locations.emplace_back(FileUrl::fileURLWithPath(*path));
        else
            locations.emplace_back(OtherItem{uri.toStdString()});
    }
    opened_(locations);
}

/// For the toolkit's next request to come to front.
static void useTokens(const QVariantMap& platformData) {
    const auto use = [&](const char* key, const char* variable) {
        const QByteArray token = platformData.value(key).toString().toUtf8();
        if (!token.isEmpty())
            qputenv(variable, token);
    };
    use("activation-token", "XDG_ACTIVATION_TOKEN");
    use("desktop-startup-id", "DESKTOP_STARTUP_ID");
}

OpenRequestsAdaptor::OpenRequestsAdaptor(OpenRequests* requests)
    : QDBusAbstractAdaptor(requests), requests_(requests) {}

void OpenRequestsAdaptor::Activate(const QVariantMap& platformData) {
    useTokens(platformData);
    requests_->activate();
}

void OpenRequestsAdaptor::Open(const QStringList& uris, const QVariantMap& platformData) {
    useTokens(platformData);
    requests_->open(uris);
}

void OpenRequestsAdaptor::ActivateAction(const QString& name, const QVariantList& parameter,
                                         const QVariantMap& platformData) {
    useTokens(platformData);
    requests_->act(name, parameter.empty() ? QString() : parameter.front().toString());
}
