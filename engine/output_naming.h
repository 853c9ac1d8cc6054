// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "engine/run_model.h"

namespace qf::engine {

inline constexpr const char* kPdfMultipage = "PDF (Multipage)";
inline constexpr const char* kPdfSinglePage = "PDF (Single Page)";
inline constexpr const char* kJpeg = "JPEG";
inline constexpr const char* kPng = "PNG";
inline constexpr const char* kTiffMultipage = "TIFF (Multipage)";
inline constexpr const char* kTiffSinglePage = "TIFF (Single Page)";
inline constexpr const char* kText = "TEXT";

// docext: the upper-case extension of an output format (".PDF", ".JPG", ".PNG", ".TIF", ".TXT").
std::string docext_of(const std::string& format);

// docbase: the file name without its last extension ("report.v2.pdf" gives "report.v2").
std::string docbase_of(const std::string& file_name);

// The folder outputs go to: the first document's folder for "[Source Folder]" (any case) or a
// blank value, else msavein as it stands.
std::filesystem::path destination_folder(const OptionSnapshot& snapshot, const DocumentRow& first_row);

// True for "[Source Folder]" in any case, or a blank value.
bool saves_to_source_folder(const std::string& msavein);

// What naming needs to know of one page.
struct NamingRequest {
    const OptionSnapshot& snapshot;
    const DocumentRow& row;       // the current document
    const DocumentRow& first_row; // the run's first document, for "[Source Folder]"
    std::string format;           // theimageformat
    int pageno = 1;               // the page's own number
    bool first_of_selection = true;
    int firstpage = 1;
    int lastpage = 1;
    bool whole_document = false;  // checkifallpages
    std::string outputname;       // carried from the earlier pages and documents
    // Full paths of every source document of the run; an output never takes one of them.
    const std::vector<std::filesystem::path>* source_paths = nullptr;
    // Where a combined multipage PDF keeps this document's pages until the merge.
    std::filesystem::path work_folder;
};

struct NamingResult {
    std::string outputname;
    std::filesystem::path outputpath;
    bool issinglepage = false; // one output file per page of a longer document
    bool numbered_when_taken = false; // the collision rule applies: never replace a file
    // The name a renumbering starts from ("four Page 002" for "four Page 002 1.PDF").
    std::string number_stem;
};

// outputname and outputpath of a page. Creates the per-document subfolder when that rule
// applies. A multipage format keeps its name after the first page of the selection. A whole
// selection in a multipage format, and any output whose path would be a source document's,
// takes the first free name "docbase N.EXT" (for a source's path, "NAME N.EXT" of the name it
// would have had), one no file has yet.
NamingResult name_output(const NamingRequest& request);

// The first "docbase N.EXT" from 1 in `folder` that no file and no source takes.
std::string free_numbered_name(const std::string& docbase, const std::string& docext,
                               const std::filesystem::path& folder,
                               const std::vector<std::filesystem::path>& sources);

// True when path names the same file as one of the sources (lexically or on disk).
bool is_source_path(const std::filesystem::path& path, const std::vector<std::filesystem::path>& sources);

} // namespace qf::engine
