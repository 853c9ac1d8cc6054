// SPDX-License-Identifier: GPL-3.0-or-later
#include "intake/document_list_model_qt.h"

#include <QCoreApplication>
#include <QDataStream>
#include <QIODevice>
#include <QMimeData>
#include <algorithm>
#include <array>

#include "intake/range_editing.h"

namespace qf::intake {

namespace {

constexpr std::array<const char*, DocumentListModel::kColumnCount> kHeaders = {
    "Filenames", "Total Pages", "From", "To", "Page Ranges", "Absolute Filepath", ""};

QString cell_text(const engine::ListRow& row, int column)
{
    return QString::fromStdString(row.cells[static_cast<std::size_t>(column)]);
}

Qt::Alignment column_alignment(int column)
{
    switch (column) {
    case 1:
        return Qt::AlignRight | Qt::AlignVCenter;
    case 2:
    case 3:
        return Qt::AlignHCenter | Qt::AlignVCenter;
    default:
        return Qt::AlignLeft | Qt::AlignVCenter;
    }
}

} // namespace

QByteArray DocumentListModel::drag_origin() const
{
    return QByteArray::number(QCoreApplication::applicationPid()) + ':' +
           QByteArray::number(reinterpret_cast<quintptr>(this));
}

DocumentListModel::DocumentListModel(QObject* parent) : QAbstractTableModel(parent) {}

void DocumentListModel::append_row(const engine::ListRow& row)
{
    const int at = static_cast<int>(rows_.size());
    beginInsertRows({}, at, at);
    rows_.push_back(row);
    endInsertRows();
}

void DocumentListModel::clear_rows()
{
    beginResetModel();
    rows_.clear();
    endResetModel();
}

int DocumentListModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : static_cast<int>(rows_.size());
}

int DocumentListModel::columnCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : kColumnCount;
}

QVariant DocumentListModel::data(const QModelIndex& index, int role) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid))
        return {};
    const engine::ListRow& row = rows_[static_cast<std::size_t>(index.row())];
    switch (role) {
    case kPasswordRole:
        return cell_text(row, kPasswordColumn);
    case kTileMarkRole:
        return QString::fromStdString(row.tag);
    case Qt::TextAlignmentRole:
        return QVariant::fromValue(column_alignment(index.column()));
    case Qt::DisplayRole:
    case Qt::EditRole:
    case Qt::AccessibleTextRole:
        if (index.column() == kPasswordColumn)
            return {};
        return cell_text(row, index.column());
    default:
        return {};
    }
}

QMap<int, QVariant> DocumentListModel::itemData(const QModelIndex& index) const
{
    // What copies and generic drags carry: the visible text, never the password or the tag.
    QMap<int, QVariant> roles;
    const QVariant text = data(index, Qt::DisplayRole);
    if (text.isValid())
        roles.insert(Qt::DisplayRole, text);
    return roles;
}

bool DocumentListModel::setData(const QModelIndex& index, const QVariant& value, int role)
{
    if (role != Qt::EditRole || !checkIndex(index, CheckIndexOption::IndexIsValid) || index.column() != 4)
        return false;
    commit_page_ranges(index.row(), value.toString());
    return true;
}

QVariant DocumentListModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || section < 0 || section >= kColumnCount)
        return QAbstractTableModel::headerData(section, orientation, role);
    switch (role) {
    case Qt::DisplayRole:
    case Qt::AccessibleTextRole:
        return QString::fromLatin1(kHeaders[static_cast<std::size_t>(section)]);
    default:
        return {};
    }
}

Qt::ItemFlags DocumentListModel::flags(const QModelIndex& index) const
{
    if (!index.isValid())
        return Qt::ItemIsDropEnabled; // drops land between rows, never on one
    if (index.column() == kPasswordColumn)
        return Qt::NoItemFlags;
    Qt::ItemFlags flags = Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsDragEnabled | Qt::ItemNeverHasChildren;
    if (index.column() == 4)
        flags |= Qt::ItemIsEditable;
    return flags;
}

