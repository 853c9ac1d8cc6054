// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/cli_options.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sys/prctl.h>

#include "engine/run_model.h"
#include "engine/text_rules.h"
#include "settings/option_table.h"
#include "settings/profile_file.h"

namespace qf::cli {
namespace {

using engine::OptionId;
using settings::OptionKind;
using settings::OptionSpec;

// Friendly names of a few options, beside their long flags.
struct FlagAlias {
    std::string_view name;
    OptionId id;
};
constexpr FlagAlias kFlagAliases[] = {
    {"format", OptionId::imageformat},
    {"dpi", OptionId::DotsPerInch},
    {"quality", OptionId::jpgquality},
    {"o", OptionId::savein},
    {"output", OptionId::savein},
};

bool is_whole_number(const std::string& text)
{
    return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

// A folder as the options keep it: absolute, ending in "/".
std::string folder_value(const std::string& text)
{
    if (engine::iequals(engine::trim(text), engine::kSourceFolder)) {
        return engine::kSourceFolder;
    }
    std::string folder = std::filesystem::absolute(std::filesystem::path(text)).lexically_normal().string();
    if (folder.empty() || folder.back() != '/') {
        folder += '/';
    }
    return folder;
}

const OptionSpec* find_flag(std::string_view name)
{
    for (const auto& alias : kFlagAliases) {
        if (alias.name == name) {
            return &settings::option_spec(alias.id);
        }
    }
    return settings::find_by_flag(name);
}

void set_option(engine::OptionValues& values, const OptionSpec& spec, const std::string& flag, const std::string& text)
{
    switch (spec.kind()) {
    case OptionKind::Popup: {
        const int row = settings::popup_row_by_name(spec, text);
        if (row < 0) {
            std::string known;
            for (const auto& row_text : spec.rows()) {
                known += (known.empty() ? "\"" : ", \"") + std::string(row_text) + "\"";
            }
            throw UsageError("--" + flag + " takes one of " + known + ", not \"" + text + "\"");
        }
        values.set(spec.id, row);
        return;
    }
    case OptionKind::Text:
        if ((spec.id == OptionId::DotsPerInch || spec.id == OptionId::jpgquality) && !is_whole_number(text)) {
            throw UsageError("--" + flag + " takes a whole number, not \"" + text + "\"");
        }
        values.set(spec.id, spec.id == OptionId::savein ? folder_value(text) : text);
        return;
    case OptionKind::Check:
        values.set(spec.id, true);
        return;
    }
}

std::vector<std::string> read_password_file(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        throw UsageError("the password file " + path + " cannot be read");
    }
    std::vector<std::string> passwords;
    std::string line;
    while (std::getline(file, line)) {
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        passwords.push_back(line);
    }
    return passwords;
}

// Splits "--name=value" into name and value.
std::pair<std::string, std::optional<std::string>> split_flag(const std::string& argument)
{
    const std::size_t dashes = argument.rfind("--", 0) == 0 ? 2 : 1;
    const std::string body = argument.substr(dashes);
    const std::size_t equals = body.find('=');
    if (equals == std::string::npos) {
        return {body, std::nullopt};
    }
    return {body.substr(0, equals), body.substr(equals + 1)};
}

} // namespace

CliRequest parse_arguments(const std::vector<std::string>& arguments)
{
    CliRequest request;
    request.values.set(OptionId::savein, std::string(engine::kSourceFolder));

    // A profile comes first: the other options override it.
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const auto [name, inline_value] = split_flag(arguments[i]);
        if (arguments[i].rfind("--", 0) == 0 && name == "profile") {
            const std::string path = inline_value ? *inline_value : (i + 1 < arguments.size() ? arguments[++i] : "");
            if (path.empty()) {
                throw UsageError("--profile needs a file");
            }
            const auto outcome = settings::loadfromxml(path, request.values);
            if (!outcome.ok) {
                throw UsageError(outcome.message);
            }
            request.messages.push_back(outcome.message);
        }
    }

