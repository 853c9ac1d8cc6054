// SPDX-License-Identifier: GPL-3.0-or-later
#include "tests/support/engine_run.h"

#include <algorithm>
#include <stdexcept>

#include "app/run_services.h"
#include "intake/admission.h"
#include "settings/option_table.h"

namespace qf::test {
namespace fs = std::filesystem;
namespace {

// Gives its one password once, then cancels.
class GivenPassword final : public intake::PasswordPrompt {
public:
    explicit GivenPassword(std::string password) : password_(std::move(password)) {}
    intake::PromptAnswer ask(const std::string&, const std::string&) override
    {
        return asked_++ > 0 ? intake::PromptAnswer::cancel()
                            : intake::PromptAnswer::try_password(password_);
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
    if (rows.size() != 1) {
        throw std::runtime_error(file.string() + " was not admitted");
    }
    return rows.front();
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
    isolated_work_folder();
}

void RunHarness::run(const engine::OptionValues& values, const std::vector<engine::ListRow>& rows)
{
    lines.clear();
    batch.prepare(values, rows);
    batch.processall();
    last_tick = batch.Timer1_Action();
    engine::apply(last_tick.status, statustext);
    if (!last_tick.ended) {
        throw std::runtime_error("the run did not end");
    }
}

engine::OptionValues options_for(const fs::path& folder, const std::string& format)
{
    engine::OptionValues values = settings::default_values();
    const std::string savein = folder.string();
    values.set(engine::OptionId::savein, savein.ends_with('/') ? savein : savein + '/');
    const auto& rows = engine::kImageFormatRows;
    const auto row = std::find(rows.begin(), rows.end(), format);
    if (row != rows.end()) {
        values.set(engine::OptionId::imageformat, static_cast<int>(row - rows.begin()));
    }
    values.set(engine::OptionId::zoomfactor, 0); // "1"
    return values;
}

} // namespace qf::test
