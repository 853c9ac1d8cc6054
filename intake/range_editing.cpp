// SPDX-License-Identifier: GPL-3.0-or-later
#include "intake/range_editing.h"

#include "engine/page_selection.h"
#include "engine/text_rules.h"

namespace qf::intake {

namespace column = engine::column;

std::vector<std::string> page_choices(const engine::ListRow& row)
{
    std::vector<std::string> choices;
    const int page_count = engine::whole_val(row.cells[column::pages]);
    for (int page = 1; page <= page_count; ++page) {
        choices.push_back(std::to_string(page));
    }
    return choices;
}

PageChoice choose_page(engine::ListRow& row, int column, int chosen_page)
{
    if (column != column::from && column != column::to) {
        return {true, {}};
    }
    if (column == column::to && engine::Val(row.cells[column::from]) > chosen_page) {
        return {false, "The To Page value cannot be smaller than the From Page value"};
    }
    if (column == column::from && chosen_page > engine::Val(row.cells[column::to])) {
        return {false, "The To Page value cannot be larger than the From Page value"};
    }
    row.cells[static_cast<std::size_t>(column)] = std::to_string(chosen_page);
    row.cells[column::ranges] = row.cells[column::pages] == "1"
                                    ? std::string("1")
                                    : row.cells[column::from] + "-" + row.cells[column::to];
    return {true, {}};
}

void finish_range_edit(engine::ListRow& row)
{
    row.cells[column::ranges] = engine::checkrange(row.cells[column::pages], row.cells[column::ranges]);
}

std::vector<int> getpages(const engine::ListRow& row, bool use_ranges)
{
    engine::DocumentRow document{};
    for (std::size_t cell = 0; cell < row.cells.size(); ++cell) {
        document[cell] = row.cells[cell];
    }
    document[column::tile_marker] = row.tag;
    return engine::threadgetpages(document, use_ranges);
}

} // namespace qf::intake