    bool options_ended = false;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string& argument = arguments[i];
        if (options_ended || argument.empty() || argument[0] != '-' || argument == "-") {
            request.paths.push_back(argument);
            continue;
        }
        if (argument == "--") {
            options_ended = true;
            continue;
        }
        auto [name, inline_value] = split_flag(argument);
        auto value = [&, name = name]() -> std::string {
            if (inline_value) {
                return *inline_value;
            }
            if (i + 1 >= arguments.size()) {
                throw UsageError("--" + name + " needs a value");
            }
            return arguments[++i];
        };
        if (name == "help" || name == "h") {
            request.help = true;
        } else if (name == "version") {
            request.version = true;
        } else if (name == "recursive" || name == "r") {
            request.recursive = true;
        } else if (name == "profile") {
            value(); // applied above
        } else if (name == "save-profile") {
            request.save_profile = value();
        } else if (name == "pages") {
            request.pages = value();
            request.pages_given = true;
        } else if (name == "password") {
            const std::size_t holder = inline_value ? i : i + 1;
            request.passwords.push_back(value());
            request.password_spans.emplace_back(holder, inline_value ? argument.find('=') + 1 : 0);
        } else if (name == "password-file") {
            for (auto& password : read_password_file(value())) {
                request.passwords.push_back(std::move(password));
            }
        } else if (name == "jobs" || name == "j") {
            const std::string jobs = value();
            if (!is_whole_number(jobs) || jobs.size() > 4 || std::stoi(jobs) < 1) {
                throw UsageError("--jobs takes a whole number of 1 or more, not \"" + jobs + "\"");
            }
            request.jobs = std::stoi(jobs);
        } else if (const OptionSpec* negated = name.rfind("no-", 0) == 0 ? find_flag(name.substr(3)) : nullptr;
                   negated != nullptr && negated->kind() == OptionKind::Check) {
            if (inline_value) {
                throw UsageError("--" + name + " takes no value");
            }
            request.values.set(negated->id, false);
        } else if (const OptionSpec* spec = find_flag(name)) {
            if (spec->kind() == OptionKind::Check) {
                if (inline_value) {
                    throw UsageError("--" + name + " takes no value; use --no-" + name + " to turn it off");
                }
                request.values.set(spec->id, true);
            } else {
                if (spec->id == OptionId::pdfpassword || spec->id == OptionId::pdffullpassword) {
                    request.password_spans.emplace_back(inline_value ? i : i + 1,
                                                        inline_value ? argument.find('=') + 1 : 0);
                }
                set_option(request.values, *spec, name, value());
            }
        } else {
            throw UsageError("unknown option " + argument);
        }
    }
    if (request.pages_given) {
        request.values.set(OptionId::usepageranges, true);
    }
    return request;
}

void refuse_core_dumps()
{
    ::prctl(PR_SET_DUMPABLE, 0, 0, 0, 0);
}

void protect_passwords(const CliRequest& request, int argc, char** argv)
{
    if (!request.passwords.empty() || !request.values.text(OptionId::pdfpassword).empty() ||
        !request.values.text(OptionId::pdffullpassword).empty()) {
        refuse_core_dumps();
    }
    for (const auto& [index, offset] : request.password_spans) {
        if (index + 1 < static_cast<std::size_t>(argc)) {
            char* text = argv[index + 1];
            const std::size_t length = std::strlen(text);
            if (offset < length) {
                std::memset(text + offset, 'x', length - offset);
            }
        }
    }
}

std::string help_text()
{
    std::string text =
        "Usage: quirefold-cli [OPTIONS] PATH...\n"
        "Converts the chosen pages of PDF and TIFF documents. PATH is a file or a folder; a folder's\n"
        "documents are taken in name order (with --recursive, its sub-folders' first).\n\n"
        "  -o, --output DIR, --savein DIR   folder for the outputs (default: the first document's folder)\n"
        "  --format FORMAT                  same as --imageformat\n"
        "  --dpi N, --quality N             same as --dotsperinch, --jpgquality\n"
        "  --pages RANGE                    pages of every document, such as 1-3,8,12-8\n"
        "  --password PW                    unlock password tried on encrypted PDFs (repeatable); it is\n"
        "                                   blanked out once read, but visible to other users until then\n"
        "  --password-file FILE             unlock passwords, one a line: safer than --password\n"
        "  -r, --recursive                  walk sub-folders of the folders given\n"
        "  --profile FILE.qfk               load a settings profile before the other options\n"
        "  --save-profile FILE.qfk          write the effective options to a profile\n"
        "  -j, --jobs N                     pages prepared at once (default: one per core)\n"
        "  -h, --help, --version\n\n"
        "Options of the settings (check boxes also take --no-NAME):\n";
    for (const auto& spec : settings::option_table()) {
        if (spec.cli_flag.empty()) {
            continue;
        }
        std::string line = "  --" + std::string(spec.cli_flag);
        if (spec.kind() == OptionKind::Popup) {
            line += " ROW";
        } else if (spec.kind() == OptionKind::Text) {
            line += " TEXT";
        }
        line.resize(std::max<std::size_t>(line.size() + 1, 35), ' ');
        text += line + std::string(spec.help) + "\n";
        if (spec.kind() == OptionKind::Popup) {
            std::string rows = "      rows:";
            for (std::size_t row = 0; row < spec.rows().size(); ++row) {
                rows += (row ? ", \"" : " \"") + std::string(spec.rows()[row]) + "\"";
            }
            for (const auto& alias : spec.aliases) {
                rows += (&alias == &spec.aliases.front() ? "; or " : ", ") + std::string(alias.alias);
            }
            text += rows + "\n";
        }
    }
    text += "\nExit status: 0 all written, 3 finished with documents or pages skipped or failed, 2 usage or fatal error.\n";
    return text;
}

} // namespace qf::cli
