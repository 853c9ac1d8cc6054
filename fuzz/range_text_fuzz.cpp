// SPDX-License-Identifier: GPL-3.0-or-later
// Page selection texts: the page count, From, To and Page Ranges cells of a document row, one
// per line of the input. The range text is normalised as the list does after an edit, and the
// selection expanded as a run takes it.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "engine/page_selection.h"
#include "engine/text_rules.h"
#include "fuzz/fuzz_support.h"
#include "intake/range_editing.h"

namespace {

using namespace qf;
namespace column = engine::column;

// Expansions are held in memory page by page; the list never holds documents or From/To
// cells this far apart, so larger ones are left out rather than exhausting the fuzzer.
constexpr long long kMaxExpandedPages = 100000;

std::string_view next_line(std::string_view &rest)
{
    const std::size_t end = rest.find('\n');
    const std::string_view line = rest.substr(0, end);
    rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
    return line;
}

void check_numbers(std::string_view text)
{
    const double value = engine::Val(text);
    const int whole = engine::whole_val(text);
    if (std::isfinite(value) && std::fabs(value) < 1e9) {
        qf::fuzz::require(whole == static_cast<int>(std::trunc(value)), "whole_val truncates Val");
    }
    if (engine::IsNumeric(text)) {
        qf::fuzz::require(!std::isnan(value), "a numeric text has a value");
    }
}

void check_normalised(const engine::ListRow &row, int page_count)
{
    if (page_count < 1) {
        return; // no document has fewer than one page
    }
    const std::string &normal = row.cells[column::ranges];
    qf::fuzz::require(engine::checkrange(row.cells[column::pages], normal) == normal,
                      "checkrange is idempotent");
    if (page_count > kMaxExpandedPages) {
        return;
    }
    const auto pages = intake::getpages(row, true);
    qf::fuzz::require(!pages.empty(), "a normalised range selects a page");
    for (const int page : pages) {
        qf::fuzz::require(page >= 1 && page <= page_count,
                          "a normalised range stays in the document");
    }
    engine::DocumentRow document{};
    std::copy(row.cells.begin(), row.cells.end(), document.begin());
    const bool all = engine::checkifallpages(document, pages);
    qf::fuzz::require(all == (pages.front() == 1 && pages.back() == page_count),
                      "checkifallpages sees first and last page");
}

void check_from_to(const engine::ListRow &row)
{
    const long long from = engine::whole_val(row.cells[column::from]);
    const long long to = engine::whole_val(row.cells[column::to]);
    if (to - from > kMaxExpandedPages) {
        return;
    }
    const auto pages = intake::getpages(row, false);
    const std::size_t expected = from <= to ? static_cast<std::size_t>(to - from + 1) : 0;
    qf::fuzz::require(pages.size() == expected, "From to To selects every page between");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    std::string_view rest(reinterpret_cast<const char *>(data), size);
    engine::ListRow row;
    row.cells[column::name] = "fuzz.pdf";
    row.cells[column::pages] = next_line(rest);
    row.cells[column::from] = next_line(rest);
    row.cells[column::to] = next_line(rest);
    row.cells[column::ranges] = rest;
    row.tag = engine::kTiledNo;
    for (const int cell : {column::pages, column::from, column::to}) {
        check_numbers(row.cells[static_cast<std::size_t>(cell)]);
    }
    check_from_to(row);

    const int page_count = engine::whole_val(row.cells[column::pages]);
    intake::finish_range_edit(row);
    check_normalised(row, page_count);

    const auto choice = intake::choose_page(row, column::to, page_count);
    if (choice.accepted) {
        qf::fuzz::require(row.cells[column::to] == std::to_string(page_count),
                          "an accepted To is taken");
    }
    return 0;
}
