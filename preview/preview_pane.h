// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QFrame>
#include <QImage>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>

#include "engine/run_model.h"
#include "preview/picture_fetcher.h"
#include "preview/picture_request.h"

class QAction;
class QComboBox;
class QLabel;
class QTimer;

namespace qf::preview {

class DeliveryGate;
class PictureWell;

// The preview side of the document list (RoundRectangle1): the picture well `previewpic`, the
// caption "Page Number" and the page popup `viewpageno`. It reads nothing itself: every
// picture is drawn by the fetcher's worker, and one that arrives after the selection or the
// page moved on is dropped. GUI thread only.
class PreviewPane : public QFrame {
    Q_OBJECT
public:
    // `fetcher` draws the pictures; when none is given the pane starts one of its own with the
    // default worker.
    explicit PreviewPane(QWidget* parent = nullptr, std::shared_ptr<PictureFetcher> fetcher = {});
    ~PreviewPane() override;

    // A row of the list was selected (goshow): its first page, and the popup refilled with its
    // pages without a second picture. A file that is gone empties the pane and the popup and
    // says so.
    void show_row(const engine::ListRow& row, int row_index);
    // The list was cleared: an empty pane, the popup back to its single row "1".
    void clear();

    // The page the pane shows, for the enlarged view: the row and the popup's page. None before
    // the first row and after clear().
    struct ShownPage {
        engine::ListRow row;
        int page = 1;
    };
    std::optional<ShownPage> shown_page() const;

    const std::shared_ptr<PictureFetcher>& fetcher() const { return fetcher_; }
    QImage picture() const { return picture_; }
    // The request of the picture in the well.
    const PictureRequest& shown_request() const { return shown_request_; }
    QComboBox* page_popup() const { return viewpageno_; }
    QAction* enlarged_view_action() const { return enlarged_action_; }

signals:
    // The context menu's "Enlarged View" was chosen.
    void enlargedViewRequested();
    // Another document or page is shown (selection, page popup); not on a resize.
    void shownPageChanged();
    // A new picture is in the well.
    void pictureShown();

protected:
    void resizeEvent(QResizeEvent* event) override;

private:
    void page_chosen(int index);
    void refresh_for_size();
    void request(PictureEvent event, int page);
    void take(FetchedPicture fetched, QImage image);
    void empty_well();
    void show_context_menu(const QPoint& position);

    std::shared_ptr<PictureFetcher> fetcher_;
    std::shared_ptr<DeliveryGate> gate_;
    PictureWell* previewpic_ = nullptr;
    QLabel* label20_ = nullptr;
    QComboBox* viewpageno_ = nullptr;
    QAction* enlarged_action_ = nullptr;
    QTimer* resize_timer_ = nullptr;

    std::filesystem::path thename_;          // the file shown; empty when none
    engine::ListRow shown_row_;              // the row of thename_ (password in cell 6)
    int theid_ = -1;                         // the row shown; -1 before any and after clear()
    bool didclick_ = false;                  // false while show_row refills the popup
    std::optional<FirstPage> first_page_;    // what the reader told of the shown document
    QImage picture_;
    PictureRequest shown_request_;
    std::uint64_t awaited_ = 0;              // the number of the picture the pane waits for
};

} // namespace qf::preview
