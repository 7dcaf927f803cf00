#include "app/identities/IdentityDialog.h"

#include <QAccessible>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

namespace {

QLabel* plainLabel(const QString& text) {
    auto* label = new QLabel(text);
    label->setTextFormat(Qt::PlainText);
    label->setWordWrap(true);
    return label;
}

} // namespace

IdentityDialog::IdentityDialog(IdentityTool& tool, const QString& title, const QString& explanation,
                               const QString& actionTitle)
    : tool_(tool), form_(new QFormLayout), message_(plainLabel({})),
      buttons_(new QDialogButtonBox(QDialogButtonBox::Cancel)),
      action_(buttons_->addButton(actionTitle, QDialogButtonBox::ActionRole)) {
    setWindowTitle(title);
    setMinimumWidth(440);
    message_->setObjectName("message");
    message_->setAccessibleName(tr("Result"));
    message_->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    message_->hide();
    action_->setObjectName("action");
    action_->setDefault(true);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(plainLabel(explanation));
    layout->addLayout(form_);
    layout->addWidget(message_);
    layout->addWidget(buttons_);
    connect(action_, &QPushButton::clicked, this, [this] { act(); });
    connect(buttons_, &QDialogButtonBox::rejected, this, &QDialog::reject);
}

QLineEdit* IdentityDialog::addLine(const QString& label, const QString& name) {
    auto* line = new QLineEdit;
    line->setObjectName(name);
    form_->addRow(label, line);
    return line;
}

QLineEdit* IdentityDialog::addFileLine(const QString& label, const QString& name,
                                       const QString& filter) {
    auto* line = new QLineEdit;
    line->setObjectName(name);
    auto* browse = new QPushButton(tr("Browse…"));
    browse->setAutoDefault(false);
    auto* row = new QHBoxLayout;
    row->addWidget(line, 1);
    row->addWidget(browse);
    form_->addRow(label, row);
    // A row of two has no buddy of its own.
    if (auto* text = qobject_cast<QLabel*>(form_->labelForField(row)))
        text->setBuddy(line);
    connect(browse, &QPushButton::clicked, this, [this, line, label, filter] {
        QString title = label;
        const QString path =
            QFileDialog::getOpenFileName(this, title.remove('&').remove(':'), line->text(), filter);
        if (!path.isEmpty())
            line->setText(path);
    });
    return line;
}

void IdentityDialog::showEvent(QShowEvent* event) {
    QDialog::showEvent(event);
    if (event->spontaneous())
        return;
    // From the fields, in their order, to the buttons, which were made first.
    QWidget* last = nullptr;
    const auto follow = [&last](QWidget* next) {
        if (last != nullptr)
            setTabOrder(last, next);
        last = next;
    };
    for (int row = 0; row < form_->rowCount(); ++row) {
        QLayoutItem* field = form_->itemAt(row, QFormLayout::FieldRole);
        if (field->widget() != nullptr)
            follow(field->widget());
        for (int i = 0; field->layout() != nullptr && i < field->layout()->count(); ++i)
            follow(field->layout()->itemAt(i)->widget());
    }
    for (QWidget* next : std::initializer_list<QWidget*>{
             message_, action_, buttons_->button(QDialogButtonBox::Cancel)})
        follow(next);
    qobject_cast<QLabel*>(form_->itemAt(0, QFormLayout::LabelRole)->widget())->buddy()->setFocus();
}

void IdentityDialog::run(const QStringList& arguments, const QByteArray& input,
                         std::function<void(const QString&)> done) {
    action_->setEnabled(false);
    setCursor(Qt::BusyCursor);
    tool_.run(arguments, input, this,
              [this, done = std::move(done)](const IdentityTool::Answer& answer) {
                  action_->setEnabled(true);
                  unsetCursor();
                  if (answer.succeeded)
                      done(answer.text);
                  else
                      showMessage(answer.text, true);
              });
}

void IdentityDialog::showMessage(const QString& text, bool isError) {
    message_->setText(text);
    message_->setVisible(!text.isEmpty());
    message_->setProperty("isError", isError);
    QAccessibleEvent alert(message_, QAccessible::Alert);
    QAccessible::updateAccessibility(&alert);
    adjustSize();
}

void IdentityDialog::finishWith(const QString& text) {
    showMessage(text);
    action_->hide();
    QPushButton* close = buttons_->button(QDialogButtonBox::Cancel);
    close->setText(tr("Close"));
    close->setDefault(true);
    close->setFocus();
    for (QLineEdit* line : findChildren<QLineEdit*>())
        line->setReadOnly(true);
}
