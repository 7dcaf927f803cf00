#pragma once

#include <QByteArray>
#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

#include <memory>

/// A desktop of a test's own: a virtual display, a window manager and a session bus, and a person's
/// hands on keyboard and mouse. All of it ends with the object.
class Desktop {
public:
    /// `home` holds the settings of what runs here; tools in `toolFolder` stand in for the
    /// system's.
    Desktop(const QString& home, const QString& toolFolder);
    ~Desktop();
    Desktop(const Desktop&) = delete;
    Desktop& operator=(const Desktop&) = delete;

    [[nodiscard]] std::unique_ptr<QProcess> start(const QString& program,
                                                  const QStringList& arguments = {}) const;
    /// Waits for a window with that title and gives it the keyboard; its number, empty if none
    /// comes.
    [[nodiscard]] QString awaitWindow(const QString& title) const;
    [[nodiscard]] bool hasWindow(const QString& title) const;
    /// Gives the keyboard to a window that nothing blocks.
    void activate(const QString& window) const;
    void press(const QString& keys) const;
    /// Drags with the left button from the middle of one window to that of another.
    void drag(const QString& from, const QString& to) const;
    [[nodiscard]] QString busAddress() const { return busAddress_; }

private:
    /// What the tool prints; `arguments` for xdotool.
    QString hands(const QStringList& arguments) const;
    static QByteArray firstLine(QProcess& process);

    QProcessEnvironment environment_;
    QString logFile_;
    QProcess display_;
    QProcess bus_;
    QProcess windowManager_;
    QString busAddress_;
};
