#include "app/toolkit/SessionBus.h"

#include "core/Log.h"

#include <QByteArray>
#include <QFile>

#include <algorithm>
#include <cstddef>

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

constexpr int patience = 2'000; // milliseconds for the first answer

/// Whether the process that listens on the socket answers.
bool answers(const sockaddr_un& name, socklen_t size) {
    const int descriptor = socket(AF_UNIX, SOCK_STREAM, 0);
    static constexpr char opening[] = "\0AUTH\r\n";
    pollfd answer = {descriptor, POLLIN, 0};
    const bool answered =
        connect(descriptor, reinterpret_cast<const sockaddr*>(&name), size) == 0 &&
        send(descriptor, opening, sizeof opening - 1, 0) > 0 && poll(&answer, 1, patience) > 0;
    close(descriptor);
    return answered;
}

/// The same for the bus at one address; true if it is on no socket of this machine.
bool answers(const QByteArray& address) {
    const QByteArray value = address.mid(address.indexOf('=') + 1);
    const QByteArray path = QByteArray::fromPercentEncoding(value.left(value.indexOf(',')));
    const bool isAbstract = address.startsWith("unix:abstract=");
    sockaddr_un name{};
    if ((!isAbstract && !address.startsWith("unix:path=")) ||
        path.size() >= qsizetype(sizeof name.sun_path) - 1)
        return true;
    name.sun_family = AF_UNIX;
    std::ranges::copy(path, name.sun_path + (isAbstract ? 1 : 0));
    const auto size = offsetof(sockaddr_un, sun_path) + std::size_t(path.size()) + 1;
    return answers(name, socklen_t(size));
}

/// Whether a bus was started for this session, and answers: for one that is stopped the bus's
/// library would wait for ever.
bool isThere() {
    QByteArray address = qgetenv("DBUS_SESSION_BUS_ADDRESS");
    const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
    if (address.isEmpty() && !runtime.isEmpty() && QFile::exists(runtime + "/bus"))
        address = "unix:path=" + QFile::encodeName(runtime) + "/bus";
    if (address.isEmpty())
        return false;
    // The bus's library tries several addresses in turn, too.
    if (std::ranges::any_of(address.split(';'), [](const QByteArray& one) { return answers(one); }))
        return true;
    logEvent("the session bus does not answer, this run goes on without it");
    // The toolkit asks for the bus in places of its own.
    qputenv("DBUS_SESSION_BUS_ADDRESS", "disabled:");
    return false;
}

} // namespace

std::optional<QDBusConnection> sessionBus() {
    static const bool wasThere = isThere();
    if (!wasThere)
        return std::nullopt;
    const QDBusConnection bus = QDBusConnection::sessionBus();
    return bus.isConnected() ? std::optional(bus) : std::nullopt;
}
