// SPDX-License-Identifier: GPL-3.0-or-later
#include "intake/page_popup_widget.h"

#include <QAbstractListModel>
#include <algorithm>
#include <QKeyEvent>
#include <QListView>
#include <QVBoxLayout>

namespace qf::intake {

namespace {

// "1" to "N", computed per row asked for: nothing is built ahead for a long document.
class PageNumberModel : public QAbstractListModel {
public:
    PageNumberModel(int page_count, QObject* parent) : QAbstractListModel(parent), page_count_(page_count) {}
    int rowCount(const QModelIndex& parent) const override { return parent.isValid() ? 0 : page_count_; }
    QVariant data(const QModelIndex& index, int role) const override
    {
        if (!index.isValid() || (role != Qt::DisplayRole && role != Qt::AccessibleTextRole))
            return {};
        return QString::number(index.row() + 1);
    }

private:
    int page_count_;
};

} // namespace

PagePopup::PagePopup(int page_count, int current_page, QWidget* parent)
    : QFrame(parent, Qt::Popup), choices_(new QListView(this))
{
    setAttribute(Qt::WA_DeleteOnClose);
    setFrameStyle(QFrame::StyledPanel | QFrame::Plain);
    setAccessibleName(QStringLiteral("Pages"));
    choices_->setAccessibleName(QStringLiteral("Pages"));
    choices_->setModel(new PageNumberModel(std::max(page_count, 0), choices_));
    choices_->setUniformItemSizes(true);
    choices_->setEditTriggers(QAbstractItemView::NoEditTriggers);
    choices_->setSelectionMode(QAbstractItemView::SingleSelection);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(choices_);
    connect(choices_, &QListView::clicked, this, [this](const QModelIndex& index) { choose(index.row() + 1); });
    connect(choices_, &QListView::activated, this, [this](const QModelIndex& index) { choose(index.row() + 1); });
    if (page_count > 0) {
        const QModelIndex current = choices_->model()->index(std::clamp(current_page, 1, page_count) - 1, 0);
        choices_->setCurrentIndex(current);
        choices_->scrollTo(current, QAbstractItemView::PositionAtCenter);
    }
    choices_->setFocus();
}

int PagePopup::page_count() const
{
    return choices_->model()->rowCount();
}

void PagePopup::choose(int page)
{
    if (chosen_ || page < 1 || page > page_count())
        return;
    chosen_ = true;
    // Closed first: the choice may show a message box, which must not sit under the popup.
    hide();
    emit pageChosen(page);
    close();
}

} // namespace qf::intake
