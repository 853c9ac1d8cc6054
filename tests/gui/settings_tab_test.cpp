// SPDX-License-Identifier: GPL-3.0-or-later
// The Settings tab's coupled controls and the preferences file behind the window.
#include <QCheckBox>
#include <QLineEdit>
#include <QSettings>
#include <QSlider>
#include <QTest>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "settings/option_controls_qt.h"
#include "settings/preference_store_qt.h"
#include "settings/settings_tab.h"
#include "tests/support/temp_folder.h"

namespace {

using qf::engine::OptionId;

mode_t mode_of(const QString& path)
{
    struct stat status {};
    EXPECT_EQ(::stat(QFile::encodeName(path).constData(), &status), 0) << path.toStdString();
    return status.st_mode & 07777;
}

TEST(PreferenceFile, IsPrivateAfterEveryWrite)
{
    qf::test::TempFolder config;
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, QString::fromStdString(config.path()));
    const mode_t old_mask = ::umask(022);
    {
        qf::settings::QtPreferenceStore store;
        store.set_string("pdfpassword", "secret");
        store.synchronize();
        // A file another program made readable is private again at the next write.
        ::chmod(QFile::encodeName(store.file_name()).constData(), 0644);
        store.set_bool("hidepassword", true);
        store.synchronize();
        EXPECT_EQ(mode_of(store.file_name()), 0600u);
    }
    ::umask(old_mask);
}

class SettingsTabTest : public ::testing::Test {
protected:
    template <typename T>
    T* find(const char* name)
    {
        return tab_.findChild<T*>(name);
    }

    qf::settings::OptionControls controls_;
    qf::settings::SettingsTab tab_{controls_};
};

// A restored text the slider cannot show stays in the field; the slider stops at its end.
TEST_F(SettingsTabTest, QualitySliderAndFieldFollowEachOther)
{
    find<QLineEdit>("jpgquality")->setText("150");
    tab_.follow_fields();
    EXPECT_EQ(find<QSlider>("qualityslider")->value(), 100);
    EXPECT_EQ(find<QLineEdit>("jpgquality")->text(), "150");
    find<QSlider>("qualityslider")->setValue(42);
    EXPECT_EQ(controls_.values().text(OptionId::jpgquality), "42");
}

TEST_F(SettingsTabTest, HideBoxesMaskTheirPasswordFields)
{
    find<QCheckBox>("hidepassword")->click();
    EXPECT_EQ(find<QLineEdit>("pdfpassword")->echoMode(), QLineEdit::Password);
    EXPECT_EQ(find<QLineEdit>("pdffullpassword")->echoMode(), QLineEdit::Normal);
    find<QCheckBox>("hidepassword")->click();
    EXPECT_EQ(find<QLineEdit>("pdfpassword")->echoMode(), QLineEdit::Normal);
    // A restore sets the boxes first; the masks follow them.
    auto values = controls_.values();
    values.set(OptionId::hidepassword1, true);
    controls_.show(values);
    tab_.follow_fields();
    EXPECT_EQ(find<QLineEdit>("pdffullpassword")->echoMode(), QLineEdit::Password);
}

} // namespace
