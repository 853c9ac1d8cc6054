// SPDX-License-Identifier: GPL-3.0-or-later
#include "settings/settings_tab.h"

#include <QCheckBox>
#include <QComboBox>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QRegularExpressionValidator>
#include <QSignalBlocker>
#include <QSlider>
#include <QVBoxLayout>

#include "engine/text_rules.h"
#include "settings/option_controls_qt.h"
#include "settings/option_table.h"

namespace qf::settings {
namespace {

using engine::OptionId;

constexpr const char* kZoomNote =
    "The Higher the Zoom Factor, the sharper the TIFF, PNG and JPEG output display would be when "
    "zooming in. ";
constexpr const char* kTextNote =
    "* Note : When setting the Image Format to \"Text\", the app will extract any embedded text "
    "within the PDF file. Currently, this is a beta feature and currently does not support OCR for "
    "scanned documents.\n\nOnly the text is extracted and no formatting is applied. ";

// The notes stand in a smaller type than the controls they explain.
void make_note(QLabel* note)
{
    QFont font = note->font();
    font.setPointSizeF(font.pointSizeF() - 1.5);
    note->setFont(font);
    note->setWordWrap(true);
}

QGroupBox* group(const QString& title, QWidget* parent)
{
    auto* box = new QGroupBox(title, parent);
    box->setAccessibleName(title);
    return box;
}

// A field takes the caption of the label beside it as its accessible name.
QLabel* label_for(const QString& caption, QWidget* field, QWidget* parent)
{
    auto* label = new QLabel(caption, parent);
    label->setBuddy(field);
    field->setAccessibleName(caption);
    return label;
}

QComboBox* popup_for(OptionId id, QWidget* parent)
{
    auto* popup = new QComboBox(parent);
    const OptionSpec& spec = option_spec(id);
    popup->setObjectName(QString::fromUtf8(spec.control.data(), static_cast<int>(spec.control.size())));
    for (const std::string_view row : spec.rows()) {
        popup->addItem(QString::fromUtf8(row.data(), static_cast<int>(row.size())));
    }
    popup->setCurrentIndex(spec.initial.row);
    return popup;
}

QLineEdit* field_for(OptionId id, QWidget* parent)
{
    const OptionSpec& spec = option_spec(id);
    auto* field = new QLineEdit(QString::fromUtf8(spec.initial.text.data(), static_cast<int>(spec.initial.text.size())),
                                parent);
    field->setObjectName(QString::fromUtf8(spec.control.data(), static_cast<int>(spec.control.size())));
    return field;
}

// A check box's accessible name is its own caption, which Qt gives it.
QCheckBox* box_for(OptionId id, const QString& caption, QWidget* parent)
{
    const OptionSpec& spec = option_spec(id);
    auto* box = new QCheckBox(caption, parent);
    box->setObjectName(QString::fromUtf8(spec.control.data(), static_cast<int>(spec.control.size())));
    box->setChecked(spec.initial.on);
    return box;
}

void add_row(QGridLayout* grid, QLabel* label, QWidget* control)
{
    const int row = grid->rowCount();
    grid->addWidget(label, row, 0);
    grid->addWidget(control, row, 1);
}

} // namespace

SettingsTab::SettingsTab(OptionControls& controls, QWidget* parent) : QWidget(parent)
{
    build_general(controls);
    build_tiff(controls);
    build_pdf(controls);
    auto* left = new QVBoxLayout;
    left->addWidget(findChild<QGroupBox*>("GroupBox2"));
    left->addWidget(findChild<QGroupBox*>("GroupBox1"), 1);
    auto* columns = new QHBoxLayout(this);
    columns->setContentsMargins(6, 6, 6, 6);
    columns->addLayout(left, 1);
    columns->addWidget(findChild<QGroupBox*>("GroupBox3"), 1);
}

void SettingsTab::build_general(OptionControls& controls)
{
    QGroupBox* box = group("General Settings", this);
    box->setObjectName("GroupBox2");
    auto* grid = new QGridLayout(box);
    grid->setVerticalSpacing(3);

    QComboBox* imageformat = popup_for(OptionId::imageformat, box);
    add_row(grid, label_for("Image Format", imageformat, box), imageformat);
    QComboBox* zeropadding = popup_for(OptionId::ZeroPadding, box);
    add_row(grid, label_for("Filename Zero Padding", zeropadding, box), zeropadding);
    QLineEdit* combinedfilename = field_for(OptionId::combinedfilename, box);
    add_row(grid, label_for("Combined Filename", combinedfilename, box), combinedfilename);

    qualityslider_ = new QSlider(Qt::Horizontal, box);
    qualityslider_->setObjectName("qualityslider");
    qualityslider_->setRange(10, 100);
    qualityslider_->setSingleStep(1);
    qualityslider_->setPageStep(5);
    qualityslider_->setTracking(true);
    qualityslider_->setTickPosition(QSlider::TicksBelow);
    qualityslider_->setTickInterval(5);
    qualityslider_->setValue(75);
    jpgquality_ = field_for(OptionId::jpgquality, box);
    jpgquality_->setReadOnly(true);
    jpgquality_->setMaxLength(3);
    jpgquality_->setAlignment(Qt::AlignRight);
    jpgquality_->setFixedWidth(jpgquality_->fontMetrics().horizontalAdvance("0000") + 12);
    QLabel* quality_label = label_for("JPG Quality %", qualityslider_, box);
    jpgquality_->setAccessibleName("JPG Quality %");
    auto* quality_row = new QHBoxLayout;
    quality_row->addWidget(qualityslider_, 1);
    quality_row->addWidget(jpgquality_);
    const int quality_at = grid->rowCount();
    grid->addWidget(quality_label, quality_at, 0);
    grid->addLayout(quality_row, quality_at, 1);
    connect(qualityslider_, &QSlider::valueChanged, jpgquality_,
            [this](int value) { jpgquality_->setText(QString::number(value)); });
    connect(jpgquality_, &QLineEdit::editingFinished, this, [this] {
        qualityslider_->setValue(engine::whole_val(jpgquality_->text().toStdString()));
    });

    QLineEdit* dotsperinch = field_for(OptionId::DotsPerInch, box);
    dotsperinch->setMaxLength(4);
    dotsperinch->setAlignment(Qt::AlignRight);
    dotsperinch->setValidator(new QRegularExpressionValidator(QRegularExpression("[0-9]{0,4}"), dotsperinch));
    dotsperinch->setFixedWidth(dotsperinch->fontMetrics().horizontalAdvance("000000") + 12);
    add_row(grid, label_for("Dots Per Inch", dotsperinch, box), dotsperinch);
    grid->setAlignment(dotsperinch, Qt::AlignLeft);

    QComboBox* zoomfactor = popup_for(OptionId::zoomfactor, box);
    add_row(grid, label_for("Zoom Factor", zoomfactor, box), zoomfactor);
    auto* zoom_note = new QLabel(kZoomNote, box);
    zoom_note->setObjectName("Label32");
    make_note(zoom_note);
    // A wrapped label inside a grid is given one line unless it asks for its two.
    zoom_note->setMinimumHeight(2 * zoom_note->fontMetrics().lineSpacing() + 2);
    grid->addWidget(zoom_note, grid->rowCount(), 1);

    QCheckBox* combineall = box_for(OptionId::combineall, "Yes (For Multipage PDF && TIFF Only)", box);
    QLabel* combine_label = new QLabel("Combine Documents", box);
    combine_label->setBuddy(combineall);
    combineall->setAccessibleDescription("Combine Documents");
    add_row(grid, combine_label, combineall);
    grid->setColumnStretch(1, 1);

    controls.add(OptionId::imageformat, imageformat);
    controls.add(OptionId::ZeroPadding, zeropadding);
    controls.add(OptionId::combinedfilename, combinedfilename);
    controls.add(OptionId::jpgquality, jpgquality_);
    controls.add(OptionId::DotsPerInch, dotsperinch);
    controls.add(OptionId::zoomfactor, zoomfactor);
    controls.add(OptionId::combineall, combineall);
}

void SettingsTab::build_tiff(OptionControls& controls)
{
    QGroupBox* box = group("TIFF Settings", this);
    box->setObjectName("GroupBox1");
    auto* grid = new QGridLayout(box);
    grid->setVerticalSpacing(3);

    QComboBox* tiffcompression = popup_for(OptionId::tiffcompression, box);
    add_row(grid, label_for("TIFF Compression", tiffcompression, box), tiffcompression);
    QCheckBox* colordepth48 = box_for(OptionId::colordepth48, "48 Bit Color Depth (TIFF Only)", box);
    grid->addWidget(colordepth48, grid->rowCount(), 1);
    QLineEdit* tiffcopyright = field_for(OptionId::tiffcopyright, box);
    add_row(grid, label_for("Copyright (TIFF/JPG)", tiffcopyright, box), tiffcopyright);

    // Kept for the run and the preferences, never shown.
    QLineEdit* tiffdocumentname = field_for(OptionId::tiffdocumentname, box);
    QLabel* document_label = label_for("Document Name", tiffdocumentname, box);
    add_row(grid, document_label, tiffdocumentname);
    document_label->hide();
    tiffdocumentname->hide();
    QComboBox* showpdf = popup_for(OptionId::showpdf, box);
    QLabel* showpdf_label = label_for("Show Created File", showpdf, box);
    add_row(grid, showpdf_label, showpdf);
    showpdf_label->hide();
    showpdf->hide();
    showpdf->setEnabled(false);

    auto* note = new QLabel(kTextNote, box);
    note->setObjectName("Label30");
    make_note(note);
    note->setAlignment(Qt::AlignCenter);
    grid->addWidget(note, grid->rowCount(), 0, 1, 2);
    grid->setRowStretch(grid->rowCount(), 1);
    grid->setColumnStretch(1, 1);

    controls.add(OptionId::tiffcompression, tiffcompression);
    controls.add(OptionId::colordepth48, colordepth48);
    controls.add(OptionId::tiffcopyright, tiffcopyright);
    controls.add(OptionId::tiffdocumentname, tiffdocumentname);
    controls.add(OptionId::showpdf, showpdf);
}

void SettingsTab::build_pdf(OptionControls& controls)
{
    QGroupBox* box = group("PDF Settings", this);
    box->setObjectName("GroupBox3");
    auto* grid = new QGridLayout(box);
    grid->setVerticalSpacing(3);

    QComboBox* pdfversionnumber = popup_for(OptionId::pdfversionnumber, box);
    add_row(grid, label_for("PDF Version Number", pdfversionnumber, box), pdfversionnumber);
    QCheckBox* flattenpdf = box_for(OptionId::flattenpdf, "Yes (Flatten Forms and Annotations)", box);
    QLabel* flatten_label = new QLabel("Flatten PDF", box);
    flatten_label->setBuddy(flattenpdf);
    flattenpdf->setAccessibleDescription("Flatten PDF");
    add_row(grid, flatten_label, flattenpdf);
    QLineEdit* pdfauthor = field_for(OptionId::pdfauthor, box);
    add_row(grid, label_for("Author (PDF/JPG)", pdfauthor, box), pdfauthor);
    QLineEdit* pdftitle = field_for(OptionId::pdftitle, box);
    add_row(grid, label_for("Title", pdftitle, box), pdftitle);
    QLineEdit* pdfsubject = field_for(OptionId::pdfsubject, box);
    add_row(grid, label_for("Subject", pdfsubject, box), pdfsubject);

    const auto password_row = [&](OptionId field_id, OptionId hide_id, const QString& caption, QLineEdit*& field,
                                  QCheckBox*& hide) {
        field = field_for(field_id, box);
        hide = box_for(hide_id, "Hide", box);
        hide->setAccessibleDescription("Hide the " + caption);
        auto* row = new QHBoxLayout;
        row->addWidget(field, 1);
        row->addWidget(hide);
        const int at = grid->rowCount();
        grid->addWidget(label_for(caption, field, box), at, 0);
        grid->addLayout(row, at, 1);
        connect(hide, &QCheckBox::toggled, field,
                [field](bool masked) { field->setEchoMode(masked ? QLineEdit::Password : QLineEdit::Normal); });
    };
    password_row(OptionId::pdfpassword, OptionId::hidepassword, "Viewing Password", pdfpassword_, hidepassword_);
    password_row(OptionId::pdffullpassword, OptionId::hidepassword1, "Master Password", pdffullpassword_,
                 hidepassword1_);

    QComboBox* encryptionlevel = popup_for(OptionId::encryptionlevel, box);
    add_row(grid, label_for("Encryption Level", encryptionlevel, box), encryptionlevel);

    QGroupBox* permissions = group("PDF Permissions", box);
    permissions->setObjectName("GroupBox4");
    auto* permission_row = new QHBoxLayout(permissions);
    QCheckBox* allowcopy = box_for(OptionId::allowcopy, "Allow Copy", permissions);
    QCheckBox* allowprint = box_for(OptionId::allowprint, "Allow Printing", permissions);
    QCheckBox* allowannotation = box_for(OptionId::allowannotation, "Allow Annotation", permissions);
    permission_row->addWidget(allowcopy);
    permission_row->addWidget(allowprint);
    permission_row->addWidget(allowannotation);
    permission_row->addStretch(1);
    grid->addWidget(permissions, grid->rowCount(), 0, 1, 2);
    grid->setRowStretch(grid->rowCount(), 1);
    grid->setColumnStretch(1, 1);

    controls.add(OptionId::pdfversionnumber, pdfversionnumber);
    controls.add(OptionId::flattenpdf, flattenpdf);
    controls.add(OptionId::pdfauthor, pdfauthor);
    controls.add(OptionId::pdftitle, pdftitle);
    controls.add(OptionId::pdfsubject, pdfsubject);
    controls.add(OptionId::pdfpassword, pdfpassword_);
    controls.add(OptionId::hidepassword, hidepassword_);
    controls.add(OptionId::pdffullpassword, pdffullpassword_);
    controls.add(OptionId::hidepassword1, hidepassword1_);
    controls.add(OptionId::encryptionlevel, encryptionlevel);
    controls.add(OptionId::allowcopy, allowcopy);
    controls.add(OptionId::allowprint, allowprint);
    controls.add(OptionId::allowannotation, allowannotation);
}

void SettingsTab::follow_fields()
{
    // The field keeps a restored text the slider cannot show ("150"); the slider stops at its end.
    const QSignalBlocker quiet(qualityslider_);
    qualityslider_->setValue(engine::whole_val(jpgquality_->text().toStdString()));
    pdfpassword_->setEchoMode(hidepassword_->isChecked() ? QLineEdit::Password : QLineEdit::Normal);
    pdffullpassword_->setEchoMode(hidepassword1_->isChecked() ? QLineEdit::Password : QLineEdit::Normal);
}

} // namespace qf::settings
