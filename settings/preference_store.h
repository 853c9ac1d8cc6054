// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "engine/options.h"

// The per-user preferences: the options kept between sessions in a key-value store that holds
// strings and booleans and can tell an absent key. The window stores them in its platform's
// settings; anything else (tests, tools) can use MemoryPreferenceStore.
namespace qf::settings {

class PreferenceStore {
public:
    virtual ~PreferenceStore() = default;

    // The stored value, or nothing when the key is absent or holds the other kind of value.
    virtual std::optional<std::string> string_value(std::string_view key) const = 0;
    virtual std::optional<bool> bool_value(std::string_view key) const = 0;

    // Replace a key's value (in memory until synchronize).
    virtual void set_string(std::string_view key, const std::string& value) = 0;
    virtual void set_bool(std::string_view key, bool value) = 0;

    // Write the values out; a failure is not reported.
    virtual void synchronize() = 0;
};

// A store held in memory: the whole of it lives as long as the object.
class MemoryPreferenceStore : public PreferenceStore {
public:
    std::optional<std::string> string_value(std::string_view key) const override;
    std::optional<bool> bool_value(std::string_view key) const override;
    void set_string(std::string_view key, const std::string& value) override;
    void set_bool(std::string_view key, bool value) override;
    void synchronize() override {}

    bool contains(std::string_view key) const { return values_.find(key) != values_.end(); }
    void erase(std::string_view key);

private:
    std::map<std::string, std::variant<std::string, bool>, std::less<>> values_;
};

// Savesettings: writes every stored option (27 keys, all but tiffdocumentname) in the fixed
// write order, then synchronizes once. Popups go as the decimal row index, texts unchanged
// (untrimmed, passwords in clear), check boxes as booleans.
void Savesettings(PreferenceStore& store, const engine::OptionValues& values);

// loadsettings: restores the stored options into `values` in the fixed restore order. An
// absent key keeps the value `values` has. A row index is the integer reading of its text
// ("x" is row 0); an index that selects no row keeps the value, except zoomfactor, which then
// takes row 3.
void loadsettings(const PreferenceStore& store, engine::OptionValues& values);

} // namespace qf::settings
