#include "app/platform/WindowLevel.h"

#include "app/platform/NativeWindow.h"
#include "app/platform/Sheet.h"

#include <QWindow>

void setWindowLevel(QWidget* window, int level) {
    if (window == nullptr || setNativeWindowLevel(window, level))
        return;
    if (!window->isVisible())
        window->setWindowFlag(Qt::WindowStaysOnTopHint, level > 0);
    else if (QWindow* handle = window->windowHandle())
        // Changing the flag of the widget would hide it.
        handle->setFlag(Qt::WindowStaysOnTopHint, level > 0);
}

void activateIgnoringOtherApps(QWidget* window) {
    if (window == nullptr)
        return;
    window->setWindowState(window->windowState() & ~Qt::WindowMinimized);
    window->raise();
    // A window that is blocked takes no key, and would lie over what blocks it.
    QWidget* front = window;
    while (QWidget* sheet = attachedSheet(front))
        front = sheet;
    front->raise();
    front->activateWindow();
}
