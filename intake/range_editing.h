// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>
#include <vector>

#include "engine/run_model.h"

// The logic behind the From, To and Page Ranges cells of a document row. The window supplies
// the popups, message boxes and in-place editing; these functions decide what changes.
namespace qf::intake {

// The items of a From or To popup: "1" up to the whole value of the page count cell.
std::vector<std::string> page_choices(const engine::ListRow& row);

struct PageChoice {
    bool accepted = false;
    std::string message; // shown to the user when the choice is refused; empty otherwise
};

// A page chosen in the From (column 2) or To (column 3) popup. A To below From, or a From
// above To, is refused with a message and changes nothing; equal values pass. Accepted: the
// cell takes the number and the Page Ranges cell becomes "1" for a one-page document, else
// From "-" To (not shortened: "4-4"). Other columns are left alone and accepted.
PageChoice choose_page(engine::ListRow& row, int column, int chosen_page);

// The end of an edit of the Page Ranges cell: the cell is normalised for the row's page
// count (checkrange). From and To are left as they are.
void finish_range_edit(engine::ListRow& row);

// getpages: the pages a row selects now, as a run would take them.
std::vector<int> getpages(const engine::ListRow& row, bool use_ranges);

} // namespace qf::intake
