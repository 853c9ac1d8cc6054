// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <functional>
#include <string>

namespace qf::engine {

// What happened in a run. Every log line is one event, and a few events write no line.
enum class RunEventKind {
    DocumentStarted,    // "NAME is being Processed"
    PageStarted,        // "Page N is being Processed"
    PageAdded,          // "Page I Added to PDF", "Page I Added to Multipage TIFF"
    PageDone,           // no line: a page of the selection is through; pages_done of pages_total
    Saved,              // "OUTPUTNAME has been Saved" (a text file shows its full path)
    TiffClosed,         // "Close TIFF"
    Combining,          // "Combing Files and Saving to NAME", "Merging PATH"
    Skipped,            // "NAME cannot be processed as it could have been moved or deleted"
    Failed,             // "... could not be opened / converted / saved / secured: REASON"
    Warning,            // the file stands, with a shortcoming ("could not be rewritten at 16 bits")
    NotConforming,      // "OUTPUTNAME does not conform to LEVEL: page N REASON"
    NoLongerConforming, // "OUTPUTNAME is encrypted and no longer conforms to LEVEL"
    NoTextFound,        // "No Text Found", which replaces the whole log
    Terminated,         // "Processing Terminated by User "
    AllDone,            // no line: the worker has finished (boliao)
};

// One event of a run, as it happens, on the worker thread.
struct RunEvent {
    RunEventKind kind = RunEventKind::Warning;
    int row = -1;              // the document's row in filelist; -1 for the run as a whole
    std::string document;      // its file name (column 0)
    int page = 0;              // the page's own number; 0 when no page is meant
    std::filesystem::path output;
    std::string reason;        // why it failed or does not conform
    std::string line;          // the log line as written, empty for an event without one
    int pages_done = 0;        // PageDone: pages of the document's selection through so far
    int pages_total = 0;       //           and in the selection
};

// Receives every event of a run. One listener serves the log and the progress.
using RunListener = std::function<void(const RunEvent&)>;

} // namespace qf::engine
