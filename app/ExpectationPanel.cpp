#include "app/ExpectationPanel.h"

#include "app/toolkit/ShownText.h"
#include "core/Path.h"

#include <QLabel>
#include <QListWidget>
#include <QVBoxLayout>

#include <algorithm>

namespace {

QLabel* plainLabel(const QString& text, const char* name) {
    auto* label = new QLabel(text);
    label->setObjectName(name);
    label->setTextFormat(Qt::PlainText);
    label->setVisible(!text.isEmpty());
    return label;
}

QString placeText(const AskedEntry& entry) {
    if (entry.total < 2)
        return {};
    return (entry.isPackage ? QObject::tr("package %1 of %2") : QObject::tr("folder %1 of %2"))
        .arg(entry.position)
        .arg(entry.total);
}

} // namespace

ExpectationPanel::ExpectationPanel(AskedEntry entry)
    : entry_(std::move(entry)), summary_(plainLabel({}, "summary")), packages_(new QListWidget) {
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(4);
    layout->addWidget(plainLabel(placeText(entry_), "place"));
    layout->addWidget(summary_);
    listPackages();
    layout->addWidget(packages_);
    auto* renaming = plainLabel(shownLine(renamingText(entry_.expectation)), "renaming");
    renaming->setWordWrap(true);
    layout->addWidget(renaming);
    layout->addWidget(
        plainLabel(QString::fromStdString(replacedText(entry_.expectation)), "replaced"));
}

void ExpectationPanel::listPackages() {
    packages_->setObjectName("packages");
    packages_->setAccessibleName(tr("Packages"));
    packages_->setUniformItemSizes(true);
    packages_->setTextElideMode(Qt::ElideMiddle);
    packages_->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    packages_->setVerticalScrollMode(QAbstractItemView::ScrollPerItem);
    for (const std::string& package : entry_.expectation.packages) {
        const QString name = shownLine(lastPathComponent(package));
        packages_->addItem(name);
        packages_->item(packages_->count() - 1)->setToolTip(toolTipOf(name));
    }
    constexpr int mostRows = 5;
    const int rows = std::min(packages_->count(), mostRows);
    packages_->setFixedHeight(rows * packages_->sizeHintForRow(0) + 2 * packages_->frameWidth());
    // A package says its name in its path.
    packages_->setVisible(rows > 0 && !entry_.isPackage);
}

void ExpectationPanel::setDoNotCodesign(bool doNotCodesign) {
    const Signing signing{doNotCodesign || entry_.neverSigns, entry_.identity};
    summary_->setText(entry_.expectation.packages.empty()
                          ? tr("no packages directly in this folder")
                          : QString::fromStdString(textOf(entry_.expectation, signing)));
    summary_->show();
}
