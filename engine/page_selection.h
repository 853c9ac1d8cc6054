// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "engine/run_model.h"

namespace qf::engine {

// threadgetpages: the selected pages of a document row, 1-based, in processing order, repeats
// and falling runs kept. With use_ranges the range text (column 4) is expanded, else the pages
// from column 2 to column 3 rising. Nothing is checked against the page count.
std::vector<int> threadgetpages(const DocumentRow& row, bool use_ranges);

// The range-text expansion alone, as threadgetpages and getpages use it.
std::vector<int> expand_ranges(std::string_view range_text);

// The From/To expansion alone: from..to rising, nothing when from is above to.
std::vector<int> expand_from_to(std::string_view from, std::string_view to);

// checkrange: the normal form of a range text for a document of `page_count_text` pages:
// every number clamped to 1..pages, a first part that is no number becomes 1 and a later one
// the page count, equal ends shortened ("4-4" to "4"). Never refuses a text.
std::string checkrange(std::string_view page_count_text, std::string_view range_text);

// checkifallpages: the selection starts at page 1 and ends at the last page.
bool checkifallpages(const DocumentRow& row, const std::vector<int>& pages);

} // namespace qf::engine
