#pragma once

#include "core/RunRecord.h"

#include <QAbstractTableModel>

#include <vector>

/// The packages of one run as a table: what every list of results shows. Main thread.
class RunModel : public QAbstractTableModel {
    Q_OBJECT
public:
    enum Column { Package, Signature, Archive, Time, State, ColumnCount };
    enum Role {
        FailedRole = Qt::UserRole, ///< whether there is something to mend
        StateRole,                 ///< a PackageState as a number
        DetailRole,                ///< one line under the name: what went wrong, or what came of it
    };

    using QAbstractTableModel::QAbstractTableModel;

    void setPackages(std::vector<PackageRecord> packages);
    /// Puts `package` at `row`, at most one behind the last.
    void setPackage(std::size_t row, const PackageRecord& package);
    /// Lists the failed ones first. The next package brings back the order of the run.
    void putFailedFirst();

    [[nodiscard]] const std::vector<PackageRecord>& packages() const { return packages_; }
    /// The index is one of this model.
    [[nodiscard]] const PackageRecord& package(const QModelIndex& index) const;

    [[nodiscard]] int rowCount(const QModelIndex& parent = {}) const override;
    [[nodiscard]] int columnCount(const QModelIndex& parent = {}) const override;
    [[nodiscard]] QVariant data(const QModelIndex& index, int role) const override;
    [[nodiscard]] QVariant headerData(int section, Qt::Orientation orientation,
                                      int role) const override;

private:
    std::vector<PackageRecord> packages_;
    std::vector<std::size_t> order_; ///< which package each row shows
};
