// SPDX-License-Identifier: GPL-3.0-or-later
#include "intake/document_list_view.h"

#include <QContextMenuEvent>
#include <QCursor>
#include <QDrag>
#include <QDragEnterEvent>
#include <QFileInfo>
#include <QHeaderView>
#include <QMenu>
#include <QMessageBox>
#include <QMimeData>
#include <QApplication>
#include <QPainter>
#include <QStyledItemDelegate>
#include <QUrl>

#include "intake/admission.h"
#include "intake/document_list_model_qt.h"
#include "intake/page_popup_widget.h"

namespace qf::intake {

namespace {

constexpr int kFromColumn = 2;
constexpr int kToColumn = 3;
constexpr int kRangesColumn = 4;
constexpr double kNameColumnShare = 0.40; // "40%" of the list's width
constexpr std::array<int, 7> kColumnWidths = {0, 100, 90, 90, 300, 400, 0};

// The files of an outside drop that may become rows: local files, not folders, with a
// document extension; in the drop's order.
QStringList droppable_files(const QMimeData* mime)
{
    QStringList paths;
    if (mime == nullptr || !mime->hasUrls())
        return paths;
    for (const QUrl& url : mime->urls()) {
        if (!url.isLocalFile())
            continue;
        const QFileInfo info(url.toLocalFile());
        if (info.isDir() || !has_document_extension(info.fileName().toStdString()))
            continue;
        paths.append(info.absoluteFilePath());
    }
    return paths;
}

// The From and To cells carry the arrow of their popup at the right, drawn in the palette's text colour so that it shows in light and dark appearance.
class ListCellDelegate : public QStyledItemDelegate {
public:
    using QStyledItemDelegate::QStyledItemDelegate;

    void paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const override
    {
        QStyledItemDelegate::paint(painter, option, index);
        if (index.column() != kFromColumn && index.column() != kToColumn)
            return;
        QStyleOption arrow;
        arrow.initFrom(option.widget);
        arrow.palette = option.palette;
        arrow.state = option.state;
        const int side = std::min(kArrowSize, option.rect.height());
        arrow.rect = QRect(option.rect.right() - side - 2, option.rect.top() + (option.rect.height() - side) / 2, side,
                           side);
        const QStyle* style = option.widget != nullptr ? option.widget->style() : QApplication::style();
        style->drawPrimitive(QStyle::PE_IndicatorArrowDown, &arrow, painter, option.widget);
    }

private:
    static constexpr int kArrowSize = 16;
};

} // namespace

DocumentListView::DocumentListView(QWidget* parent) : QTreeView(parent), model_(new DocumentListModel(this))
{
    setObjectName(QStringLiteral("Listbox1"));
    setAccessibleName(QStringLiteral("Documents"));
    setModel(model_);
    setRootIsDecorated(false);
    setItemsExpandable(false);
    setUniformRowHeights(true);
    setAllColumnsShowFocus(false); // the focus frame shows the cell that keys act on
    setItemDelegate(new ListCellDelegate(this));
    setSelectionMode(QAbstractItemView::SingleSelection);
    setSelectionBehavior(QAbstractItemView::SelectRows);
    setEditTriggers(QAbstractItemView::EditKeyPressed);
    setDragEnabled(true);
    setAcceptDrops(true);
    setDropIndicatorShown(true);
    setDragDropMode(QAbstractItemView::DragDrop);
    setDragDropOverwriteMode(false);
    setDefaultDropAction(Qt::MoveAction);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAsNeeded);
    setVerticalScrollBarPolicy(Qt::ScrollBarAsNeeded);
    setContextMenuPolicy(Qt::DefaultContextMenu);

    // Cells plain at 13 points (rows take their height from it), the header bold at 14.
    QFont cell_font = font();
    cell_font.setBold(false);
    cell_font.setPointSize(13);
    setFont(cell_font);
    QHeaderView* head = header();
    QFont header_font = cell_font;
    header_font.setBold(true);
    header_font.setPointSize(14);
    head->setFont(header_font);
    head->setStretchLastSection(false);
    head->setSectionsMovable(false);
    head->setSectionResizeMode(QHeaderView::Interactive);
    for (int column = 1; column < DocumentListModel::kColumnCount; ++column)
        head->resizeSection(column, kColumnWidths[static_cast<std::size_t>(column)]);
    setColumnHidden(DocumentListModel::kPasswordColumn, true);

