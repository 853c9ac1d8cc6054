// SPDX-License-Identifier: GPL-3.0-or-later
#include "preview/enlarged_view.h"

#include <QPainter>
#include <QPushButton>
#include <QScrollArea>
#include <QShortcut>
#include <algorithm>
#include <cmath>

#include "preview/page_image_qt.h"
#include "preview/preview_pane.h"

namespace qf::preview {
namespace {

constexpr double kZoomStep = 1.25;
constexpr double kLeastZoom = 0.25;
constexpr double kMostZoom = 8.0;
// The steps that reach the bounds: 1.25^-7 is below 25 %, 1.25^10 above 800 %.
constexpr int kLeastStep = -7;
constexpr int kMostStep = 10;
// The longest side of a picture the view asks for, in pixels.
constexpr double kLargestSide = 16384;

double zoom_of(int step)
{
    return std::clamp(std::pow(kZoomStep, step), kLeastZoom, kMostZoom);
}

} // namespace

// The page at the view's zoom. One unit of the page is one logical pixel at 100 %: a point of
// a PDF page, a pixel of a TIFF image.
class PageCanvas : public QWidget {
public:
    explicit PageCanvas(QWidget* parent) : QWidget(parent) { setAccessibleName("Full Page View"); }

    void set_image(const QImage& image, double units_per_pixel)
    {
        image_ = image;
        units_per_pixel_ = units_per_pixel;
        fit();
    }
    void set_zoom(double zoom)
    {
        zoom_ = zoom;
        fit();
    }
    const QImage& image() const { return image_; }
    // The longer side of the page in units; 0 before the first picture.
    double page_side() const { return std::max(image_.width(), image_.height()) * units_per_pixel_; }

protected:
    void paintEvent(QPaintEvent*) override
    {
        QPainter painter(this);
        painter.fillRect(rect(), Qt::white);
        if (!image_.isNull()) {
            painter.setRenderHint(QPainter::SmoothPixmapTransform);
            painter.drawImage(rect(), image_);
        }
    }

private:
    void fit()
    {
        const double factor = units_per_pixel_ * zoom_;
        setFixedSize(std::max(1, static_cast<int>(std::lround(image_.width() * factor))),
                     std::max(1, static_cast<int>(std::lround(image_.height() * factor))));
        update();
    }

