#include "app/results/RunModel.h"

#include "app/toolkit/ShownText.h"
#include "core/Path.h"
#include "core/RunSummary.h"

#include <algorithm>
#include <numeric>

namespace {

QString archiveText(const PackageRecord& package) {
    if (!package.archive)
        return hasFailed(package) ? RunModel::tr("no archive") : QString();
    return RunModel::tr("%1, %2").arg(shownLine(lastPathComponent(package.archive->path)),
                                      shownLine(sizeText(package.archive->size)));
}

QString detail(const PackageRecord& package) {
    if (const auto failure = failureOf(package))
        return shownLine(failure->error + " " + failure->remedy);
    const QString archive = archiveText(package);
    const QString signature = shownLine(signatureText(package));
    return archive.isEmpty() ? signature : signature + " · " + archive;
}

QString shown(const PackageRecord& package, int column) {
    switch (column) {
    case RunModel::Package:
        return shownLine(lastPathComponent(package.path));
    case RunModel::Signature:
        return shownLine(signatureText(package));
    case RunModel::Archive:
        return archiveText(package);
    case RunModel::Time:
        return package.steps.empty() || package.state == PackageState::Running
                   ? QString()
                   : shownLine(timeText(secondsOf(package)));
    default:
        return shownLine(stateWord(package));
    }
}

} // namespace

void RunModel::setPackages(std::vector<PackageRecord> packages) {
    beginResetModel();
    packages_ = std::move(packages);
    order_.resize(packages_.size());
    std::iota(order_.begin(), order_.end(), std::size_t{0});
    endResetModel();
}

void RunModel::setPackage(std::size_t row, const PackageRecord& package) {
    if (row >= packages_.size()) {
        if (!std::ranges::is_sorted(order_))
            setPackages(std::move(packages_));
        const int end = rowCount();
        beginInsertRows({}, end, end);
        order_.push_back(packages_.size());
        packages_.push_back(package);
        endInsertRows();
        return;
    }
    packages_[row] = package;
    const int at = static_cast<int>(std::ranges::find(order_, row) - order_.begin());
    emit dataChanged(index(at, 0), index(at, ColumnCount - 1));
}

void RunModel::putFailedFirst() {
    beginResetModel();
    std::stable_partition(order_.begin(), order_.end(),
                          [this](std::size_t row) { return hasFailed(packages_[row]); });
    endResetModel();
}

const PackageRecord& RunModel::package(const QModelIndex& index) const {
    return packages_.at(order_.at(static_cast<std::size_t>(index.row())));
}

int RunModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(order_.size());
}

int RunModel::columnCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : ColumnCount;
}

QVariant RunModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid())
        return {};
    const PackageRecord& record = package(index);
    switch (role) {
    case Qt::DisplayRole:
        return shown(record, index.column());
    case Qt::ToolTipRole:
        return toolTipOf(shownText(messageOf(record)).trimmed());
    case Qt::AccessibleTextRole:
        return u"%1: %2. %3"_qs.arg(shown(record, Package), shown(record, State), detail(record));
    case FailedRole:
        return hasFailed(record);
    case StateRole:
        return static_cast<int>(record.state);
    case DetailRole:
        return detail(record);
    default:
        return {};
    }
}

QVariant RunModel::headerData(int section, Qt::Orientation orientation, int role) const {
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return QAbstractTableModel::headerData(section, orientation, role);
    const QString titles[] = {tr("Package"), tr("Signature"), tr("Archive"), tr("Time"),
                              tr("State")};
    return section < ColumnCount ? titles[section] : QString();
}