    connect(this, &QTreeView::clicked, this, &DocumentListView::on_clicked);
    connect(selectionModel(), &QItemSelectionModel::selectionChanged, this, [this] {
        theid_ = selected_row();
        emit selectedRowChanged(theid_);
    });
    connect(model_, &QAbstractItemModel::rowsMoved, this, &DocumentListView::follow_selected_row);
    connect(model_, &QAbstractItemModel::rowsRemoved, this, &DocumentListView::follow_selected_row);
    connect(model_, &QAbstractItemModel::rowsInserted, this, &DocumentListView::emit_count);
    connect(model_, &QAbstractItemModel::rowsRemoved, this, &DocumentListView::emit_count);
    connect(model_, &QAbstractItemModel::modelReset, this, &DocumentListView::emit_count);
}

void DocumentListView::add_row(const engine::ListRow& row)
{
    model_->append_row(row);
}

std::vector<engine::ListRow> DocumentListView::list_rows() const
{
    return model_->rows();
}

int DocumentListView::row_count() const
{
    return model_->rowCount();
}

int DocumentListView::selected_row() const
{
    const QModelIndexList rows = selectionModel()->selectedRows();
    return rows.isEmpty() ? -1 : rows.front().row();
}

void DocumentListView::clear_list()
{
    model_->clear_rows();
    follow_selected_row();
}

void DocumentListView::set_loading(bool loading)
{
    setEnabled(!loading);
}

void DocumentListView::emit_count()
{
    emit countChanged(row_count());
}

void DocumentListView::on_clicked(const QModelIndex& index)
{
    if (!index.isValid())
        return;
    if (index.column() == kFromColumn || index.column() == kToColumn)
        open_page_popup(index.row(), index.column());
    else if (index.column() == kRangesColumn)
        edit(index);
}

