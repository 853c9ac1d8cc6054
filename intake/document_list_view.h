// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QStringList>
#include <QTreeView>
#include <vector>

#include "engine/run_model.h"

class QMenu;
class QMimeData;

// Listbox1: the document list of the File Listing tab. Seven columns over a DocumentListModel;
// the tile marker is row data and the password lives in a role that nothing shows. One row is
// selected at a time; rows are reordered by dragging, a row always moving whole. A click on
// From or To opens the page popup, a click on Page Ranges edits it in place. From the
// keyboard: Left and Right move between cells, Space, F4 or Alt+Down open a From or To
// popup, F2 edits Page Ranges, the menu key or Shift+F10 open the "Delete" menu.
namespace qf::intake {

class DocumentListModel;
class PagePopup;

class DocumentListView : public QTreeView {
    Q_OBJECT
public:
    explicit DocumentListView(QWidget* parent = nullptr);

    void add_row(const engine::ListRow& row);       // appends a row as admission reports it
    std::vector<engine::ListRow> list_rows() const; // every row in order (cells, password, tag), for a run
    int row_count() const;
    int selected_row() const; // -1 when none
    void clear_list();        // Clear List
    void set_loading(bool loading); // disabled while documents are admitted

    DocumentListModel* list_model() const { return model_; }
    // Opens the From (2) or To (3) popup of a row below its cell, after selecting the row; a
    // choice goes through the popup's pageChosen. Null for other columns or rows.
    PagePopup* open_page_popup(int row, int column);
    // The "Delete" context menu at the selected row's cell (the keyboard's menu key does this too).
    QMenu* open_context_menu();

signals:
    void countChanged(int rows);                 // after every change: the window sets noofphotos
    void selectedRowChanged(int row);            // the preview will follow it
    void filesDropped(const QStringList& paths); // a drop of files (never a row move)

protected:
    void contextMenuEvent(QContextMenuEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    QModelIndex moveCursor(CursorAction cursor_action, Qt::KeyboardModifiers modifiers) override;
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dragMoveEvent(QDragMoveEvent* event) override;
    void dropEvent(QDropEvent* event) override;
    void startDrag(Qt::DropActions supported_actions) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    void on_clicked(const QModelIndex& index);
    void apply_page_choice(int row, int column, int page);
    void delete_selected_row();
    void follow_selected_row();
    static bool is_row_drag(const QMimeData* mime);
    QMenu* show_context_menu(const QPoint& global_position);
    void emit_count();

    DocumentListModel* model_;
    int theid_ = -1; // the selected row as last reported by selectedRowChanged
};

} // namespace qf::intake
