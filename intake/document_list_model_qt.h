// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QAbstractTableModel>
#include <vector>

#include "engine/run_model.h"

// The store behind Listbox1: between runs no other table of documents exists. A row is the
// seven cells of a ListRow and its tag (the tile marker). Column 6, the password, shows
// nothing in any role a view, an assistive client, a drag or the clipboard reads: it is only
// given out through kPasswordRole, which the run and the preview ask for by name.
namespace qf::intake {

class DocumentListModel : public QAbstractTableModel {
    Q_OBJECT
public:
    static constexpr int kColumnCount = 7;
    static constexpr int kPasswordColumn = 6;
    static constexpr int kTileMarkRole = Qt::UserRole + 1; // the row tag: "tiled~yes" or "tiled~no"
    static constexpr int kPasswordRole = Qt::UserRole + 2; // cell 6, on any column of the row
    // The MIME type of a row-reordering drag: the list it came from and the row numbers, never a cell.
    static constexpr const char* kRowsMimeType = "application/x-quirefold-list-rows";

    explicit DocumentListModel(QObject* parent = nullptr);

    void append_row(const engine::ListRow& row);
    const std::vector<engine::ListRow>& rows() const { return rows_; }
    void clear_rows();

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QMap<int, QVariant> itemData(const QModelIndex& index) const override;
    bool setData(const QModelIndex& index, const QVariant& value, int role) override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;
    bool removeRows(int row, int count, const QModelIndex& parent = {}) override;
    // Moves rows whole (cells, tile mark, password): the only way the order of rows changes.
    bool moveRows(const QModelIndex& source_parent, int source_row, int count, const QModelIndex& destination_parent,
                  int destination_child) override;

    Qt::DropActions supportedDropActions() const override;
    Qt::DropActions supportedDragActions() const override;
    QStringList mimeTypes() const override;
    QMimeData* mimeData(const QModelIndexList& indexes) const override;
    // A drop of this list's own rows: moves them before `row` (the end when -1), or before
    // `parent`'s row when dropped on a row.
    bool dropMimeData(const QMimeData* data, Qt::DropAction action, int row, int column,
                      const QModelIndex& parent) override;

    // Page Ranges committed from the in-place editor: written, then normalised (checkrange).
    // From and To are left alone.
    void commit_page_ranges(int row, const QString& text);
    // A page chosen in the From (2) or To (3) popup; the refusal message, empty when accepted.
    QString choose_page(int row, int column, int page);

private:
    QByteArray drag_origin() const; // names this list in its drags, within this process

    std::vector<engine::ListRow> rows_;
};

} // namespace qf::intake
