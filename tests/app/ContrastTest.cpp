#include "app/AboutBox.h"
#include "app/results/ResultsList.h"
#include "app/toolkit/Sheet.h"
#include "tests/app/WindowFixture.h"

#include <QCheckBox>
#include <QLabel>
#include <QPainter>
#include <QStyleOption>

#include <cmath>

namespace {

/// The contrast of two opaque colours (WCAG 2.1, relative luminance), from 1 to 21.
double contrast(const QColor& a, const QColor& b) {
    const auto luminance = [](const QColor& colour) {
        const auto linear = [](double part) {
            return part <= 0.04045 ? part / 12.92 : std::pow((part + 0.055) / 1.055, 2.4);
        };
        return 0.2126 * linear(colour.redF()) + 0.7152 * linear(colour.greenF()) +
               0.0722 * linear(colour.blueF());
    };
    const double first = luminance(a);
    const double second = luminance(b);
    return (std::max(first, second) + 0.05) / (std::min(first, second) + 0.05);
}

/// As a dark desktop gives it.
QPalette darkPalette() {
    QPalette palette(QColor(0x31, 0x36, 0x3b), QColor(0x2a, 0x2e, 0x32));
    palette.setColor(QPalette::Base, QColor(0x1b, 0x1e, 0x20));
    palette.setColor(QPalette::Highlight, QColor(0x3d, 0xae, 0xe9));
    return palette;
}

/// The colours of a widget as it is drawn.
struct Drawn {
    explicit Drawn(QWidget* widget) : image(widget->grab().toImage()) {}
    /// The strongest contrast of any pixel on the line with the background.
    [[nodiscard]] double strongest(QPoint from, QPoint to, const QColor& background) const {
        double best = 1;
        const int steps = std::max(std::abs(to.x() - from.x()), std::abs(to.y() - from.y()));
        for (int i = 0; i <= steps; ++i)
            best = std::max(best,
                            contrast(image.pixelColor(from + (to - from) * i / steps), background));
        return best;
    }
    /// The strongest contrast of any of its pixels.
    [[nodiscard]] double strongest(const QColor& background) const {
        double best = 1;
        for (int y = 0; y < image.height(); ++y)
            best = std::max(best, strongest({0, y}, {image.width() - 1, y}, background));
        return best;
    }
    QImage image;
};

struct Contrast : WindowFixture, testing::WithParamInterface<bool> {
    Contrast() {
        before = QApplication::palette();
        QApplication::setPalette(GetParam() ? darkPalette()
                                            : QApplication::style()->standardPalette());
        folder.makeFolder("six/X.app");
        folder.makeFile("six/X.zip");
        identitiesAre({"K: Jo (X1)"});
        openWindow();
        settle();
    }
    ~Contrast() override { QApplication::setPalette(before); }

    /// Every text of the window stands out from what is behind it.
    static void expectLegible(QWidget* top) {
        for (QLabel* label : top->findChildren<QLabel*>()) {
            if (label->text().isEmpty() || !label->isVisible())
                continue;
            EXPECT_GE(contrast(label->palette().color(label->foregroundRole()),
                               top->palette().color(QPalette::Window)),
                      4.5)
                << label->text().toStdString();
            EXPECT_GE(Drawn(label).strongest(top->palette().color(QPalette::Window)), 4.5)
                << label->text().toStdString();
        }
    }
    QPalette before;
};

} // namespace

TEST_P(Contrast, OfTextsIsEnoughInEachState) {
    window->explain("There is nothing here: give something else.");
    controller().setFNumberOfFoldersToProcess(1);
    expectLegible(window.get());
    AboutBox about("Kelpmoray - v1.0", window.get());
    about.setAttribute(Qt::WA_DeleteOnClose, false);
    about.show();
    expectLegible(&about);
    controller().addItemToBeProcessedSet(folder.path("six"));
    ASSERT_NE(sheet(), nullptr);
    expectLegible(sheet());
}

TEST_P(Contrast, OfOutlinesIsEnough) {
    const QColor background = window->palette().color(QPalette::Window);
    auto* view = controller().ibDragDropView();
    view->setIsHighlighted(true);
    const Drawn drawn(view);
    const int middle = view->height() / 2;
    EXPECT_GE(drawn.strongest({0, middle}, {6, middle}, background), 3) << "the drop target";
    runs.packageStarted(folder.path("six/X.app"), folder.path("six"), std::nullopt);
    auto* list = find<ResultsList>("results");
    ASSERT_TRUE(waitUntil([&] { return list->isVisible(); }));
    list->setFocus();
    const QRect row = list->visualRect(list->currentIndex());
    EXPECT_GE(Drawn(list->viewport())
                  .strongest(row.topLeft() + QPoint(0, 1), row.topRight() + QPoint(0, 1),
                             list->palette().color(QPalette::Base)),
              3)
        << "the row with the keyboard";
    controller().setFButton1Busy(true);
    EXPECT_GE(Drawn(find("progressview")).strongest(background), 3) << "the busy sign";
    auto* box = find<QCheckBox>("doNotCodesign");
    QStyleOptionButton option;
    option.initFrom(box);
    const QRect square = box->style()->subElementRect(QStyle::SE_CheckBoxIndicator, &option, box);
    EXPECT_GE(Drawn(box).strongest(square.topLeft(), square.bottomLeft(), background), 3)
        << "the check box";
}

INSTANTIATE_TEST_SUITE_P(Light, Contrast, testing::Values(false));
INSTANTIATE_TEST_SUITE_P(Dark, Contrast, testing::Values(true));
