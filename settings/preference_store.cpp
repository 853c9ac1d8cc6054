// SPDX-License-Identifier: GPL-3.0-or-later
#include "settings/preference_store.h"

#include "engine/text_rules.h"
#include "settings/option_table.h"

namespace qf::settings {
namespace {

using engine::OptionId;

constexpr auto kWriteOrder = options_in_order<kPreferenceCount>(&OptionSpec::pref_write);
constexpr auto kRestoreOrder = options_in_order<kPreferenceCount>(&OptionSpec::pref_restore);

void restore_one(const PreferenceStore& store, const OptionSpec& spec, engine::OptionValues& values)
{
    switch (spec.kind()) {
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
            restore_row(spec, *text, values);
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
        switch (spec.kind()) {
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
    finish_restore(values);
}

} // namespace qf::settings
