// SPDX-License-Identifier: GPL-3.0-or-later
#include "engine/text_rules.h"

#include <algorithm>
#include <cctype>
#include <climits>
#include <cmath>
#include <cstdlib>

namespace qf::engine {
namespace {

bool is_blank(char c)
{
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v';
}

bool is_digit(char c)
{
    return c >= '0' && c <= '9';
}

// Length of the number at the start of text (after `start`), 0 when there is none.
std::size_t number_length(std::string_view text, std::size_t start)
{
    std::size_t at = start;
    if (at < text.size() && (text[at] == '+' || text[at] == '-')) {
        ++at;
    }
    std::size_t digits = 0;
    while (at < text.size() && is_digit(text[at])) {
        ++at;
        ++digits;
    }
    if (at < text.size() && text[at] == '.') {
        std::size_t after = at + 1;
        std::size_t fraction = 0;
        while (after < text.size() && is_digit(text[after])) {
            ++after;
            ++fraction;
        }
        if (digits + fraction > 0) {
            at = after;
            digits += fraction;
        }
    }
    if (digits == 0) {
        return 0;
    }
    if (at < text.size() && (text[at] == 'e' || text[at] == 'E')) {
        std::size_t after = at + 1;
        if (after < text.size() && (text[after] == '+' || text[after] == '-')) {
            ++after;
        }
        std::size_t exponent = 0;
        while (after < text.size() && is_digit(text[after])) {
            ++after;
            ++exponent;
        }
        if (exponent > 0) {
            at = after;
        }
    }
    return at - start;
}

char lower(char c)
{
    return static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
}

void replace_all(std::string& text, std::string_view from, std::string_view to)
{
    std::size_t at = 0;
    while ((at = text.find(from, at)) != std::string::npos) {
        text.replace(at, from.size(), to);
        at += to.size();
    }
}

} // namespace

double Val(std::string_view text)
{
    std::size_t start = 0;
    while (start < text.size() && is_blank(text[start])) {
        ++start;
    }
    const std::size_t length = number_length(text, start);
    if (length == 0) {
        return 0.0;
    }
    const std::string number(text.substr(start, length));
    return std::strtod(number.c_str(), nullptr);
}

int whole_val(std::string_view text)
{
    const double value = std::trunc(Val(text));
    if (std::isnan(value)) {
        return 0;
    }
    return static_cast<int>(std::clamp(value, static_cast<double>(INT_MIN), static_cast<double>(INT_MAX)));
}

bool IsNumeric(std::string_view text)
{
    const std::string trimmed = trim(text);
    return !trimmed.empty() && number_length(trimmed, 0) == trimmed.size();
}

std::string trim(std::string_view text)
{
    std::size_t first = 0;
    std::size_t last = text.size();
    while (first < last && is_blank(text[first])) {
        ++first;
    }
    while (last > first && is_blank(text[last - 1])) {
        --last;
    }
    return std::string(text.substr(first, last - first));
}

std::vector<std::string> split(std::string_view text, char separator)
{
    std::vector<std::string> parts;
    std::size_t start = 0;
    for (;;) {
        const std::size_t at = text.find(separator, start);
        if (at == std::string_view::npos) {
            parts.emplace_back(text.substr(start));
            return parts;
        }
        parts.emplace_back(text.substr(start, at - start));
        start = at + 1;
    }
}

bool iequals(std::string_view a, std::string_view b)
{
    return a.size() == b.size() &&
           std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) { return lower(x) == lower(y); });
}

bool iends_with(std::string_view text, std::string_view suffix)
{
    return text.size() >= suffix.size() && iequals(text.substr(text.size() - suffix.size()), suffix);
}

bool icontains(std::string_view text, std::string_view part)
{
    if (part.size() > text.size()) {
        return false;
    }
    for (std::size_t at = 0; at + part.size() <= text.size(); ++at) {
        if (iequals(text.substr(at, part.size()), part)) {
            return true;
        }
    }
    return false;
}

std::string zeropad(std::string_view text, int width)
{
    // The width counts characters, so a UTF-8 continuation byte is not counted.
    const auto characters = static_cast<int>(std::count_if(
        text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
    if (characters >= width) {
        return std::string(text);
    }
    return std::string(static_cast<std::size_t>(width - characters), '0') + std::string(text);
}

std::string santitext(std::string_view text)
{
    std::string result(text);
    replace_all(result, "\"", "\\\"");
    replace_all(result, "\u201C", "\\\"");
    replace_all(result, "\u201D", "\\\"");
    replace_all(result, "\u2018", "'");
    replace_all(result, "\u2019", "'");
    replace_all(result, "\u201A", "'");
    replace_all(result, "\u201E", "\"");
    replace_all(result, "`", "'");
    return result;
}

} // namespace qf::engine
