#include "app/toolkit/ArrayController.h"

#include <QComboBox>
#include <QSignalBlocker>

#include <utility>

std::optional<IdentityList> ArrayController::content() const {
    const std::lock_guard lock(mutex_);
    return content_;
}

void ArrayController::setContent(std::optional<IdentityList> content) {
    {
        const std::lock_guard lock(mutex_);
        content_ = std::move(content);
        selectionIndex_.reset();
    }
    emit contentChanged();
    emit selectionChanged();
}

std::optional<std::size_t> ArrayController::selectionIndex() const {
    const std::lock_guard lock(mutex_);
    return selectionIndex_;
}

void ArrayController::setSelectionIndex(std::size_t index) {
    {
        const std::lock_guard lock(mutex_);
        selectionIndex_.reset();
        if (content_ && index < content_->size())
            selectionIndex_ = index;
    }
    emit selectionChanged();
}

std::vector<IdentityRecord> ArrayController::selectedObjects() const {
    const std::lock_guard lock(mutex_);
    if (!content_ || !selectionIndex_)
        return {};
    return {(*content_)[*selectionIndex_]};
}

void ArrayController::bind(QComboBox& popup, const QString& whyEmpty) {
    const auto showSelection = [this, &popup] {
        const QSignalBlocker blocker(popup);
        if (content())
            popup.setCurrentIndex(static_cast<int>(selectionIndex().value_or(std::size_t(-1))));
    };
    const auto showContent = [this, &popup, whyEmpty, showSelection] {
        const QSignalBlocker blocker(popup);
        const std::optional<IdentityList> list = content();
        popup.clear();
        for (const IdentityRecord& record : list.value_or(IdentityList{}))
            popup.addItem(QString::fromStdString(record.displaystring));
        if (!list)
            popup.addItem(whyEmpty);
        popup.setEnabled(list.has_value());
        showSelection();
    };
    showContent();
    connect(this, &ArrayController::contentChanged, &popup, showContent);
    connect(this, &ArrayController::selectionChanged, &popup, showSelection);
    connect(&popup, &QComboBox::currentIndexChanged, this,
            [this](int index) { setSelectionIndex(static_cast<std::size_t>(index)); });
}
