#include "app/platform/NativeWindow.h"

bool setNativeWindowLevel(QWidget*, int) {
    return false;
}

bool hasNativeSheet(const QWidget*) {
    return false;
}

bool beginNativeChoosePanel(const ChoosePanel::Settings&, QWidget*,
                            const ChoosePanel::Completion&) {
    return false;
}
