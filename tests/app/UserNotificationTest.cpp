#include "app/platform/UserNotification.h"

#include "tests/app/Support.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVirtualObject>
#include <QGuiApplication>
#include <QProcess>

#include <gtest/gtest.h>

namespace {

/// What a notification service is asked for.
class Service : public QDBusVirtualObject {
public:
    [[nodiscard]] QString introspect(const QString&) const override { return {}; }
    bool handleMessage(const QDBusMessage& message, const QDBusConnection&) override {
        asked = message.member();
        arguments = message.arguments();
        return true;
    }
    QString asked;
    QVariantList arguments;
};

} // namespace

TEST(UserNotification, ReachesTheServiceOfTheSession) {
    QProcess daemon;
    daemon.start("dbus-daemon", {"--session", "--nofork", "--print-address=1"});
    ASSERT_TRUE(daemon.waitForReadyRead(20'000));
    const QByteArray address = daemon.readLine().trimmed();
    qputenv("DBUS_SESSION_BUS_ADDRESS", address);
    Service service;
    QDBusConnection bus = QDBusConnection::connectToBus(address, "service");
    ASSERT_TRUE(bus.registerService("org.freedesktop.Notifications"));
    ASSERT_TRUE(bus.registerVirtualObject("/org/freedesktop/Notifications", &service));

    QGuiApplication::setApplicationDisplayName("Kelp");
    notifyUser("com.example.kelp", "Packages are done", "3 processed");
    ASSERT_TRUE(waitUntil([&] { return !service.asked.isEmpty(); }));
    EXPECT_EQ(service.asked, "Notify");
    EXPECT_EQ(service.arguments.mid(0, 6),
              (QVariantList{"Kelp", 0U, "com.example.kelp", "Packages are done", "3 processed",
                            QStringList()}));
    ASSERT_EQ(service.arguments.size(), 8);
    EXPECT_EQ(qdbus_cast<QVariantMap>(service.arguments[6]).value("desktop-entry"),
              "com.example.kelp");
    EXPECT_EQ(service.arguments[7], -1) << "the service decides how long";

    QDBusConnection::disconnectFromBus("service");
    daemon.terminate();
    daemon.waitForFinished();
}