    QImage image_;
    double units_per_pixel_ = 1;
    double zoom_ = 1;
};

EnlargedView::EnlargedView(PreviewPane& pane, QWidget* parent)
    : QWidget(parent, Qt::Tool | Qt::CustomizeWindowHint | Qt::WindowTitleHint | Qt::WindowCloseButtonHint |
                          Qt::WindowMaximizeButtonHint),
      pane_(&pane), fetcher_(pane.fetcher()), gate_(std::make_shared<DeliveryGate>(this))
{
    setObjectName("previewwindow");
    setWindowTitle("Full Page View");
    resize(912, 482);

    imagepreview_ = new QScrollArea(this);
    imagepreview_->setObjectName("imagepreview");
    imagepreview_->setAlignment(Qt::AlignCenter);
    imagepreview_->setBackgroundRole(QPalette::Dark);
    canvas_ = new PageCanvas(imagepreview_);
    imagepreview_->setWidget(canvas_);

    QFont bold = font();
    bold.setBold(true);
    const auto make_button = [&](const char* caption, const char* tip, const char* name) {
        auto* button = new QPushButton(caption, this);
        button->setObjectName(name);
        button->setFont(bold);
        button->setToolTip(tip);
        button->setAccessibleName(tip);
        button->setFixedSize(22, 33);
        return button;
    };
    pubup_ = make_button("+", "Zoom In", "pubup");
    pubdown_ = make_button("-", "Zoom Out", "pubdown");
    connect(pubup_, &QPushButton::clicked, this, &EnlargedView::zoom_in);
    connect(pubdown_, &QPushButton::clicked, this, &EnlargedView::zoom_out);
    connect(new QShortcut(QKeySequence::ZoomIn, this), &QShortcut::activated, this, &EnlargedView::zoom_in);
    connect(new QShortcut(QKeySequence::ZoomOut, this), &QShortcut::activated, this, &EnlargedView::zoom_out);
    connect(&pane, &PreviewPane::shownPageChanged, this, &EnlargedView::follow_pane);
    set_zoom_step(0);
}

EnlargedView::~EnlargedView()
{
    gate_->close();
    fetcher_->cancel(Channel::Enlarged);
}

void EnlargedView::open_view()
{
    request_page();
    show();
    raise();
    activateWindow();
}

double EnlargedView::zoom() const
{
    return zoom_of(zoom_step_);
}

QImage EnlargedView::picture() const
{
    return canvas_->image();
}

void EnlargedView::zoom_in()
{
    if (zoom() < kMostZoom) {
        set_zoom_step(zoom_step_ + 1);
    }
}

void EnlargedView::zoom_out()
{
    if (zoom() > kLeastZoom) {
        set_zoom_step(zoom_step_ - 1);
    }
}

void EnlargedView::set_zoom_step(int step)
{
    const bool changed = step != zoom_step_;
    zoom_step_ = std::clamp(step, kLeastStep, kMostStep);
    pubup_->setEnabled(zoom() < kMostZoom);
    pubdown_->setEnabled(zoom() > kLeastZoom);
    canvas_->set_zoom(zoom());
    // A PDF page is drawn again for the new zoom; meanwhile the last picture is scaled.
    if (changed && isVisible() && shown_request_.type == DocumentType::Pdf) {
        request_page();
    }
}

void EnlargedView::resizeEvent(QResizeEvent* event)
{
    QWidget::resizeEvent(event);
    const int buttons_left = width() - pubup_->width();
    imagepreview_->setGeometry(0, 0, buttons_left, height());
    pubup_->move(buttons_left, 13);
    pubdown_->move(buttons_left, 50);
}

void EnlargedView::follow_pane()
{
    if (isVisible()) {
        request_page();
    }
}

void EnlargedView::request_page()
{
    if (pane_ == nullptr) {
        return;
    }
    const auto shown = pane_->shown_page();
    if (!shown) {
        // Nothing is selected: the pane's last picture, if any, is what there is to show.
        if (!pane_->picture().isNull() && canvas_->image().isNull()) {
            canvas_->set_image(pane_->picture(), 1.0);
        }
        return;
    }
    PictureJob job;
    job.row = shown->row;
    job.page = shown->page;
    job.event = PictureEvent::Enlarged;
    job.pixels_per_point = zoom() * devicePixelRatioF();
    // A page so large at this zoom that its picture would pass kLargestSide pixels is drawn at
    // the largest scale that stays within it, and enlarged on screen.
    const double page_side = canvas_->page_side();
    if (page_side > 0 && page_side * job.pixels_per_point > kLargestSide) {
        job.pixels_per_point = kLargestSide / page_side;
    }
    awaited_ = fetcher_->submit(Channel::Enlarged, std::move(job), [gate = gate_, this](FetchedPicture fetched) {
        QImage image = to_qimage(fetched.picture);
        gate->post([this, fetched = std::move(fetched), image = std::move(image)]() mutable {
            take(std::move(fetched), std::move(image));
        });
    });
}

void EnlargedView::take(FetchedPicture fetched, QImage image)
{
    if (fetched.number != awaited_ || image.isNull()) {
        return; // superseded, or unreadable: the view keeps what it shows
    }
    shown_request_ = fetched.request;
    const double units_per_pixel = fetched.request.scale > 0 ? 1.0 / fetched.request.scale : 1.0;
    canvas_->set_image(image, units_per_pixel);
    emit pictureShown();
}

} // namespace qf::preview
