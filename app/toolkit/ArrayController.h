#pragma once

#include "core/Identities.h"

#include <QObject>
#include <QString>

#include <cstddef>
#include <mutex>
#include <optional>
#include <vector>

class QComboBox;

/// The identity list and which record of it is selected. Reads: any thread. All else: main thread.
class ArrayController : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;

    /// None when there is no list at all, which is not the same as an empty one.
    [[nodiscard]] std::optional<IdentityList> content() const;
    /// Nothing is selected afterwards.
    void setContent(std::optional<IdentityList> content);

    /// None when nothing is selected.
    [[nodiscard]] std::optional<std::size_t> selectionIndex() const;
    /// An index past the last record selects nothing.
    void setSelectionIndex(std::size_t index);
    /// The selected record as a list of one; empty when nothing is selected.
    [[nodiscard]] std::vector<IdentityRecord> selectedObjects() const;

    /// Shows the list in `popup` by its display strings and keeps the two selections equal, for the
    /// life of the popup. While there is no list the popup is disabled and shows `whyEmpty`.
    /// The popup's signal activated() comes when the selection here is set already.
    void bind(QComboBox& popup, const QString& whyEmpty);

signals:
    void contentChanged();
    void selectionChanged();

private:
    mutable std::mutex mutex_;
    std::optional<IdentityList> content_;
    std::optional<std::size_t> selectionIndex_;
};
