#include "app/AboutBox.h"

#include "app/toolkit/NamedImage.h"

#include <QClipboard>
#include <QDialogButtonBox>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

AboutBox::AboutBox(const QString& version, QWidget* parent) : QDialog(parent) {
    setObjectName("aboutBox");
    setAttribute(Qt::WA_DeleteOnClose);
    setWindowTitle(tr("About Kelpmoray"));
    auto* icon = new QLabel;
    icon->setPixmap(applicationIcon().pixmap(64));
    auto* text = new QLabel(version + tr("\n\nSigns application packages and packs them.\n\n"
                                         "Kelpmoray: MIT License\n"
                                         "Qt %1: GNU LGPL version 3\n"
                                         "OpenSSL: Apache License 2.0\n"
                                         "libp11, libsecret: GNU LGPL version 2.1 or later\n"
                                         "libdeflate, expat: MIT License")
                                          .arg(qVersion()));
    text->setObjectName("aboutText");
    text->setTextFormat(Qt::PlainText);
    text->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close);
    QPushButton* copy = buttons->addButton(tr("&Copy"), QDialogButtonBox::ActionRole);
    copy->setObjectName("copy");
    connect(copy, &QPushButton::clicked, this,
            [text] { QGuiApplication::clipboard()->setText(text->text()); });
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    auto* top = new QHBoxLayout;
    top->setSpacing(16);
    top->addWidget(icon, 0, Qt::AlignTop);
    top->addWidget(text, 1);
    auto* layout = new QVBoxLayout(this);
    layout->setSpacing(16);
    layout->addLayout(top);
    layout->addWidget(buttons);
    layout->setSizeConstraint(QLayout::SetFixedSize);
    buttons->button(QDialogButtonBox::Close)->setDefault(true);
    buttons->button(QDialogButtonBox::Close)->setFocus();
}
