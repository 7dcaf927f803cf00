#include "app/platform/OpenRequests.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QFile>
#include <QUrl>

namespace {

QString objectPath(const std::string& identifier) {
    return '/' + QString::fromStdString(identifier).replace('.', '/');
}

/// Whether a session bus was started for this session. Without one the bus's library would start
/// one now, which takes longer than all the rest of our start.
bool sessionHasBus() {
    if (qEnvironmentVariableIsSet("DBUS_SESSION_BUS_ADDRESS"))
        return true;
    const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
    return !runtime.isEmpty() && QFile::exists(runtime + "/bus");
}

} // namespace

OpenRequests::OpenRequests(std::string identifier, std::function<void(const LocationList&)> opened,
                           std::function<void()> activated)
    : identifier_(std::move(identifier)), opened_(std::move(opened)),
      activated_(std::move(activated)) {
    new OpenRequestsAdaptor(this);
}

bool OpenRequests::handOver(const LocationList& locations) {
    if (!sessionHasBus())
        return false;
    QDBusConnection bus = QDBusConnection::sessionBus();
    const QString service = QString::fromStdString(identifier_);
    // The object first: whoever sees the name may call at once.
    bus.registerObject(objectPath(identifier_), this);
    if (!bus.isConnected() || bus.registerService(service))
        return false;
    QDBusMessage call = QDBusMessage::createMethodCall(service, objectPath(identifier_),
                                                       "org.freedesktop.Application",
                                                       locations.empty() ? "Activate" : "Open");
    if (!locations.empty()) {
        QStringList uris;
        for (const LocationItem& location : locations) {
            if (const auto path = pathOf(location))
                uris.push_back(QUrl::fromLocalFile(QString::fromStdString(*path))
                                   .toString(QUrl::FullyEncoded));
        }
        call << uris;
    }
    call << QVariantMap();
    return bus.call(call).type() == QDBusMessage::ReplyMessage;
}

void OpenRequests::activate() {
    activated_();
}

void OpenRequests::open(const QStringList& uris) {
    LocationList locations;
    for (const QString& uri : uris) {
        const QUrl url(uri);
        if (url.isLocalFile())
            locations.emplace_back(FileUrl::fileURLWithPath(url.toLocalFile().toStdString()));
        else
            locations.emplace_back(OtherItem{uri.toStdString()});
    }
    opened_(locations);
}

OpenRequestsAdaptor::OpenRequestsAdaptor(OpenRequests* requests)
    : QDBusAbstractAdaptor(requests), requests_(requests) {}

void OpenRequestsAdaptor::Activate(const QVariantMap&) {
    requests_->activate();
}

void OpenRequestsAdaptor::Open(const QStringList& uris, const QVariantMap&) {
    requests_->open(uris);
}

void OpenRequestsAdaptor::ActivateAction(const QString&, const QVariantList&, const QVariantMap&) {
    requests_->activate();
}
