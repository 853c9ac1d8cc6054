// SPDX-License-Identifier: GPL-3.0-or-later
#include "tests/engine_e2e/run_harness.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "app/run_services.h"
#include "intake/admission.h"
#include "settings/option_table.h"

namespace qf::test {
namespace fs = std::filesystem;
namespace {

class GivenPassword final : public intake::PasswordPrompt {
public:
    explicit GivenPassword(std::string password) : password_(std::move(password)) {}
    intake::PromptAnswer ask(const std::string&, const std::string&) override
    {
        if (asked_++ > 0) {
            return intake::PromptAnswer::cancel();
        }
        return intake::PromptAnswer::try_password(password_);
    }

private:
    std::string password_;
    int asked_ = 0;
};

} // namespace

engine::RunServices real_services()
{
    return app::make_run_services(fs::path(QF_SOURCE_DIR) / "resources");
}

engine::ListRow admitted_row(const fs::path& file, const std::string& password)
{
    std::vector<engine::ListRow> rows;
    GivenPassword prompt(password);
    intake::addtolist({{file.string(), file.filename().string()}}, rows, prompt);
    EXPECT_EQ(rows.size(), 1u) << file << " was not admitted";
    return rows.empty() ? engine::ListRow{} : rows.front();
}

engine::ListRow raw_row(const fs::path& file, int pages)
{
    const std::string count = std::to_string(pages);
    return {{file.filename().string(), count, "1", count, pages == 1 ? "1" : "1-" + count,
             file.parent_path().string(), ""},
            engine::kTiledNo};
}

RunHarness::RunHarness() : batch(real_services())
{
    batch.set_listener([this](const engine::RunEvent& event) {
        if (!event.line.empty()) {
            lines.push_back(event.line);
        }
    });
}

void RunHarness::run(const engine::OptionValues& values, const std::vector<engine::ListRow>& rows)
{
    lines.clear();
    batch.prepare(values, rows);
    batch.processall();
    last_tick = batch.Timer1_Action();
    engine::apply(last_tick.status, statustext);
    EXPECT_TRUE(last_tick.ended);
}

engine::OptionValues options_for(const fs::path& folder, const std::string& format)
{
    engine::OptionValues values = settings::default_values();
    std::string savein = folder.string();
    if (savein.back() != '/') {
        savein += '/';
    }
    values.set(engine::OptionId::savein, savein);
    for (std::size_t row = 0; row < engine::kImageFormatRows.size(); ++row) {
        if (engine::kImageFormatRows[row] == format) {
            values.set(engine::OptionId::imageformat, static_cast<int>(row));
        }
    }
    values.set(engine::OptionId::zoomfactor, 0); // "1"
    return values;
}

} // namespace qf::test

namespace {

// Runs keep their scratch folders under a work folder of the tests' own.
class IsolatedWorkFolder : public ::testing::Environment {
public:
    void SetUp() override
    {
        folder_ = std::filesystem::temp_directory_path() / ("qf-work-" + std::to_string(::getpid()));
        std::filesystem::create_directories(folder_);
        ::setenv("XDG_DATA_HOME", folder_.c_str(), 1);
    }
    void TearDown() override
    {
        std::error_code ignored;
        std::filesystem::remove_all(folder_, ignored);
    }

private:
    std::filesystem::path folder_;
};

const auto* const kIsolatedWorkFolder = ::testing::AddGlobalTestEnvironment(new IsolatedWorkFolder);

} // namespace
