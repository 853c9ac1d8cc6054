// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QImage>
#include <QPointer>
#include <QWidget>
#include <cstdint>
#include <memory>

#include "preview/picture_fetcher.h"
#include "preview/picture_request.h"

class QPushButton;
class QScrollArea;

namespace qf::preview {

class DeliveryGate;
class PageCanvas;
class PreviewPane;

// "Full Page View" (previewwindow): the pane's page in a floating window of its own, with zoom
// buttons from 25 % to 800 % in steps of 1.25 times. It draws the page itself at the zoom
// shown, through the pane's fetcher, so a PDF page stays sharp at any zoom; a TIFF page is
// read whole once and scaled. While open it follows the pane's selection and page changes.
// GUI thread only.
class EnlargedView : public QWidget {
    Q_OBJECT
public:
    // A window over `parent` (the main window) that follows `pane` while both live.
    explicit EnlargedView(PreviewPane& pane, QWidget* parent = nullptr);
    ~EnlargedView() override;

    // The "Enlarged View" command: reads the pane's page and shows the window.
    void open_view();

    double zoom() const;
    QImage picture() const;
    const PictureRequest& shown_request() const { return shown_request_; }
    QPushButton* zoom_in_button() const { return pubup_; }
    QPushButton* zoom_out_button() const { return pubdown_; }

    void zoom_in();
    void zoom_out();

signals:
    // A new picture is shown.
    void pictureShown();

protected:
    void resizeEvent(QResizeEvent* event) override;

private:
    void follow_pane();
    void request_page();
    void set_zoom_step(int step);
    void take(FetchedPicture fetched, QImage image);

    QPointer<PreviewPane> pane_;
    std::shared_ptr<PictureFetcher> fetcher_;
    std::shared_ptr<DeliveryGate> gate_;
    QScrollArea* imagepreview_ = nullptr;
    PageCanvas* canvas_ = nullptr;
    QPushButton* pubup_ = nullptr;
    QPushButton* pubdown_ = nullptr;
    int zoom_step_ = 0;               // the zoom is 1.25 to this power, within 25 % and 800 %
    PictureRequest shown_request_;
    std::uint64_t awaited_ = 0;
};

} // namespace qf::preview
