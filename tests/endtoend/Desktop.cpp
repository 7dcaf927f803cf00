#include "tests/endtoend/Desktop.h"

#include <QDeadlineTimer>

#include <functional>

#include <gtest/gtest.h>

namespace {

constexpr int patience = 30'000;

/// Asks `question` until there is an answer; empty if none comes.
QString await(const std::function<QString()>& question) {
    const QDeadlineTimer deadline(patience);
    QString answer;
    while (answer.isEmpty() && !deadline.hasExpired())
        answer = question();
    return answer;
}

void end(QProcess& process) {
    process.terminate();
    if (!process.waitForFinished(5'000)) {
        process.kill();
        process.waitForFinished();
    }
}

} // namespace

QByteArray Desktop::firstLine(QProcess& process) {
    while (!process.canReadLine() && process.waitForReadyRead(patience)) {
    }
    return process.readLine().trimmed();
}

Desktop::Desktop(const QString& home, const QString& toolFolder)
    : environment_(QProcessEnvironment::systemEnvironment()), logFile_(toolFolder + "/log") {
    environment_.insert("HOME", home);
    environment_.insert("XDG_CONFIG_HOME", home + "/.config");
    environment_.insert("XDG_RUNTIME_DIR", home);
    environment_.insert("PATH", toolFolder + ':' + environment_.value("PATH"));
    environment_.insert("QT_QPA_PLATFORM", "xcb");

    // Without -noreset the server starts afresh whenever its last client leaves.
    display_.start(
        "Xvfb", {"-displayfd", "1", "-screen", "0", "1024x768x24", "-nolisten", "tcp", "-noreset"});
    const QByteArray number = firstLine(display_);
    EXPECT_FALSE(number.isEmpty()) << "Xvfb does not start";
    environment_.insert("DISPLAY", ':' + number);

    bus_.setProcessEnvironment(environment_);
    bus_.start("dbus-daemon", {"--session", "--nofork", "--print-address"});
    busAddress_ = firstLine(bus_);
    EXPECT_FALSE(busAddress_.isEmpty()) << "dbus-daemon does not start";
    environment_.insert("DBUS_SESSION_BUS_ADDRESS", busAddress_);

    windowManager_.setProcessEnvironment(environment_);
    windowManager_.start("openbox");
    // What comes while it starts may lie there until the next event; once it obeys it misses
    // nothing.
    EXPECT_EQ(await([this] {
                  hands({"set_num_desktops", "2"});
                  const QString count = hands({"get_num_desktops"});
                  return count == "2" ? count : QString();
              }),
              "2")
        << "the window manager does not start";
}

Desktop::~Desktop() {
    end(windowManager_);
    end(bus_);
    end(display_);
}

std::unique_ptr<QProcess> Desktop::start(const QString& program,
                                         const QStringList& arguments) const {
    auto process = std::make_unique<QProcess>();
    process->setProcessEnvironment(environment_);
    // Into a file: a pipe would hold up the program whenever nobody reads.
    process->setStandardErrorFile(logFile_, QIODevice::Append);
    process->start(program, arguments);
    EXPECT_TRUE(process->waitForStarted()) << program.toStdString();
    return process;
}

QString Desktop::hands(const QStringList& arguments) const {
    const auto tool = start("timeout", QStringList{"30", "xdotool"} + arguments);
    EXPECT_TRUE(tool->waitForFinished(patience + 5'000));
    return QString::fromUtf8(tool->readAllStandardOutput()).trimmed();
}

QString Desktop::awaitWindow(const QString& title) const {
    return await([&] {
               return hands({"search", "--onlyvisible", "--name", title});
           })
        .section('\n', 0, 0);
}

void Desktop::activate(const QString& window) const {
    hands({"windowactivate", "--sync", window});
}

bool Desktop::hasWindow(const QString& title) const {
    return !hands({"search", "--onlyvisible", "--name", title}).isEmpty();
}

void Desktop::press(const QString& keys) const {
    hands({"key", "--clearmodifiers", keys});
}

void Desktop::drag(const QString& from, const QString& to) const {
    activate(from);
    hands({"mousemove", "--window", from, "--polar", "0", "0", "mousedown", "1"});
    // Several steps: a drag begins with a distance, and its target must see it come.
    for (const char* distance : {"40", "20", "10", "0"})
        hands({"mousemove", "--window", to, "--polar", "0", distance});
    hands({"mouseup", "1"});
}
