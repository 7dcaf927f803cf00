#include "app/platform/OpenRequests.h"

#include "app/platform/FileUris.h"
#include "app/platform/SessionBus.h"

#include <QDBusMessage>
#include <QThread>
#include <QUrl>

namespace {

constexpr int attempts = 10;
constexpr int patience = 2'000;           // milliseconds for one answer
constexpr unsigned long retryPause = 100; // milliseconds between two attempts

QString objectPath(const std::string& identifier) {
    return '/' + QString::fromStdString(identifier).replace('.', '/');
}

} // namespace

OpenRequests::OpenRequests(std::string identifier, std::function<void(const LocationList&)> opened,
                           std::function<void()> activated)
    : identifier_(std::move(identifier)), opened_(std::move(opened)),
      activated_(std::move(activated)) {
    new OpenRequestsAdaptor(this);
}

bool OpenRequests::handOver(const LocationList& locations) {
    auto bus = sessionBus();
    if (!bus)
        return false;
    // The object first: whoever sees the name may call at once.
    bus->registerObject(objectPath(identifier_), this);
    // The one that has the name may be about to end, and then does not answer.
    for (int attempt = 0; attempt < attempts; ++attempt) {
        if (bus->registerService(QString::fromStdString(identifier_)))
            return false;
        if (bus->call(request(locations), QDBus::Block, patience).type() ==
            QDBusMessage::ReplyMessage)
            return true;
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

QDBusMessage OpenRequests::request(const LocationList& locations) const {
    QDBusMessage call = QDBusMessage::createMethodCall(
        QString::fromStdString(identifier_), objectPath(identifier_), "org.freedesktop.Application",
        locations.empty() ? "Activate" : "Open");
    // Where the one that has the name has just ended, this start comes up, not one of the bus's.
    call.setAutoStartService(false);
    QStringList uris;
    for (const LocationItem& location : locations) {
        if (const auto path = pathOf(location))
            uris.push_back(uriOfPath(*path));
    }
    if (!locations.empty())
        call << uris;
    call << QVariantMap();
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
