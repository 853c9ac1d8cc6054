// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace qf::engine {

// Val: the longest leading number of a text (blanks before it allowed, sign, fraction,
// exponent); 0 when the text starts with no number.
double Val(std::string_view text);

// The whole part of Val, truncated toward zero and kept within the range of int.
int whole_val(std::string_view text);

// IsNumeric: the whole text, blanks around it aside, is one number.
bool IsNumeric(std::string_view text);

// Text without blanks, tabs and line ends at either end.
std::string trim(std::string_view text);

// Splits at every separator; an empty text gives one empty part.
std::vector<std::string> split(std::string_view text, char separator);

bool iequals(std::string_view a, std::string_view b);
bool iends_with(std::string_view text, std::string_view suffix);
bool icontains(std::string_view text, std::string_view part);

// zeropad: zeros in front of text up to `width` characters; a longer text is never cut.
std::string zeropad(std::string_view text, int width);

// santitext: replaces straight and curly double quotes by backslash-quote, curly single
// quotes and the grave accent by an apostrophe, and the low double quote by a plain quote.
std::string santitext(std::string_view text);

} // namespace qf::engine
