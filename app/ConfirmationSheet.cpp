#include "app/ConfirmationSheet.h"

#include "app/ElidedLabel.h"
#include "app/platform/SettingsStore.h"

#include <QCheckBox>
#include <QHBoxLayout>
#include <QKeySequence>
#include <QPushButton>
#include <QStyle>
#include <QVBoxLayout>

using Confirmation::Answer;

ConfirmationSheet::ConfirmationSheet(const std::optional<std::string>& folder,
                                     SettingsStore& settings, std::function<void(Answer)> answered)
    : buttons_(new QHBoxLayout) {
    setObjectName("confirmationSheet");
    setWindowTitle(Confirmation::message);

    auto* icon = new QLabel;
    const int iconSize = style()->pixelMetric(QStyle::PM_MessageBoxIconSize);
    icon->setPixmap(style()->standardIcon(QStyle::SP_MessageBoxWarning).pixmap(iconSize));

    auto* message = new QLabel(Confirmation::message);
    message->setObjectName("messageText");
    QFont bold = message->font();
    bold.setBold(true);
    message->setFont(bold);

    // Behind the first line stands the path, which may be of any length.
    const QStringList lines =
        QString::fromStdString(Confirmation::informativeText(folder)).split('\n');
    auto* explanation = new QLabel(lines.front());
    explanation->setTextFormat(Qt::PlainText);
    auto* path = new ElidedLabel;
    path->setObjectName("folderPath");
    path->setFullText(lines.mid(1).join('\n'));

    auto* doNotCodesign = new QCheckBox(Confirmation::doNotCodesign);
    doNotCodesign->setObjectName("doNotCodesign");
    settings.bind(*doNotCodesign, "prefDoNotCodesign");

    buttons_->addStretch();
    addButton(Confirmation::process, Answer::Process, QKeySequence(Qt::ALT | Qt::Key_P));
    addButton(Confirmation::skip, Answer::Skip, QKeySequence(Qt::ALT | Qt::Key_S));
    QPushButton* stop = addButton(Confirmation::stop, Answer::Stop);
    stop->setDefault(true);
    stop->setFocus();

    auto* texts = new QVBoxLayout;
    for (QWidget* widget : std::initializer_list<QWidget*>{message, explanation, path})
        texts->addWidget(widget);
    texts->addSpacing(6);
    texts->addWidget(doNotCodesign);
    auto* top = new QHBoxLayout;
    top->setSpacing(16);
    top->addWidget(icon, 0, Qt::AlignTop);
    top->addLayout(texts, 1);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(20, 20, 20, 16);
    layout->setSpacing(16);
    layout->addLayout(top);
    layout->addLayout(buttons_);
    layout->setSizeConstraint(QLayout::SetFixedSize);

    connect(this, &QDialog::finished, this, [answered = std::move(answered)](int result) {
        const auto answer = static_cast<Answer>(result);
        answered(answer == Answer::Process || answer == Answer::Skip ? answer : Answer::Stop);
    });
}

QPushButton* ConfirmationSheet::addButton(const char* title, Answer answer,
                                          const QKeySequence& shortcut) {
    auto* button = new QPushButton(title, this);
    button->setObjectName(title);
    // Otherwise a button would take Return for itself while it has the focus.
    button->setAutoDefault(false);
    if (!shortcut.isEmpty())
        button->setShortcut(shortcut);
    connect(button, &QPushButton::clicked, this,
            [this, answer] { done(static_cast<int>(answer)); });
    buttons_->addWidget(button);
    return button;
}
