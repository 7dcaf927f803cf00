#include "app/platform/FileOpenEvents.h"

#include "app/platform/MainQueue.h"

#include <QCoreApplication>
#include <QFileOpenEvent>
#include <QPointer>
#include <QUrl>

#include <utility>

FileOpenEvents::FileOpenEvents(std::function<void(const QStringList&)> opened)
    : opened_(std::move(opened)) {
    qApp->installEventFilter(this);
}

bool FileOpenEvents::eventFilter(QObject* object, QEvent* event) {
    if (event->type() != QEvent::FileOpen)
        return QObject::eventFilter(object, event);
    if (gathered_.isEmpty()) {
        MainQueue::async([self = QPointer<FileOpenEvents>(this)] {
            if (self)
                self->opened_(std::exchange(self->gathered_, {}));
        });
    }
    gathered_ += static_cast<QFileOpenEvent*>(event)->url().toString(QUrl::FullyEncoded);
    return true;
}
