// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "engine/options.h"
#include "settings/option_table.h"

namespace qf::settings::fixtures {

// Every option moved off its default: popups to another row, check boxes flipped, texts with
// characters that need escaping in XML and bytes beyond ASCII.
inline engine::OptionValues all_changed()
{
    engine::OptionValues values = default_values();
    for (const OptionSpec& spec : option_table()) {
        switch (spec.kind()) {
        case OptionKind::Popup: {
            const int last = static_cast<int>(spec.rows().size()) - 1;
            values.set(spec.id, values.row(spec.id) == last ? 0 : last);
            break;
        }
        case OptionKind::Check:
            values.set(spec.id, !values.flag(spec.id));
            break;
        case OptionKind::Text:
            values.set(spec.id, std::string(spec.control) + " <&> \"q\" 'a'\tline\nbreak \xC3\xBC\xE2\x82\xAC");
            break;
        }
    }
    return values;
}

// A fresh folder under the system's temporary folder, removed with everything in it.
class TempFolder {
public:
    TempFolder()
    {
        const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
        path_ = std::filesystem::temp_directory_path() /
                (std::string("qf-settings-") + info->test_suite_name() + "-" + info->name());
        std::filesystem::remove_all(path_);
        std::filesystem::create_directories(path_);
    }
    ~TempFolder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    std::filesystem::path operator/(const std::string& name) const { return path_ / name; }

private:
    std::filesystem::path path_;
};

inline void write_file(const std::filesystem::path& path, const std::string& text)
{
    std::ofstream(path, std::ios::binary) << text;
}

} // namespace qf::settings::fixtures
