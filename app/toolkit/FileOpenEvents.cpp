#include "app/toolkit/FileOpenEvents.h"

#include "app/toolkit/Queues.h"

#include <QCoreApplication>
#include <QFileOpenEvent>
#include <QUrl>

#include <utility>

FileOpenEvents::FileOpenEvents(std::function<void(const QStringList&)> opened)
    : opened_(std::move(opened)) {
    qApp->installEventFilter(this);
}

bool FileOpenEvents::eventFilter(QObject* object, QEvent* event) {
    if (event->type() != QEvent::FileOpen)
        return QObject::eventFilter(object, event);
    if (gathered_.isEmpty())
        MainQueue::async(this, [this] { opened_(std::exchange(gathered_, {})); });
    gathered_ += static_cast<QFileOpenEvent*>(event)->url().toString(QUrl::FullyEncoded);
    return true;
}
