// SPDX-License-Identifier: GPL-3.0-or-later
#include "engine/output_naming.h"

#include <system_error>

#include "engine/text_rules.h"

namespace qf::engine {
namespace fs = std::filesystem;
namespace {

bool is_multipage_named(const std::string& format)
{
    return format == kPdfMultipage || format == kTiffMultipage || format == kText;
}

bool exists_quietly(const fs::path& path)
{
    std::error_code error;
    return fs::exists(fs::symlink_status(path, error));
}

// "docbase N.EXT" for the first N from 1 whose path in `folder` is taken by no source and,
// when `must_be_free`, by no file at all.
std::string numbered_name(const std::string& docbase, const std::string& docext, const fs::path& folder,
                          bool must_be_free, const std::vector<fs::path>& sources)
{
    for (long long n = 1;; ++n) {
        const std::string name = docbase + " " + std::to_string(n) + docext;
        const fs::path path = folder / name;
        if (!is_source_path(path, sources) && !(must_be_free && exists_quietly(path))) {
            return name;
        }
    }
}

fs::path place_output(const NamingRequest& request, const std::string& outputname, const std::string& docbase)
{
    const OptionSnapshot& snapshot = request.snapshot;
    if (request.format == kPdfMultipage) {
        return snapshot.mcombineall ? request.work_folder / outputname
                                    : destination_folder(snapshot, request.first_row) / outputname;
    }
    if (saves_to_source_folder(snapshot.msavein)) {
        return destination_folder(snapshot, request.first_row) / outputname;
    }
    const fs::path savein(snapshot.msavein);
    if (!snapshot.monefileonefolder || request.format.find("Multipage") != std::string::npos) {
        return savein / outputname;
    }
    const fs::path subfolder = savein / docbase;
    std::error_code ignored; // a folder that cannot be made shows when the file is written
    fs::create_directories(subfolder, ignored);
    return subfolder / outputname;
}

} // namespace

std::string docext_of(const std::string& format)
{
    if (format == kPdfMultipage || format == kPdfSinglePage) {
        return ".PDF";
    }
    if (format == kJpeg) {
        return ".JPG";
    }
    if (format == kPng) {
        return ".PNG";
    }
    if (format == kTiffMultipage || format == kTiffSinglePage) {
        return ".TIF";
    }
    if (format == kText) {
        return ".TXT";
    }
    return {};
}

std::string docbase_of(const std::string& file_name)
{
    const std::size_t dot = file_name.rfind('.');
    if (dot == std::string::npos || dot == 0) {
        return file_name;
    }
    return file_name.substr(0, dot);
}

bool saves_to_source_folder(const std::string& msavein)
{
    const std::string trimmed = trim(msavein);
    return trimmed.empty() || iequals(trimmed, kSourceFolder);
}

fs::path destination_folder(const OptionSnapshot& snapshot, const DocumentRow& first_row)
{
    if (saves_to_source_folder(snapshot.msavein)) {
        return fs::path(first_row[column::folder]);
    }
    return fs::path(snapshot.msavein);
}

std::string free_numbered_name(const std::string& docbase, const std::string& docext, const fs::path& folder,
                               const std::vector<fs::path>& sources)
{
    return numbered_name(docbase, docext, folder, true, sources);
}

bool is_source_path(const fs::path& path, const std::vector<fs::path>& sources)
{
    const fs::path normal = path.lexically_normal();
    const std::string name = normal.filename().native();
    for (const auto& source : sources) {
        // Normalising leaves a path's last name as it is: a source that does not end in the
        // same name is not the same path, and costs no normalising of its own (a run of many
        // documents asks this for every page).
        if (source.native().ends_with(name) && source.lexically_normal() == normal) {
            return true;
        }
    }
    // A path that names nothing is no source's other name; asked first, it spares a look at
    // every source for every page of a run of many documents.
    std::error_code error;
    if (!fs::exists(fs::status(path, error))) {
        return false;
    }
    for (const auto& source : sources) {
        if (fs::equivalent(source, path, error) && !error) {
            return true;
        }
    }
    return false;
}

NamingResult name_output(const NamingRequest& request)
{
    static const std::vector<fs::path> kNoSources;
    const auto& sources = request.source_paths ? *request.source_paths : kNoSources;
    const std::string docbase = docbase_of(request.row[column::name]);
    const std::string docext = docext_of(request.format);
    const bool one_page_document = whole_val(request.row[column::pages]) == 1;

    NamingResult result;
    result.outputname = request.outputname;
    bool collision_rule = false;
    if (one_page_document) {
        result.outputname = docbase + docext;
    } else if (request.format == kPng || request.format == kJpeg) {
        result.outputname = docbase + " Page " + zeropad(std::to_string(request.pageno), request.snapshot.mzeropad) + docext;
    } else if (request.format == kPdfSinglePage || request.format == kTiffSinglePage) {
        result.outputname = docbase + " Page " + zeropad(std::to_string(request.pageno), request.snapshot.mzeropad) + docext;
        result.issinglepage = true;
    } else if (is_multipage_named(request.format) && request.first_of_selection) {
        if (request.whole_document) {
            result.outputname = docbase + docext;
            collision_rule = true;
        } else {
            result.outputname = docbase + " Page " + zeropad(std::to_string(request.firstpage), request.snapshot.mzeropad) +
                                " to " + zeropad(std::to_string(request.lastpage), request.snapshot.mzeropad) + docext;
        }
    }

    const fs::path destination = destination_folder(request.snapshot, request.first_row);
    if (collision_rule && exists_quietly(destination / result.outputname)) {
        result.outputname = numbered_name(docbase, docext, destination, true, sources);
    }
    result.numbered_when_taken = collision_rule;
    result.number_stem = docbase;
    result.outputpath = place_output(request, result.outputname, docbase);
    if (is_source_path(result.outputpath, sources)) {
        // Numbered from its own name, so that "four Page 002.PDF" of a document "four.PDF"
        // stays apart from the outputs of a document "four Page 002.PDF".
        result.number_stem = docbase_of(result.outputname);
        result.outputname = numbered_name(result.number_stem, docext, result.outputpath.parent_path(), true, sources);
        result.outputpath = result.outputpath.parent_path() / result.outputname;
        result.numbered_when_taken = true;
    }
    return result;
}

} // namespace qf::engine
