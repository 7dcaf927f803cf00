#include "app/platform/Preload.h"

#ifdef KELPMORAY_FONTCONFIG

#include <QApplication>
#include <QFontMetrics>
#include <QProxyStyle>
#include <QThreadPool>

#include <thread>

#include <fontconfig/fontconfig.h>

namespace {

/// The desktop's own style but for that icon, which costs a millisecond of searching image plugins.
class WithoutExtensionIcon : public QProxyStyle {
public:
    QIcon standardIcon(StandardPixmap icon, const QStyleOption* option,
                       const QWidget* widget) const override {
        return icon == SP_ToolBarHorizontalExtensionButton
                   ? QIcon()
                   : QProxyStyle::standardIcon(icon, option, widget);
    }
};

} // namespace

void Preload::fontConfiguration() {
    std::thread([] { FcInit(); }).detach();
}

void Preload::fontsAndStyle() {
    QThreadPool::globalInstance()->start(
        [font = QApplication::font()] { QFontMetrics(font).horizontalAdvance(QChar(u'x')); });
    QApplication::setStyle(new WithoutExtensionIcon);
}

#else

void Preload::fontConfiguration() {}

void Preload::fontsAndStyle() {}

#endif
