// SPDX-License-Identifier: GPL-3.0-or-later
#include "engine/page_selection.h"

#include <algorithm>

#include "engine/text_rules.h"

namespace qf::engine {
namespace {

void append_run(std::vector<int>& pages, int from, int to)
{
    if (from < to) {
        for (long long page = from; page <= to; ++page) {
            pages.push_back(static_cast<int>(page));
        }
    } else {
        for (long long page = from; page >= to; --page) {
            pages.push_back(static_cast<int>(page));
        }
    }
}

} // namespace

std::vector<int> expand_from_to(std::string_view from, std::string_view to)
{
    std::vector<int> pages;
    const int first = whole_val(from);
    const int last = whole_val(to);
    if (first <= last) {
        append_run(pages, first, last);
    }
    return pages;
}

std::vector<int> expand_ranges(std::string_view range_text)
{
    std::vector<int> pages;
    // Kept from one token to the next: a part that is no number leaves the earlier value.
    int rangefrom = 0;
    int rangeto = 0;
    int rangelast = 0;
    for (const auto& token : split(range_text, ',')) {
        const auto parts = split(token, '-');
        if (parts.size() >= 2) {
            for (std::size_t position = 0; position < parts.size(); ++position) {
                const std::string part = trim(parts[position]);
                if (!IsNumeric(part)) {
                    continue;
                }
                const int value = whole_val(part);
                rangelast = value;
                (position == 0 ? rangefrom : rangeto) = value;
            }
        } else {
            rangefrom = rangeto = rangelast = whole_val(parts.front());
        }
        if (rangefrom != rangeto) {
            append_run(pages, rangefrom, rangeto);
        } else {
            pages.push_back(rangelast);
        }
    }
    return pages;
}

std::vector<int> threadgetpages(const DocumentRow& row, bool use_ranges)
{
    if (!use_ranges) {
        return expand_from_to(row[column::from], row[column::to]);
    }
    return expand_ranges(row[column::ranges]);
}

std::string checkrange(std::string_view page_count_text, std::string_view range_text)
{
    const int lo = 1;
    const int hi = whole_val(page_count_text);
    std::string result;
    const auto tokens = split(range_text, ',');
    for (std::size_t token_index = 0; token_index < tokens.size(); ++token_index) {
        if (token_index > 0) {
            result += ',';
        }
        const auto parts = split(tokens[token_index], '-');
        int first_value = 0;
        for (std::size_t position = 0; position < parts.size(); ++position) {
            const std::string part = trim(parts[position]);
            int value = 0;
            if (IsNumeric(part)) {
                // Raised to lo first, then lowered to hi, so a document of 0 pages gives 0.
                value = std::max(whole_val(part), lo);
                value = std::min(value, hi);
            } else {
                value = position == 0 ? 1 : hi;
            }
            if (position == 0) {
                first_value = value;
                result += std::to_string(value);
            } else if (value != first_value) {
                result += '-' + std::to_string(value);
            }
        }
    }
    return result;
}

bool checkifallpages(const DocumentRow& row, const std::vector<int>& pages)
{
    const int page_count = whole_val(row[column::pages]);
    return !pages.empty() && pages.front() == 1 && pages.back() == page_count;
}

} // namespace qf::engine