bool DocumentListModel::removeRows(int row, int count, const QModelIndex& parent)
{
    if (parent.isValid() || row < 0 || count <= 0 || row + count > rowCount())
        return false;
    beginRemoveRows({}, row, row + count - 1);
    rows_.erase(rows_.begin() + row, rows_.begin() + row + count);
    endRemoveRows();
    return true;
}

bool DocumentListModel::moveRows(const QModelIndex& source_parent, int source_row, int count,
                                 const QModelIndex& destination_parent, int destination_child)
{
    const int size = rowCount();
    if (source_parent.isValid() || destination_parent.isValid() || count <= 0 || source_row < 0 ||
        source_row + count > size || destination_child < 0 || destination_child > size)
        return false;
    if (destination_child >= source_row && destination_child <= source_row + count)
        return false; // onto itself: no move
    if (!beginMoveRows({}, source_row, source_row + count - 1, {}, destination_child))
        return false;
    const auto first = rows_.begin() + source_row;
    const auto last = first + count;
    if (destination_child < source_row)
        std::rotate(rows_.begin() + destination_child, first, last);
    else
        std::rotate(first, last, rows_.begin() + destination_child);
    endMoveRows();
    return true;
}

Qt::DropActions DocumentListModel::supportedDropActions() const
{
    return Qt::MoveAction;
}

Qt::DropActions DocumentListModel::supportedDragActions() const
{
    return Qt::MoveAction;
}

QStringList DocumentListModel::mimeTypes() const
{
    return {QString::fromLatin1(kRowsMimeType)};
}

QMimeData* DocumentListModel::mimeData(const QModelIndexList& indexes) const
{
    QList<int> rows;
    for (const QModelIndex& index : indexes)
        if (index.isValid() && !rows.contains(index.row()))
            rows.append(index.row());
    std::sort(rows.begin(), rows.end());
    QByteArray encoded;
    QDataStream stream(&encoded, QIODevice::WriteOnly);
    stream << drag_origin() << rows;
    auto* mime = new QMimeData;
    mime->setData(QString::fromLatin1(kRowsMimeType), encoded);
    return mime;
}

bool DocumentListModel::dropMimeData(const QMimeData* data, Qt::DropAction action, int row, int column,
                                     const QModelIndex& parent)
{
    (void)column;
    if (action != Qt::MoveAction || data == nullptr || !data->hasFormat(QString::fromLatin1(kRowsMimeType)))
        return false;
    QList<int> rows;
    QByteArray origin;
    QDataStream stream(data->data(QString::fromLatin1(kRowsMimeType)));
    stream >> origin >> rows;
    // Row numbers mean something only to the list they came from; one row is dragged at a time.
    if (stream.status() != QDataStream::Ok || origin != drag_origin() || rows.size() != 1)
        return false;
    int destination = row;
    if (parent.isValid())
        destination = parent.row();
    if (destination < 0 || destination > rowCount())
        destination = rowCount();
    return moveRows({}, rows.front(), 1, {}, destination);
}

void DocumentListModel::commit_page_ranges(int row, const QString& text)
{
    if (row < 0 || row >= rowCount())
        return;
    engine::ListRow& target = rows_[static_cast<std::size_t>(row)];
    target.cells[4] = text.toStdString();
    finish_range_edit(target);
    const QModelIndex cell = index(row, 4);
    emit dataChanged(cell, cell, {Qt::DisplayRole, Qt::EditRole});
}

QString DocumentListModel::choose_page(int row, int column, int page)
{
    if (row < 0 || row >= rowCount())
        return {};
    engine::ListRow& target = rows_[static_cast<std::size_t>(row)];
    const PageChoice choice = intake::choose_page(target, column, page);
    if (!choice.accepted)
        return QString::fromStdString(choice.message);
    emit dataChanged(index(row, 2), index(row, 4), {Qt::DisplayRole, Qt::EditRole});
    return {};
}

} // namespace qf::intake
