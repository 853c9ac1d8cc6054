// SPDX-License-Identifier: GPL-3.0-or-later
#include "settings/profile_file.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <optional>
#include <sstream>

#include <pugixml.hpp>

#include "engine/error.h"
#include "engine/file_ops.h"
#include "engine/text_rules.h"
#include "engine/version.h"
#include "settings/base64.h"
#include "settings/option_table.h"

namespace qf::settings {
namespace {

using engine::OptionId;

constexpr const char* kRootName = "QUIREFOLDSETTINGS";
constexpr const char* kElementName = "QF";
constexpr const char* kVersionAttr = "version";
// Profiles written by us carry the misspelt name; a correctly spelt one is read as well.
constexpr const char* kEncryptionLevelAlternative = "encryptionlevel";

// The order of the elements after the version, fixed by the file format.
constexpr auto kWriteOrder = options_in_order<kProfileCount>(&OptionSpec::profile_place);

bool is_password(OptionId id)
{
    return id == OptionId::pdfpassword || id == OptionId::pdffullpassword;
}

std::string file_name_of(const std::filesystem::path& path)
{
    return path.filename().string();
}

std::string lower_first(std::string text)
{
    if (!text.empty() && text[0] >= 'A' && text[0] <= 'Z') {
        text[0] = static_cast<char>(text[0] - 'A' + 'a');
    }
    return text;
}

std::string attribute_value(const OptionSpec& spec, const engine::OptionValues& values)
{
    switch (spec.kind()) {
    case OptionKind::Check:
        return values.flag(spec.id) ? "true" : "false";
    case OptionKind::Popup:
        return std::to_string(values.row(spec.id));
    case OptionKind::Text:
        break;
    }
    const std::string text = engine::trim(values.text(spec.id));
    return is_password(spec.id) ? encode_base64(text) : text;
}

void write_profile(const std::filesystem::path& target, const engine::OptionValues& values)
{
    pugi::xml_document document;
    pugi::xml_node root = document.append_child(kRootName);
    root.append_child(kElementName).append_attribute(kVersionAttr).set_value(engine::kLongVersion);
    for (const OptionId id : kWriteOrder) {
        const OptionSpec& spec = option_spec(id);
        const std::string value = attribute_value(spec, values);
        root.append_child(kElementName)
            .append_attribute(std::string(spec.profile_attr).c_str())
            .set_value(value.c_str());
    }
    engine::write_atomically(target, [&](const std::filesystem::path& temp) {
        if (!document.save_file(temp.c_str(), "  ", pugi::format_default, pugi::encoding_utf8)) {
            throw engine::Error(engine::ErrorKind::Output, "the file could not be written", target);
        }
    });
}

// The whole file as bytes, or the reason it could not be read.
std::optional<std::string> read_file(const std::filesystem::path& path, std::string& reason)
{
    std::error_code ec;
    if (std::filesystem::is_directory(path, ec)) {
        reason = "it is a folder";
        return std::nullopt;
    }
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        reason = lower_first(std::strerror(errno));
        return std::nullopt;
    }
    std::ostringstream bytes;
    bytes << in.rdbuf();
    if (in.bad()) {
        reason = "it could not be read to the end";
        return std::nullopt;
    }
    return bytes.str();
}

const OptionSpec* option_of_attribute(std::string_view name)
{
    if (engine::iequals(name, kEncryptionLevelAlternative)) {
        return &option_spec(OptionId::encryptionlevel);
    }
    return find_by_profile_attr(name);
}

// Applies the root's elements to `values`; false, with `problem` set, on an element without
// an attribute (values are then half applied and must be thrown away).
bool apply_elements(const pugi::xml_node& root, engine::OptionValues& values, std::string& problem)
{
    std::string version;
    std::array<std::optional<std::string>, 2> passwords; // pdfpassword, pdffullpassword as read
    for (const pugi::xml_node& element : root.children()) {
        if (element.type() != pugi::node_element) {
            continue; // text and comments between elements carry no setting
        }
        const pugi::xml_attribute attribute = element.first_attribute();
        if (!attribute) {
            problem = "has an entry without a setting";
            return false;
        }
        const std::string_view name = attribute.name();
        const std::string value = attribute.value();
        if (engine::iequals(name, kVersionAttr)) {
            version = value;
            continue;
        }
        const OptionSpec* spec = option_of_attribute(name);
        if (spec == nullptr) {
            continue;
        }
        switch (spec->kind()) {
        case OptionKind::Check:
            values.set(spec->id, engine::iequals(value, "true"));
            break;
        case OptionKind::Popup:
            restore_row(*spec, value, values);
            break;
        case OptionKind::Text:
            values.set(spec->id, value);
            if (is_password(spec->id)) {
                passwords[spec->id == OptionId::pdfpassword ? 0 : 1] = value;
            }
            break;
        }
    }
    finish_restore(values);
    // Profiles of our own writer carry a version and encoded passwords; a hand-made profile
    // without one holds them in clear.
    if (!engine::trim(version).empty()) {
        if (passwords[0]) {
            values.set(OptionId::pdfpassword, decode_base64(*passwords[0]));
        }
        if (passwords[1]) {
            values.set(OptionId::pdffullpassword, decode_base64(*passwords[1]));
        }
    }
    return true;
}

} // namespace

ProfileOutcome savetoxml(const std::filesystem::path& path, const engine::OptionValues& values)
{
    const std::string name = file_name_of(path);
    try {
        write_profile(path, values);
    } catch (const engine::Error& error) {
        return {false, "Settings File " + name + " could not be saved: " + lower_first(error.reason())};
    }
    return {true, "Settings File " + name + " Saved"};
}

ProfileOutcome loadfromxml(const std::filesystem::path& path, engine::OptionValues& values)
{
    const std::string lead = "The settings file " + file_name_of(path);
    std::string reason;
    const std::optional<std::string> bytes = read_file(path, reason);
    if (!bytes) {
        return {false, lead + " could not be read: " + reason};
    }
    pugi::xml_document document;
    const pugi::xml_parse_result parsed = document.load_buffer(bytes->data(), bytes->size());
    if (parsed.status == pugi::status_no_document_element) {
        return {false, lead + " holds no settings"};
    }
    if (!parsed) {
        return {false, lead + " is not an XML file"};
    }
    // Neither the root's name nor its elements' names are looked at: only the attributes count.
    engine::OptionValues loaded = values;
    std::string problem;
    if (!apply_elements(document.document_element(), loaded, problem)) {
        return {false, lead + " " + problem};
    }
    values = std::move(loaded);
    return {true, "Settings Loaded"};
}

} // namespace qf::settings
