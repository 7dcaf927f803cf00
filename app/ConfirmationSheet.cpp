#include "app/ConfirmationSheet.h"

#include "app/Names.h"
#include "app/toolkit/SettingsStore.h"
#include "app/toolkit/ShownText.h"

#include <QApplication>
#include <QCheckBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QStyle>
#include <QTextLayout>
#include <QVBoxLayout>

using Confirmation::Answer;

namespace {

/// The text in lines of at most `width` pixels, which may end within a word.
QStringList folded(const QString& text, const QFont& font, int width) {
    QTextLayout layout(text, font);
    layout.setTextOption([] {
        QTextOption option;
        option.setWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
        return option;
    }());
    QStringList lines;
    layout.beginLayout();
    for (QTextLine line = layout.createLine(); line.isValid(); line = layout.createLine()) {
        line.setLineWidth(width);
        lines += text.mid(line.textStart(), line.textLength());
    }
    layout.endLayout();
    return lines;
}

/// The whole path: two folders must not look the same.
QLabel* pathLabel(const QString& path) {
    auto* label = new QLabel;
    label->setObjectName("folderPath");
    label->setTextFormat(Qt::PlainText);
    label->setAccessibleName(path);
    label->setTextInteractionFlags(Qt::TextSelectableByMouse);
    constexpr int comfortable = 60;
    constexpr int tallest = 20; // lines; a longer text gets wider ones
    const int character = label->fontMetrics().averageCharWidth();
    const QString shown = shownLine(path);
    QStringList lines = folded(shown, label->font(), comfortable * character);
    if (lines.size() > tallest)
        lines = folded(shown, label->font(), 2 * comfortable * character);
    label->setText(lines.join('\n'));
    return label;
}

QLabel* warningIcon(const QStyle& style) {
    auto* icon = new QLabel;
    const int size = style.pixelMetric(QStyle::PM_MessageBoxIconSize);
    icon->setPixmap(style.standardIcon(QStyle::SP_MessageBoxWarning).pixmap(size));
    return icon;
}

QLabel* messageLabel() {
    auto* message = new QLabel(Confirmation::message);
    message->setObjectName("messageText");
    QFont bold = message->font();
    bold.setBold(true);
    message->setFont(bold);
    return message;
}

QLabel* explanationLabel(const QString& text) {
    auto* explanation = new QLabel(text);
    explanation->setObjectName("informativeText");
    explanation->setTextFormat(Qt::PlainText);
    return explanation;
}

QCheckBox* doNotCodesignBox(SettingsStore& settings) {
    auto* box = new QCheckBox(Confirmation::doNotCodesign);
    box->setObjectName("doNotCodesign");
    settings.bind(*box, Names::doNotCodesign);
    return box;
}

} // namespace

ConfirmationSheet::ConfirmationSheet(const std::optional<std::string>& folder, AskedEntry entry,
                                     SettingsStore& settings, std::function<void(Answer)> answered)
    : buttons_(new QHBoxLayout) {
    setObjectName("confirmationSheet");
    setWindowTitle(Confirmation::message);

    // Behind the first line stands the path, which may be of any length.
    const QStringList lines =
        QString::fromStdString(Confirmation::informativeText(folder)).split('\n');
    auto* texts = new QVBoxLayout;
    texts->addWidget(messageLabel());
    texts->addWidget(explanationLabel(lines.front()));
    texts->addWidget(pathLabel(lines.mid(1).join('\n')));
    texts->addSpacing(6);
    auto* expectation = new ExpectationPanel(std::move(entry));
    texts->addWidget(expectation);
    texts->addSpacing(6);
    QCheckBox* doNotCodesign = doNotCodesignBox(settings);
    texts->addWidget(doNotCodesign);
    expectation->setDoNotCodesign(doNotCodesign->isChecked());
    connect(doNotCodesign, &QCheckBox::toggled, expectation, &ExpectationPanel::setDoNotCodesign);

    buttons_->addStretch();
    addButton(Confirmation::process, Answer::Process);
    QPushButton* skip = addButton(Confirmation::skip, Answer::Skip);
    QPushButton* stop = addButton(Confirmation::stop, Answer::Stop);
    stop->setDefault(true);
    stop->setFocus();
    layOut(texts);
    // The names come last: Tab leads from the box to the buttons.
    setTabOrder(skip, expectation->packages());
    setTabOrder(expectation->packages(), stop);

    connect(this, &QDialog::finished, this, [answered = std::move(answered)](int result) {
        const auto answer = static_cast<Answer>(result);
        answered(answer == Answer::Process || answer == Answer::Skip ? answer : Answer::Stop);
    });
}

void ConfirmationSheet::layOut(QLayout* texts) {
    auto* top = new QHBoxLayout;
    top->setSpacing(16);
    top->addWidget(warningIcon(*style()), 0, Qt::AlignTop);
    top->addLayout(texts, 1);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(20, 20, 20, 16);
    layout->setSpacing(16);
    layout->addLayout(top);
    layout->addLayout(buttons_);
    layout->setSizeConstraint(QLayout::SetFixedSize);
}

void ConfirmationSheet::showEvent(QShowEvent* event) {
    sinceShown_.start();
    QDialog::showEvent(event);
}

QPushButton* ConfirmationSheet::addButton(const char* title, Answer answer) {
    auto* button = new QPushButton(title, this);
    button->setObjectName(title);
    // Otherwise a button would take Return for itself while it has the focus.
    button->setAutoDefault(false);
    connect(button, &QPushButton::pressed, this, [this] {
        pressedUnread_ = sinceShown_.elapsed() < QApplication::doubleClickInterval();
    });
    connect(button, &QPushButton::clicked, this, [this, answer] {
        if (answer == Answer::Stop || !pressedUnread_)
            done(static_cast<int>(answer));
    });
    buttons_->addWidget(button);
    return button;
}
