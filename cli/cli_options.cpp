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

bool is_whole_number(std::string_view text)
{
    return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

// The flag as the user typed its name: "-o", "--dpi".
std::string flag_text(std::string_view name)
{
    return (name.size() == 1 ? "-" : "--") + std::string(name);
}

// The values the command line starts from: the window's defaults, except that outputs go
// beside the first document unless a folder is given.
engine::OptionValues cli_defaults()
{
    engine::OptionValues values = settings::default_values();
    values.set(OptionId::savein, std::string(engine::kSourceFolder));
    return values;
}

// A folder as the options keep it: absolute, ending in "/". An empty one is refused: it is
// more likely an unset variable in a script than a wish to save beside the first document.
std::string folder_value(std::string_view flag, const std::string& text)
{
    if (engine::trim(text).empty()) {
        throw UsageError(flag_text(flag) + " needs a folder; leave it out, or give \"" +
                         engine::kSourceFolder + "\", to save beside the first document");
    }
    if (engine::iequals(engine::trim(text), engine::kSourceFolder)) {
        return engine::kSourceFolder;
    }
    std::error_code error;
    std::string folder = std::filesystem::absolute(std::filesystem::path(text), error).lexically_normal().string();
    if (error) {
        throw UsageError("the folder \"" + text + "\" of " + flag_text(flag) + " cannot be resolved");
    }
    if (folder.back() != '/') {
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

void set_popup(engine::OptionValues& values, const OptionSpec& spec, std::string_view flag, const std::string& text)
{
    const int row = settings::popup_row_by_name(spec, text);
    if (row < 0) {
        std::string known;
        for (const auto& row_text : spec.rows()) {
            known += (known.empty() ? "\"" : ", \"") + std::string(row_text) + "\"";
        }
        throw UsageError(flag_text(flag) + " takes one of " + known + ", not \"" + text + "\"");
    }
    values.set(spec.id, row);
}

// A text option. Empty text is a value like any other (it clears what a profile set), except
// for the two numbers and the folder.
void set_text(engine::OptionValues& values, const OptionSpec& spec, std::string_view flag, const std::string& text)
{
    if ((spec.id == OptionId::DotsPerInch || spec.id == OptionId::jpgquality) && !is_whole_number(text)) {
        throw UsageError(flag_text(flag) + " takes a whole number, not \"" + text + "\"");
    }
    values.set(spec.id, spec.id == OptionId::savein ? folder_value(flag, text) : text);
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

// One flag of the command line: its name without dashes and the value written into it
// ("--dpi=300"), and where the arguments stand.
struct Flag {
    std::string name;
    std::optional<std::string> inline_value;
    std::size_t index; // of the flag's own argument
};

bool is_flag(const std::string& argument)
{
    return argument.size() > 1 && argument[0] == '-' && argument != "--";
}

Flag split_flag(const std::string& argument, std::size_t index)
{
    const std::size_t dashes = argument.rfind("--", 0) == 0 ? 2 : 1;
    const std::string body = argument.substr(dashes);
    const std::size_t equals = body.find('=');
    if (equals == std::string::npos) {
        return {body, std::nullopt, index};
    }
    return {body.substr(0, equals), body.substr(equals + 1), index};
}

// Walks the arguments, handing out flags' values.
class Cursor {
public:
    explicit Cursor(const std::vector<std::string>& arguments) : arguments_(arguments) {}

    bool done() const { return next_ >= arguments_.size(); }
    std::size_t index() const { return next_; }
    const std::string& take() { return arguments_[next_++]; }

    // The flag's value: written into it, or the next argument (which may be empty).
    std::string value(const Flag& flag)
    {
        if (flag.inline_value) {
            return *flag.inline_value;
        }
        if (done()) {
            throw UsageError(flag_text(flag.name) + " needs a value");
        }
        return take();
    }

    // Where the value just taken stands: its argument and the offset in it.
    std::pair<std::size_t, std::size_t> value_place(const Flag& flag) const
    {
        if (flag.inline_value) {
            return {flag.index, arguments_[flag.index].find('=') + 1};
        }
        return {next_ - 1, 0};
    }

private:
    const std::vector<std::string>& arguments_;
    std::size_t next_ = 0;
};

// A value that names a file: empty is a usage error, not "no file".
std::string file_value(Cursor& cursor, const Flag& flag)
{
    std::string path = cursor.value(flag);
    if (path.empty()) {
        throw UsageError(flag_text(flag.name) + " needs a file");
    }
    return path;
}

// Step 1: every --profile, before any other option, whatever its place.
void load_profiles(const std::vector<std::string>& arguments, CliRequest& request)
{
    Cursor cursor(arguments);
    while (!cursor.done()) {
        const std::size_t index = cursor.index();
        const std::string& argument = cursor.take();
        if (argument == "--") {
            return;
        }
        if (!is_flag(argument) || argument.rfind("--", 0) != 0) {
            continue;
        }
        const Flag flag = split_flag(argument, index);
        if (flag.name != "profile") {
            continue;
        }
        const auto outcome = settings::loadfromxml(file_value(cursor, flag), request.values);
        if (!outcome.ok) {
            throw UsageError(outcome.message);
        }
        request.messages.push_back(outcome.message);
    }
}

// Step 2a: the flags that are not options of the table. False when `flag` is none of them.
bool apply_program_flag(Cursor& cursor, const Flag& flag, CliRequest& request)
{
    const std::string& name = flag.name;
    if (name == "help" || name == "h") {
        request.help = true;
    } else if (name == "version") {
        request.version = true;
    } else if (name == "recursive" || name == "r") {
        request.recursive = true;
    } else if (name == "profile") {
        file_value(cursor, flag); // loaded in step 1
    } else if (name == "save-profile") {
        request.save_profile = file_value(cursor, flag);
    } else if (name == "pages") {
        // The range text, and the switch that makes the run read it: a later
        // --no-usepageranges turns that off again.
        request.pages = cursor.value(flag);
        request.pages_given = true;
        request.values.set(OptionId::usepageranges, true);
    } else if (name == "password") {
        request.passwords.push_back(cursor.value(flag));
        request.password_spans.push_back(cursor.value_place(flag));
    } else if (name == "password-file") {
        for (auto& password : read_password_file(file_value(cursor, flag))) {
            request.passwords.push_back(std::move(password));
        }
    } else if (name == "jobs" || name == "j") {
        const std::string jobs = cursor.value(flag);
        if (!is_whole_number(jobs) || jobs.size() > 4 || std::stoi(jobs) < 1) {
            throw UsageError(flag_text(name) + " takes a whole number of 1 or more, not \"" + jobs + "\"");
        }
        request.jobs = std::stoi(jobs);
    } else {
        return false;
    }
    return true;
}

// Step 2b: an option of the table, a check box's --no- form among them.
void apply_option_flag(Cursor& cursor, const Flag& flag, CliRequest& request)
{
    const std::string& name = flag.name;
    const OptionSpec* negated = name.rfind("no-", 0) == 0 ? find_flag(name.substr(3)) : nullptr;
    if (negated != nullptr && negated->kind() == OptionKind::Check) {
        if (flag.inline_value) {
            throw UsageError(flag_text(name) + " takes no value");
        }
        request.values.set(negated->id, false);
        return;
    }
    const OptionSpec* spec = find_flag(name);
    if (spec == nullptr) {
        throw UsageError("unknown option " + flag_text(name) + " (see --help)");
    }
    switch (spec->kind()) {
    case OptionKind::Check:
        if (flag.inline_value) {
            throw UsageError(flag_text(name) + " takes no value; use --no-" + name + " to turn it off");
        }
        request.values.set(spec->id, true);
        return;
    case OptionKind::Popup:
        set_popup(request.values, *spec, name, cursor.value(flag));
        return;
    case OptionKind::Text: {
        const std::string text = cursor.value(flag);
        if (spec->id == OptionId::pdfpassword || spec->id == OptionId::pdffullpassword) {
            request.password_spans.push_back(cursor.value_place(flag));
        }
        set_text(request.values, *spec, name, text);
        return;
    }
    }
}

// Step 2: the flags and paths, in their order: a later flag wins over an earlier one.
void apply_arguments(const std::vector<std::string>& arguments, CliRequest& request)
{
    Cursor cursor(arguments);
    bool options_ended = false;
    while (!cursor.done()) {
        const std::size_t index = cursor.index();
        const std::string& argument = cursor.take();
        if (!options_ended && argument == "--") {
            options_ended = true;
        } else if (options_ended || !is_flag(argument)) {
            if (argument.empty()) {
                throw UsageError("an empty argument stands where a file or folder was expected");
            }
            request.paths.push_back(argument);
        } else {
            const Flag flag = split_flag(argument, index);
            if (!apply_program_flag(cursor, flag, request)) {
                apply_option_flag(cursor, flag, request);
            }
        }
    }
}

} // namespace

CliRequest parse_arguments(const std::vector<std::string>& arguments)
{
    CliRequest request;
    request.values = cli_defaults();
    try {
        load_profiles(arguments, request);
        apply_arguments(arguments, request);
    } catch (const UsageError&) {
        throw;
    } catch (const std::exception&) {
        // Nothing a user types should end here; if it does, the user still gets a usage line.
        throw UsageError("the command line could not be read");
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

namespace {

// "(default: ...)" of an option, as the command line starts.
std::string default_note(const OptionSpec& spec, const engine::OptionValues& defaults)
{
    switch (spec.kind()) {
    case OptionKind::Popup:
        return "(default: \"" + engine::row_text(defaults, spec.id) + "\")";
    case OptionKind::Check:
        return defaults.flag(spec.id) ? "(default: on)" : "(default: off)";
    case OptionKind::Text:
        break;
    }
    const std::string& text = defaults.text(spec.id);
    return text.empty() ? "(default: empty)" : "(default: \"" + text + "\")";
}

std::string option_help(const OptionSpec& spec, const engine::OptionValues& defaults)
{
    std::string line = "  --" + std::string(spec.cli_flag);
    if (spec.kind() == OptionKind::Popup) {
        line += " ROW";
    } else if (spec.kind() == OptionKind::Text) {
        line += " TEXT";
    }
    line.resize(std::max<std::size_t>(line.size() + 1, 35), ' ');
    std::string text = line + std::string(spec.help) + " " + default_note(spec, defaults) + "\n";
    if (spec.kind() == OptionKind::Popup) {
        const auto rows = spec.rows();
        std::string listed = "      rows:";
        for (std::size_t row = 0; row < rows.size(); ++row) {
            listed += (row ? ", \"" : " \"") + std::string(rows[row]) + "\"";
        }
        for (const auto& alias : spec.aliases) {
            listed += (&alias == &spec.aliases.front() ? "; or " : ", ") + std::string(alias.alias);
        }
        text += listed + "\n";
    }
    return text;
}

} // namespace

std::string help_text()
{
    std::string text =
        "Usage: quirefold-cli [OPTIONS] PATH...\n"
        "Converts the chosen pages of PDF and TIFF documents. PATH is a file or a folder; a folder's\n"
        "documents are taken in name order (with --recursive, its sub-folders' first).\n\n"
        "  -o, --output DIR, --savein DIR   folder for the outputs (default: the first document's folder)\n"
        "  --format FORMAT                  same as --imageformat\n"
        "  --dpi N, --quality N             same as --dotsperinch, --jpgquality\n"
        "  --pages RANGE                    pages of every document, such as 1-3,8,12-8; turns on\n"
        "                                   --usepageranges (a later --no-usepageranges turns it off)\n"
        "  --password PW                    unlock password tried on encrypted PDFs (repeatable); it is\n"
        "                                   blanked out once read, but visible to other users until then\n"
        "  --password-file FILE             unlock passwords, one a line: safer than --password\n"
        "  -r, --recursive                  walk sub-folders of the folders given\n"
        "  --profile FILE.qfk               load a settings profile before the other options\n"
        "  --save-profile FILE.qfk          write the effective options to a profile\n"
        "  -j, --jobs N                     pages prepared at once (default: one per core)\n"
        "  -h, --help, --version\n\n"
        "Options of the settings; the later of two flags wins (check boxes also take --no-NAME):\n";
    const engine::OptionValues defaults = cli_defaults();
    for (const auto& spec : settings::option_table()) {
        text += option_help(spec, defaults);
    }
    text += "\nExit status: 0 all written, 3 finished with documents or pages skipped or failed, 2 usage or fatal error.\n";
    return text;
}

} // namespace qf::cli
