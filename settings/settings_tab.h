// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QWidget>

class QCheckBox;
class QLineEdit;
class QSlider;

namespace qf::settings {

class OptionControls;

// The "Settings" tab: the General, TIFF and PDF settings groups with the PDF permissions. Its
// controls carry their option's control name as object name ("DotsPerInch") and the caption of
// the label beside them as accessible name. No option enables, disables or hides another: the
// hidden Document Name and Show Created File stay hidden for the life of the window.
class SettingsTab : public QWidget {
    Q_OBJECT
public:
    // Makes the controls at their defaults and registers each with `controls`.
    explicit SettingsTab(OptionControls& controls, QWidget* parent = nullptr);

    // After the fields were set from the preferences or a profile: the slider follows the
    // quality field (the integer reading of its text, bounded by the slider's range) and the
    // password fields take the masks their Hide boxes say.
    void follow_fields();

private:
    void build_general(OptionControls& controls);
    void build_tiff(OptionControls& controls);
    void build_pdf(OptionControls& controls);

    QSlider* qualityslider_ = nullptr;
    QLineEdit* jpgquality_ = nullptr;
    QLineEdit* pdfpassword_ = nullptr;
    QLineEdit* pdffullpassword_ = nullptr;
    QCheckBox* hidepassword_ = nullptr;
    QCheckBox* hidepassword1_ = nullptr;
};

} // namespace qf::settings
