// SPDX-License-Identifier: GPL-3.0-or-later
#include "preview/preview_pane.h"

#include <QAction>
#include <QApplication>
#include <QComboBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QMenu>
#include <QMessageBox>
#include <QPainter>
#include <QTimer>
#include <QVBoxLayout>
#include <system_error>

#include "preview/page_image_qt.h"

namespace qf::preview {

// The picture well: shows a picture reduced proportionally to fit, never enlarged, centred.
class PictureWell : public QFrame {
public:
    explicit PictureWell(QWidget* parent) : QFrame(parent)
    {
        setFrameStyle(QFrame::StyledPanel | QFrame::Sunken);
        setMinimumSize(100, 100);
        setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
    }
    void set_image(const QImage& image)
    {
        image_ = image;
        update();
    }

protected:
    void paintEvent(QPaintEvent* event) override
    {
        QFrame::paintEvent(event);
        if (image_.isNull()) {
            return;
        }
        const QRect area = contentsRect().adjusted(2, 2, -2, -2);
        QSize size = image_.size();
        if (size.width() > area.width() || size.height() > area.height()) {
            size.scale(area.size(), Qt::KeepAspectRatio);
        }
        const QRect target(area.x() + (area.width() - size.width()) / 2,
                           area.y() + (area.height() - size.height()) / 2, size.width(), size.height());
        QPainter painter(this);
        painter.setRenderHint(QPainter::SmoothPixmapTransform);
        painter.drawImage(target, image_);
    }

private:
    QImage image_;
};

PreviewPane::PreviewPane(QWidget* parent, std::shared_ptr<PictureFetcher> fetcher)
    : QFrame(parent), fetcher_(std::move(fetcher)), gate_(std::make_shared<DeliveryGate>(this))
{
    if (!fetcher_) {
        fetcher_ = std::make_shared<PictureFetcher>(preview_worker_settings());
    }
    setObjectName("RoundRectangle1");
    setFrameStyle(QFrame::StyledPanel | QFrame::Plain);

    previewpic_ = new PictureWell(this);
    previewpic_->setObjectName("previewpic");
    previewpic_->setAccessibleName("Page Preview");
    previewpic_->setContextMenuPolicy(Qt::CustomContextMenu);
    previewpic_->setFocusPolicy(Qt::StrongFocus); // the menu key opens its menu
    label20_ = new QLabel("Page Number", this);
    label20_->setObjectName("Label20");
    viewpageno_ = new QComboBox(this);
    viewpageno_->setObjectName("viewpageno");
    viewpageno_->setAccessibleName("Page Number");
    viewpageno_->setMinimumSize(112, 24);
    QFont bold = viewpageno_->font();
    bold.setBold(true);
    viewpageno_->setFont(bold);
    viewpageno_->addItem("1");
    label20_->setBuddy(viewpageno_);

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(previewpic_, 1);
    auto* foot = new QHBoxLayout;
    foot->addWidget(label20_);
    foot->addWidget(viewpageno_, 1);
    layout->addLayout(foot);

    enlarged_action_ = new QAction("Enlarged View", this);
    enlarged_action_->setEnabled(false);
    connect(enlarged_action_, &QAction::triggered, this, &PreviewPane::enlargedViewRequested);
    connect(previewpic_, &QWidget::customContextMenuRequested, this, &PreviewPane::show_context_menu);
    connect(viewpageno_, &QComboBox::currentIndexChanged, this, &PreviewPane::page_chosen);

    // A live resize asks for one picture when it pauses, not one per step.
    resize_timer_ = new QTimer(this);
    resize_timer_->setSingleShot(true);
    resize_timer_->setInterval(150);
    connect(resize_timer_, &QTimer::timeout, this, &PreviewPane::refresh_for_size);
}

PreviewPane::~PreviewPane()
{
    gate_->close();
    fetcher_->cancel(Channel::Pane);
}

void PreviewPane::show_row(const engine::ListRow& row, int row_index)
{
    didclick_ = false;
    theid_ = row_index;
    enlarged_action_->setEnabled(row_index >= 0);
    const std::filesystem::path file = row_file(row);
    std::error_code error;
    const PopupFill fill = plan_popup(row, std::filesystem::exists(file, error));
    if (fill.file_missing) {
        // The file shown before stays the pane's document; the well and the popup empty.
        empty_well();
        viewpageno_->clear();
        viewpageno_->setEnabled(false);
        auto* message = new QMessageBox(QMessageBox::Warning, QApplication::applicationDisplayName(),
                                        kFileMissingMessage, QMessageBox::Ok, this);
        message->setAttribute(Qt::WA_DeleteOnClose);
        message->open();
        didclick_ = true;
        return;
    }
    thename_ = file;
    shown_row_ = row;
    first_page_.reset();
    QStringList pages;
    pages.reserve(fill.rows);
    for (int page = 1; page <= fill.rows; ++page) {
        pages.append(QString::number(page));
    }
    viewpageno_->clear();
    viewpageno_->addItems(pages);
    viewpageno_->setCurrentIndex(0);
    viewpageno_->setEnabled(fill.enabled);
    request(PictureEvent::Selection, 1);
    emit shownPageChanged();
    didclick_ = true;
}

void PreviewPane::clear()
{
    didclick_ = false;
    thename_.clear();
    theid_ = -1;
    first_page_.reset();
    enlarged_action_->setEnabled(false);
    viewpageno_->clear();
    viewpageno_->addItem("1");
    viewpageno_->setEnabled(false);
    empty_well();
}

std::optional<PreviewPane::ShownPage> PreviewPane::shown_page() const
{
    if (thename_.empty()) {
        return std::nullopt;
    }
    return ShownPage{shown_row_, std::max(1, viewpageno_->currentText().toInt())};
}

void PreviewPane::page_chosen(int index)
{
    if (!didclick_ || thename_.empty() || index < 0) {
        return;
    }
    request(PictureEvent::PageChange, index + 1);
    emit shownPageChanged();
}

void PreviewPane::resizeEvent(QResizeEvent* event)
{
    QFrame::resizeEvent(event);
    if (theid_ >= 0 && !picture_.isNull()) {
        resize_timer_->start();
    }
}

void PreviewPane::refresh_for_size()
{
    if (theid_ < 0 || picture_.isNull() || thename_.empty()) {
        return;
    }
    request(PictureEvent::Resize, std::max(1, viewpageno_->currentText().toInt()));
}

void PreviewPane::request(PictureEvent event, int page)
{
    PictureJob job;
    job.row = shown_row_;
    job.page = page;
    job.event = event;
    job.pane = {previewpic_->width(), previewpic_->height()};
    job.first_page = first_page_;
    awaited_ = fetcher_->submit(Channel::Pane, std::move(job), [gate = gate_, this](FetchedPicture fetched) {
        QImage image = to_qimage(fetched.picture);
        gate->post([this, fetched = std::move(fetched), image = std::move(image)]() mutable {
            take(std::move(fetched), std::move(image));
        });
    });
}

void PreviewPane::take(FetchedPicture fetched, QImage image)
{
    if (fetched.number != awaited_) {
        return; // the selection or the page moved on while it was drawn
    }
    if (fetched.first_page.width > 0) {
        first_page_ = fetched.first_page;
    }
    if (image.isNull()) {
        return; // a page that could not be read leaves the last picture in place
    }
    picture_ = std::move(image);
    shown_request_ = fetched.request;
    previewpic_->set_image(picture_);
    emit pictureShown();
}

void PreviewPane::empty_well()
{
    fetcher_->cancel(Channel::Pane);
    awaited_ = 0;
    picture_ = QImage();
    previewpic_->set_image(picture_);
}

void PreviewPane::show_context_menu(const QPoint& position)
{
    QMenu menu(this);
    menu.addAction(enlarged_action_);
    menu.exec(previewpic_->mapToGlobal(position));
}

} // namespace qf::preview
