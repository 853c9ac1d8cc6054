// SPDX-License-Identifier: GPL-3.0-or-later
#include "settings/preference_store.h"

#include <array>

#include "engine/text_rules.h"
#include "settings/option_table.h"

namespace qf::settings {
namespace {

using engine::OptionId;

constexpr int kZoomFallbackRow = 3;

constexpr std::array<OptionId, 27> kWriteOrder = {
    OptionId::combineall,      OptionId::flattenpdf,       OptionId::combinedfilename,
    OptionId::zoomfactor,      OptionId::colordepth48,     OptionId::pdfversionnumber,
    OptionId::imageformat,     OptionId::showpdf,          OptionId::tiffcompression,
    OptionId::savein,          OptionId::jpgquality,       OptionId::DotsPerInch,
    OptionId::ZeroPadding,     OptionId::usepageranges,    OptionId::onefileonefolder,
    OptionId::pdfpassword,     OptionId::hidepassword,     OptionId::pdffullpassword,
    OptionId::hidepassword1,   OptionId::allowannotation,  OptionId::encryptionlevel,
    OptionId::allowprint,      OptionId::allowcopy,        OptionId::tiffcopyright,
    OptionId::pdfauthor,       OptionId::pdfsubject,       OptionId::pdftitle,
};

constexpr std::array<OptionId, 27> kRestoreOrder = {
    OptionId::imageformat,     OptionId::showpdf,          OptionId::pdfversionnumber,
    OptionId::jpgquality,      OptionId::tiffcompression,  OptionId::ZeroPadding,
    OptionId::zoomfactor,      OptionId::DotsPerInch,      OptionId::flattenpdf,
    OptionId::colordepth48,    OptionId::combineall,       OptionId::combinedfilename,
    OptionId::tiffcopyright,   OptionId::pdfauthor,        OptionId::pdfsubject,
    OptionId::pdftitle,        OptionId::hidepassword,     OptionId::pdfpassword,
    OptionId::hidepassword1,   OptionId::pdffullpassword,  OptionId::allowannotation,
    OptionId::allowcopy,       OptionId::allowprint,       OptionId::encryptionlevel,
    OptionId::usepageranges,   OptionId::onefileonefolder, OptionId::savein,
};

void restore_one(const PreferenceStore& store, const OptionSpec& spec, engine::OptionValues& values)
{
    switch (spec.kind) {
    case OptionKind::Check:
        if (const auto flag = store.bool_value(spec.pref_key)) {
            values.set(spec.id, *flag);
        }
        break;
    case OptionKind::Text:
        if (auto text = store.string_value(spec.pref_key)) {
            values.set(spec.id, std::move(*text));
        }
        break;
    case OptionKind::Popup:
        if (const auto text = store.string_value(spec.pref_key)) {
            const int row = engine::whole_val(*text);
            if (selects_row(spec, row)) {
                values.set(spec.id, row);
            } else if (spec.id == OptionId::zoomfactor) {
                values.set(spec.id, -1); // no row: the fallback after the last key picks one
            }
        }
        break;
    }
}

} // namespace

std::optional<std::string> MemoryPreferenceStore::string_value(std::string_view key) const
{
    const auto found = values_.find(key);
    if (found == values_.end() || !std::holds_alternative<std::string>(found->second)) {
        return std::nullopt;
    }
    return std::get<std::string>(found->second);
}

std::optional<bool> MemoryPreferenceStore::bool_value(std::string_view key) const
{
    const auto found = values_.find(key);
    if (found == values_.end() || !std::holds_alternative<bool>(found->second)) {
        return std::nullopt;
    }
    return std::get<bool>(found->second);
}

void MemoryPreferenceStore::set_string(std::string_view key, const std::string& value)
{
    values_.insert_or_assign(std::string(key), value);
}

void MemoryPreferenceStore::set_bool(std::string_view key, bool value)
{
    values_.insert_or_assign(std::string(key), value);
}

void MemoryPreferenceStore::erase(std::string_view key)
{
    const auto found = values_.find(key);
    if (found != values_.end()) {
        values_.erase(found);
    }
}

void Savesettings(PreferenceStore& store, const engine::OptionValues& values)
{
    for (const OptionId id : kWriteOrder) {
        const OptionSpec& spec = option_spec(id);
        switch (spec.kind) {
        case OptionKind::Check:
            store.set_bool(spec.pref_key, values.flag(id));
            break;
        case OptionKind::Popup:
            store.set_string(spec.pref_key, std::to_string(values.row(id)));
            break;
        case OptionKind::Text:
            store.set_string(spec.pref_key, values.text(id));
            break;
        }
    }
    store.synchronize();
}

void loadsettings(const PreferenceStore& store, engine::OptionValues& values)
{
    for (const OptionId id : kRestoreOrder) {
        restore_one(store, option_spec(id), values);
    }
    if (!selects_row(option_spec(OptionId::zoomfactor), values.row(OptionId::zoomfactor))) {
        values.set(OptionId::zoomfactor, kZoomFallbackRow);
    }
}

} // namespace qf::settings
