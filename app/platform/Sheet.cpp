#include "app/platform/Sheet.h"

#include "app/platform/NativeWindow.h"

#include <QApplication>
#include <QShortcut>

#include <algorithm>

QDialog* attachedSheet(const QWidget* window) {
    const auto dialogs = window->findChildren<QDialog*>(Qt::FindDirectChildrenOnly);
    const auto sheet = std::ranges::find_if(dialogs, [](const QDialog* dialog) {
        return dialog->isVisible() && dialog->windowModality() == Qt::WindowModal;
    });
    return sheet == dialogs.end() ? nullptr : *sheet;
}

bool hasAttachedSheet(const QWidget* window) {
    return hasNativeSheet(window) || attachedSheet(window) != nullptr;
}

void beginSheet(QDialog* sheet, QWidget* parent) {
    sheet->setParent(parent, Qt::Sheet);
    sheet->setWindowModality(Qt::WindowModal);
    sheet->setAttribute(Qt::WA_DeleteOnClose);
    // The window's own shortcut is out of reach while it is blocked.
    auto* quit = new QShortcut(QKeySequence::Quit, sheet);
    QObject::connect(quit, &QShortcut::activated, qApp, &QCoreApplication::quit,
                     Qt::QueuedConnection);
    // At once, not when the window manager has noticed: until then nothing would be in front.
    QObject::connect(sheet, &QDialog::finished, parent, &QWidget::activateWindow);
    sheet->show();
}
