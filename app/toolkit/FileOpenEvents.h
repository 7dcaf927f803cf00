#pragma once

#include <QObject>
#include <QStringList>

#include <functional>

/// Takes the events by which macOS asks the running application to open files. There is one for
/// each file; those of one turn of the event loop were one request. Needs a QApplication. Main
/// thread.
class FileOpenEvents : public QObject {
public:
    /// `opened` gets the URIs of each request, in order, in a later turn.
    explicit FileOpenEvents(std::function<void(const QStringList&)> opened);

protected:
    bool eventFilter(QObject* object, QEvent* event) override;

private:
    std::function<void(const QStringList&)> opened_;
    QStringList gathered_;
};
