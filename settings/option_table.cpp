// SPDX-License-Identifier: GPL-3.0-or-later
#include "settings/option_table.h"

#include <array>

#include "engine/text_rules.h"

namespace qf::settings {
namespace {

using engine::OptionId;

constexpr char lower(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

constexpr bool same_name(std::string_view a, std::string_view b)
{
    if (a.size() != b.size()) {
        return false;
    }
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (lower(a[i]) != lower(b[i])) {
            return false;
        }
    }
    return true;
}

// Each row sits at the index of its OptionId, so option_spec is an index.
constexpr bool rows_in_id_order()
{
    for (std::size_t i = 0; i < kOptionTable.size(); ++i) {
        if (static_cast<std::size_t>(kOptionTable[i].id) != i) {
            return false;
        }
    }
    return true;
}

// A popup has rows and a default among them; its aliases name rows it has; nothing else has
// rows or aliases; every option has help.
constexpr bool kinds_agree()
{
    for (const OptionSpec& spec : kOptionTable) {
        const bool is_popup = spec.kind() == OptionKind::Popup;
        if (is_popup != !spec.rows().empty() || (is_popup && !selects_row(spec, spec.initial.row)) ||
            (!is_popup && !spec.aliases.empty()) || spec.help.empty() || spec.cli_flag.empty()) {
            return false;
        }
        for (const RowAlias& alias : spec.aliases) {
            if (!selects_row(spec, alias.row)) {
                return false;
            }
        }
    }
    return true;
}

// No two options answer to one name, and no two aliases of a popup are one name.
constexpr bool names_unique(std::string_view OptionSpec::*name)
{
    for (std::size_t i = 0; i < kOptionTable.size(); ++i) {
        for (std::size_t j = i + 1; j < kOptionTable.size(); ++j) {
            const std::string_view a = kOptionTable[i].*name;
            if (!a.empty() && same_name(a, kOptionTable[j].*name)) {
                return false;
            }
        }
        const auto aliases = kOptionTable[i].aliases;
        for (std::size_t a = 0; a < aliases.size(); ++a) {
            for (std::size_t b = a + 1; b < aliases.size(); ++b) {
                if (same_name(aliases[a].alias, aliases[b].alias)) {
                    return false;
                }
            }
        }
    }
    return true;
}

// The options that have `name` take the places 0 to count - 1 of an order, each once; the
// others have no place.
constexpr bool is_order(int OptionSpec::*place, std::string_view OptionSpec::*name, std::size_t count)
{
    std::array<int, engine::kOptionCount> taken{};
    std::size_t placed = 0;
    for (const OptionSpec& spec : kOptionTable) {
        const int at = spec.*place;
        if ((spec.*name).empty() != (at == kNowhere)) {
            return false;
        }
        if (at == kNowhere) {
            continue;
        }
        if (at < 0 || static_cast<std::size_t>(at) >= count || taken[static_cast<std::size_t>(at)]++ != 0) {
            return false;
        }
        ++placed;
    }
    return placed == count;
}

static_assert(kOptionTable.size() == engine::kOptionCount);
static_assert(rows_in_id_order(), "a row of the option table is out of OptionId order");
static_assert(kinds_agree(), "a row's kind, rows, default or aliases disagree");
static_assert(names_unique(&OptionSpec::cli_flag) && names_unique(&OptionSpec::pref_key) &&
                  names_unique(&OptionSpec::profile_attr),
              "two options share a flag, key, attribute or alias");
static_assert(is_order(&OptionSpec::pref_restore, &OptionSpec::pref_key, kPreferenceCount),
              "the preference restore places are not 0 to 26, once each");
static_assert(is_order(&OptionSpec::pref_write, &OptionSpec::pref_key, kPreferenceCount),
              "the preference write places are not 0 to 26, once each");
static_assert(is_order(&OptionSpec::profile_place, &OptionSpec::profile_attr, kProfileCount),
              "the profile places are not 0 to 23, once each");

const OptionSpec* find_by(std::string_view OptionSpec::*field, std::string_view name)
{
    if (name.empty()) {
        return nullptr;
    }
    for (const auto& spec : kOptionTable) {
        if (engine::iequals(spec.*field, name)) {
            return &spec;
        }
    }
    return nullptr;
}

} // namespace

engine::OptionValues default_values()
{
    std::array<engine::OptionValue, engine::kOptionCount> values;
    for (const OptionSpec& spec : kOptionTable) {
        auto& value = values[static_cast<std::size_t>(spec.id)];
        switch (spec.kind()) {
        case OptionKind::Popup:
            value = spec.initial.row;
            break;
        case OptionKind::Check:
            value = spec.initial.on;
            break;
        case OptionKind::Text:
            value = std::string(spec.initial.text);
            break;
        }
    }
    return engine::OptionValues(std::move(values));
}

void restore_row(const OptionSpec& spec, std::string_view stored, engine::OptionValues& values)
{
    const int row = engine::whole_val(stored);
    if (selects_row(spec, row)) {
        values.set(spec.id, row);
    } else if (spec.id == OptionId::zoomfactor) {
        values.set(spec.id, -1);
    }
}

void finish_restore(engine::OptionValues& values)
{
    if (!selects_row(option_spec(OptionId::zoomfactor), values.row(OptionId::zoomfactor))) {
        values.set(OptionId::zoomfactor, kZoomFallbackRow);
    }
}

const OptionSpec* find_by_flag(std::string_view name)
{
    return find_by(&OptionSpec::cli_flag, name);
}

const OptionSpec* find_by_pref_key(std::string_view name)
{
    return find_by(&OptionSpec::pref_key, name);
}

const OptionSpec* find_by_profile_attr(std::string_view name)
{
    return find_by(&OptionSpec::profile_attr, name);
}

int popup_row_by_name(const OptionSpec& spec, std::string_view name)
{
    const auto rows = spec.rows();
    for (std::size_t row = 0; row < rows.size(); ++row) {
        if (engine::iequals(rows[row], name)) {
            return static_cast<int>(row);
        }
    }
    for (const auto& alias : spec.aliases) {
        if (engine::iequals(alias.alias, name)) {
            return alias.row;
        }
    }
    return -1;
}

} // namespace qf::settings
