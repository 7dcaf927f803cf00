#include "app/toolkit/WindowFrame.h"

#include "core/Format.h"

#include <QGuiApplication>
#include <QScreen>

#include <algorithm>
#include <cstdio>

std::string windowFrameText(const QWidget& window) {
    const bool isNormal = !(window.windowState() & (Qt::WindowMaximized | Qt::WindowFullScreen));
    const QSize size = isNormal ? window.size() : window.normalGeometry().size();
    const QPoint corner = isNormal ? window.pos() : window.normalGeometry().topLeft();
    return formatted("{{%i, %i}, {%i, %i}}", corner.x(), corner.y(), size.width(), size.height());
}

void setWindowFrame(QWidget& window, const std::string& text) {
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;
    if (std::sscanf(text.c_str(), "{{%d, %d}, {%d, %d}}", &x, &y, &width, &height) != 4)
        return;
    // Enough of the title bar to take hold of.
    constexpr QSize grip(100, 20);
    const QRect title(x, y, std::max(width, grip.width()), grip.height());
    const auto shows = [&](const QScreen* screen) {
        const QRect seen = screen->availableGeometry() & title;
        return seen.width() >= grip.width() && seen.height() >= grip.height();
    };
    const auto screens = QGuiApplication::screens();
    const auto screen = std::ranges::find_if(screens, shows);
    const QScreen* at = screen != screens.end() ? *screen : QGuiApplication::primaryScreen();
    window.resize(QSize(width, height).boundedTo(at->availableSize()));
    if (screen != screens.end())
        window.move(x, y);
}
