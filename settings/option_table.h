// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <span>
#include <string_view>

#include "engine/options.h"

// The one table of everything a user can set: controls, preference keys, profile attributes,
// command-line flags and their help. Adding an option is one row.
namespace qf::settings {

enum class OptionKind { Popup, Check, Text };

// A short command-line name for a popup row: "--imageformat jpeg" for "JPEG".
struct RowAlias {
    std::string_view alias;
    int row;
};

struct OptionSpec {
    engine::OptionId id;
    std::string_view control;      // "DotsPerInch"
    std::string_view pref_key;     // "dotsperinch" (empty: not stored)
    std::string_view profile_attr; // "dotsperinch" (empty: not in profiles)
    std::string_view cli_flag;     // "dotsperinch": the long flag without its dashes
    OptionKind kind;
    std::span<const std::string_view> rows;  // popup row texts, in stored order
    std::span<const RowAlias> aliases;       // popup short names
    std::string_view help;                   // one line for --help
};

// Every option, in the order of the option values.
std::span<const OptionSpec> option_table();

const OptionSpec& option_spec(engine::OptionId id);

// The option whose flag, preference key or profile attribute is `name`, compared without
// regard to case; nullptr when none.
const OptionSpec* find_by_flag(std::string_view name);
const OptionSpec* find_by_pref_key(std::string_view name);
const OptionSpec* find_by_profile_attr(std::string_view name);

// The row of a popup named by its row text or an alias, without regard to case; -1 if none.
int popup_row_by_name(const OptionSpec& spec, std::string_view name);

// Whether `row` is one of the popup's rows. A stored index outside them selects no row.
bool selects_row(const OptionSpec& spec, int row);

} // namespace qf::settings
