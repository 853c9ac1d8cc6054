// SPDX-License-Identifier: GPL-3.0-or-later
#include "writers/exif_stamper.h"

#include <cstdlib>
#include <fstream>
#include <system_error>
#include <unistd.h>

#include "engine/text_rules.h"
#include "writers/exiftool_process.h"

namespace qf::writers {
namespace {

bool is_perl_blank(char c)
{
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v';
}

// ExifTool strips a plain line's leading blanks and line ends, drops empty lines and comment
// lines, and removes one blank after the "=" of an option.
bool plain_line_keeps(std::string_view argument)
{
    if (argument.empty() || is_perl_blank(argument.front()) || argument.front() == '#' ||
        argument.find_first_of("\r\n") != std::string_view::npos) {
        return false;
    }
    if (argument.front() == '-') {
        const std::size_t equals = argument.find('=');
        if (equals != std::string_view::npos && equals + 1 < argument.size() &&
            argument[equals + 1] == ' ') {
            return false;
        }
    }
    return true;
}

std::string c_escaped(std::string_view argument)
{
    std::string escaped;
    escaped.reserve(argument.size() + 8);
    for (const char c : argument) {
        switch (c) {
        case '\\': escaped += "\\\\"; break;
        case '"': escaped += "\\\""; break;
        case '\n': escaped += "\\n"; break;
        case '\r': escaped += "\\r"; break;
        case '\t': escaped += "\\t"; break;
        default: escaped += c;
        }
    }
    return escaped;
}

bool is_executable_file(const std::filesystem::path& path)
{
    std::error_code error;
    return std::filesystem::is_regular_file(path, error) && ::access(path.c_str(), X_OK) == 0;
}

} // namespace

std::filesystem::path find_exiftool(const std::filesystem::path& resources_folder)
{
    if (!resources_folder.empty()) {
        const auto bundled = resources_folder / "exiftool" / "exiftool";
        if (is_executable_file(bundled)) {
            std::error_code error;
            return std::filesystem::absolute(bundled, error);
        }
    }
    const char* path = std::getenv("PATH");
    for (const std::string& folder : engine::split(path != nullptr ? path : "", ':')) {
        if (folder.empty()) {
            continue;
        }
        const auto candidate = std::filesystem::path(folder) / "exiftool";
        if (is_executable_file(candidate)) {
            std::error_code error;
            return std::filesystem::absolute(candidate, error);
        }
    }
    return {};
}

std::optional<std::string> argfile_line(std::string_view argument)
{
    if (plain_line_keeps(argument)) {
        return std::string(argument);
    }
    if (argument.find_first_of("$@") != std::string_view::npos) {
        return std::nullopt;
    }
    return "#[CSTR]" + c_escaped(argument);
}

ExifStamper::ExifStamper(std::filesystem::path tool, std::chrono::milliseconds answer_timeout)
    : tool_(std::move(tool)), answer_timeout_(answer_timeout)
{
}

ExifStamper::~ExifStamper()
{
    process_.reset();
    if (!value_folder_.empty()) {
        std::error_code ignored;
        std::filesystem::remove_all(value_folder_, ignored);
    }
}

// "-TAG=VALUE" as one argument line, or, when no line can hold the value exactly,
// "-TAG<=FILE" with the value as the whole content of a private file.
std::optional<std::string> ExifStamper::value_line(std::string_view tag, const std::string& value)
{
    const std::string argument = "-" + std::string(tag) + "=" + value;
    if (auto line = argfile_line(argument)) {
        return line;
    }
    std::error_code error;
    if (value_folder_.empty()) {
        std::string pattern =
            (std::filesystem::temp_directory_path(error) / "quirefold-stamp-XXXXXX").string();
        if (error || ::mkdtemp(pattern.data()) == nullptr) {
            return std::nullopt;
        }
        value_folder_ = pattern;
    }
    const auto value_file = value_folder_ / tag;
    if (value_file.string().find('%') != std::string::npos) {
        return std::nullopt; // ExifTool would read "%" in the name as a file-name pattern
    }
    std::ofstream out(value_file, std::ios::binary | std::ios::trunc);
    out.write(value.data(), static_cast<std::streamsize>(value.size()));
    out.close();
    if (!out) {
        return std::nullopt;
    }
    return argfile_line("-" + std::string(tag) + "<=" + value_file.string());
}

// The lines of one file's stamp, without the closing -execute; empty when the file's path
// cannot be passed exactly.
std::string ExifStamper::argument_lines(const std::filesystem::path& file,
                                        const engine::StampRequest& request)
{
    std::error_code error;
    const auto path_line = argfile_line(std::filesystem::absolute(file, error).string());
    if (error || !path_line) {
        return {};
    }
    std::string lines;
    const auto add = [&](std::string_view tag, const std::string& value) {
        if (const auto line = value_line(tag, value)) {
            lines += *line + "\n";
        }
    };
    add("XResolution", request.dots_per_inch);
    add("YResolution", request.dots_per_inch);
    const std::string copyright = engine::trim(request.copyright);
    if (!copyright.empty()) {
        add("copyright", engine::santitext(copyright));
    }
    const std::string author = engine::trim(request.author);
    if (!author.empty()) {
        add("artist", engine::santitext(author));
        add("author", engine::santitext(author));
    }
    // The stamped copy is renamed over the file in one step; copying it back into the file
    // instead could leave it half rewritten when the disk fills or the tool is killed.
    lines += "-overwrite_original\n";
    lines += *path_line + "\n";
    return lines;
}

void ExifStamper::updatedpinonstore(const std::filesystem::path& file,
                                    const engine::StampRequest& request)
{
    if (tool_.empty() || given_up_) {
        return;
    }
    if (!process_) {
        try {
            process_ = std::make_unique<ExifToolProcess>(tool_);
        } catch (const std::system_error&) {
            given_up_ = true;
            return;
        }
    }
    const std::string lines = argument_lines(file, request);
    if (lines.empty()) {
        return;
    }
    const std::string number = std::to_string(++executions_);
    std::string answer;
    if (!process_->send(lines + "-execute" + number + "\n") ||
        !process_->read_until("{ready" + number + "}", answer_timeout_, answer)) {
        process_failed();
    }
}

void ExifStamper::process_failed()
{
    process_->kill();
    process_.reset();
    if (restarts_left_ > 0) {
        --restarts_left_;
    } else {
        given_up_ = true;
    }
}

std::unique_ptr<engine::Stamper> make_exif_stamper(const std::filesystem::path& resources_folder)
{
    return std::make_unique<ExifStamper>(find_exiftool(resources_folder));
}

} // namespace qf::writers
