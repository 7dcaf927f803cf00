#include "app/platform/Sheet.h"

QDialog* attachedSheet(const QWidget* window) {
    for (QDialog* dialog : window->findChildren<QDialog*>(Qt::FindDirectChildrenOnly)) {
        if (dialog->isVisible() && dialog->windowModality() == Qt::WindowModal)
            return dialog;
    }
    return nullptr;
}

void beginSheet(QDialog* sheet, QWidget* parent) {
    sheet->setParent(parent, Qt::Sheet);
    sheet->setWindowModality(Qt::WindowModal);
    sheet->setAttribute(Qt::WA_DeleteOnClose);
    sheet->show();
}
