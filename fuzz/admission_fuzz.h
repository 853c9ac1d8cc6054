// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "engine/run_model.h"
#include "engine/text_rules.h"
#include "fuzz/fuzz_support.h"
#include "intake/admission.h"

// Admission of one fuzzed file under `name`: either one row whose cells agree with each other
// or one dropped candidate with a reason. The prompt offers one password, then gives up.
namespace qf::fuzz {

inline constexpr const char *kFuzzPassword = "secret";

class OnePasswordPrompt final : public intake::PasswordPrompt
{
  public:
    intake::PromptAnswer ask(const std::string &, const std::string &) override
    {
        if (asked_++ == 0) {
            return intake::PromptAnswer::try_password(kFuzzPassword);
        }
        return intake::PromptAnswer::unanswered();
    }

  private:
    int asked_ = 0;
};

inline void check_admitted_row(const engine::ListRow &row, std::string_view name)
{
    namespace column = engine::column;
    const std::string &pages = row.cells[column::pages];
    const int page_count = engine::whole_val(pages);
    require(row.cells[column::name] == name, "the row is named after the file");
    require(page_count >= 1 && pages == std::to_string(page_count), "the page count is a number");
    require(row.cells[column::from] == "1" && row.cells[column::to] == pages,
            "From 1 To the last page");
    require(row.cells[column::ranges] == (page_count == 1 ? "1" : "1-" + pages),
            "the range covers all pages");
    require(row.tag == engine::kTiledYes || row.tag == engine::kTiledNo,
            "the row has a tile marker");
    if (row.tag == engine::kTiledYes) {
        require(page_count == 1, "a tiled TIFF is one page");
    }
}

inline void admit_one(const std::uint8_t *data, std::size_t size, std::string_view name)
{
    const InputFile input(data, size, name);
    const intake::CandidateTable candidates{{input.path().string(), std::string(name)}};
    std::vector<engine::ListRow> rows;
    OnePasswordPrompt prompt;
    const intake::AdmissionReport report = intake::addtolist(candidates, rows, prompt);
    require(rows.size() == static_cast<std::size_t>(report.rows_added), "rows added are counted");
    require(rows.size() + report.dropped.size() == 1, "the file is admitted or dropped");
    if (rows.empty()) {
        require(!report.dropped.front().reason.empty(), "a dropped file has a reason");
        return;
    }
    check_admitted_row(rows.front(), name);
}

} // namespace qf::fuzz