PagePopup* DocumentListView::open_page_popup(int row, int column)
{
    if (row < 0 || row >= row_count() || (column != kFromColumn && column != kToColumn))
        return nullptr;
    const QModelIndex cell = model_->index(row, column);
    selectionModel()->setCurrentIndex(cell, QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
    const int page_count = model_->index(row, 1).data().toString().toInt();
    auto* popup = new PagePopup(page_count, cell.data().toString().toInt(), this);
    // The row is followed by a persistent index: rows added or moved meanwhile do not redirect the choice.
    const QPersistentModelIndex chosen_cell(cell);
    connect(popup, &PagePopup::pageChosen, this, [this, chosen_cell](int page) {
        if (chosen_cell.isValid())
            apply_page_choice(chosen_cell.row(), chosen_cell.column(), page);
    });
    const QRect rect = visualRect(cell);
    popup->resize(std::max(rect.width(), 90), 240);
    popup->move(viewport()->mapToGlobal(rect.bottomLeft()));
    popup->show();
    return popup;
}

void DocumentListView::apply_page_choice(int row, int column, int page)
{
    const QString message = model_->choose_page(row, column, page);
    if (message.isEmpty())
        return;
    auto* box = new QMessageBox(QMessageBox::NoIcon, QString(), message, QMessageBox::Ok, window());
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setObjectName(QStringLiteral("pageChoiceRefused"));
    box->open();
}

void DocumentListView::contextMenuEvent(QContextMenuEvent* event)
{
    QPoint at = event->globalPos();
    if (event->reason() == QContextMenuEvent::Keyboard) {
        const int row = std::max(selected_row(), 0);
        at = viewport()->mapToGlobal(visualRect(model_->index(row, 0)).center());
    }
    show_context_menu(at);
    event->accept();
}

QMenu* DocumentListView::open_context_menu()
{
    const int row = std::max(selected_row(), 0);
    return show_context_menu(viewport()->mapToGlobal(visualRect(model_->index(row, 0)).center()));
}

QMenu* DocumentListView::show_context_menu(const QPoint& global_position)
{
    auto* menu = new QMenu(this);
    menu->setAttribute(Qt::WA_DeleteOnClose);
    QAction* remove = menu->addAction(QStringLiteral("Delete"));
    remove->setEnabled(selected_row() >= 0);
    connect(remove, &QAction::triggered, this, &DocumentListView::delete_selected_row);
    menu->popup(global_position);
    return menu;
}

void DocumentListView::delete_selected_row()
{
    // The selection follows a moved row, so this is the document the user sees selected.
    const int row = selected_row();
    if (row >= 0)
        model_->removeRows(row, 1);
}

void DocumentListView::follow_selected_row()
{
    // A move or a removal can change the selected row's number without a selection change.
    const int row = selected_row();
    if (row != theid_) {
        theid_ = row;
        emit selectedRowChanged(row);
    }
}

void DocumentListView::keyPressEvent(QKeyEvent* event)
{
    // Shift+F10 opens the context menu as the menu key does.
    if (event->key() == Qt::Key_F10 && event->modifiers() == Qt::ShiftModifier) {
        open_context_menu();
        event->accept();
        return;
    }
    // Space, F4 or Alt+Down on a From or To cell opens its popup, as a click does.
    const QModelIndex current = currentIndex();
    const bool popup_key = event->key() == Qt::Key_Space || event->key() == Qt::Key_F4 ||
                           (event->key() == Qt::Key_Down && event->modifiers() == Qt::AltModifier);
    if (popup_key && current.isValid() && (current.column() == kFromColumn || current.column() == kToColumn)) {
        open_page_popup(current.row(), current.column());
        event->accept();
        return;
    }
    QTreeView::keyPressEvent(event);
}

bool DocumentListView::is_row_drag(const QMimeData* mime)
{
    return mime != nullptr && mime->hasFormat(QString::fromLatin1(DocumentListModel::kRowsMimeType));
}

QModelIndex DocumentListView::moveCursor(CursorAction cursor_action, Qt::KeyboardModifiers modifiers)
{
    // Left and Right go from cell to cell of the row, so that every column is reachable from
    // the keyboard; the hidden password column is passed over.
    const QModelIndex current = currentIndex();
    if ((cursor_action != MoveLeft && cursor_action != MoveRight) || !current.isValid())
        return QTreeView::moveCursor(cursor_action, modifiers);
    const int step = cursor_action == MoveLeft ? -1 : 1;
    for (int column = current.column() + step; column >= 0 && column < model_->columnCount(); column += step)
        if (!isColumnHidden(column))
            return current.siblingAtColumn(column);
    return current;
}

// A drag of files is taken as a copy; anything else that is no row drag is refused.
static void answer_file_drag(QDragMoveEvent* event)
{
    if (event->mimeData() && event->mimeData()->hasUrls()) {
        event->setDropAction(Qt::CopyAction);
        event->accept();
        return;
    }
    event->ignore();
}

void DocumentListView::dragEnterEvent(QDragEnterEvent* event)
{
    if (is_row_drag(event->mimeData())) {
        QTreeView::dragEnterEvent(event);
        return;
    }
    answer_file_drag(event);
}

void DocumentListView::dragMoveEvent(QDragMoveEvent* event)
{
    if (is_row_drag(event->mimeData())) {
        QTreeView::dragMoveEvent(event);
        return;
    }
    answer_file_drag(event);
}

void DocumentListView::dropEvent(QDropEvent* event)
{
    // A drag of rows carries no file: it reorders the list and never loads anything.
    if (is_row_drag(event->mimeData())) {
        QTreeView::dropEvent(event); // the model's dropMimeData moves the row, when it is one of ours
        return;
    }
    const QStringList paths = droppable_files(event->mimeData());
    event->setDropAction(Qt::CopyAction);
    event->accept();
    if (!paths.isEmpty()) {
        setFocus();
        emit filesDropped(paths);
    }
}

void DocumentListView::startDrag(Qt::DropActions supported_actions)
{
    // The drop has moved the row through moveRows; unlike the default, nothing is removed here.
    (void)supported_actions;
    const QModelIndexList rows = selectionModel()->selectedRows();
    if (rows.isEmpty())
        return;
    auto* drag = new QDrag(this);
    drag->setMimeData(model_->mimeData(rows));
    const QRect cell = visualRect(rows.front());
    const QRect row_area(0, cell.top(), viewport()->width(), cell.height());
    drag->setPixmap(viewport()->grab(row_area)); // the row itself follows the pointer
    drag->setHotSpot(viewport()->mapFromGlobal(QCursor::pos()) - row_area.topLeft());
    drag->exec(Qt::MoveAction, Qt::MoveAction);
}

void DocumentListView::resizeEvent(QResizeEvent* event)
{
    QTreeView::resizeEvent(event);
    header()->resizeSection(0, static_cast<int>(viewport()->width() * kNameColumnShare));
}

} // namespace qf::intake
