// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <memory>

#include <QString>

#include "settings/preference_store.h"

class QSettings;

namespace qf::settings {

// The preferences of the window in the user's QSettings file of the identity
// org.quirefold.extract (~/.config/org.quirefold.extract.conf unless QSettings is told
// another folder). The file holds the PDF passwords in clear, so it is readable by its owner
// alone: mode 0600 after every write. Main thread only.
class QtPreferenceStore : public PreferenceStore {
public:
    QtPreferenceStore();
    ~QtPreferenceStore() override;

    std::optional<std::string> string_value(std::string_view key) const override;
    // "true" and "false" as QSettings writes them; any other stored text is not a boolean.
    std::optional<bool> bool_value(std::string_view key) const override;
    void set_string(std::string_view key, const std::string& value) override;
    void set_bool(std::string_view key, bool value) override;
    // Writes the file and gives it mode 0600; a failure goes unreported.
    void synchronize() override;

    QString file_name() const;

private:
    std::unique_ptr<QSettings> settings_;
};

} // namespace qf::settings
