// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "engine/run_model.h"
#include "intake/password_prompt.h"

// The load loop: the paths of one load command walked and admitted, one candidate at a time.
// The window's load commands and drops and the command line's arguments all come here.
namespace qf::app {

struct LoadRequest {
    std::vector<std::string> paths; // files and folders, in the order given
    bool recursive = false;         // walk the sub-folders of the folders given
    // A PDF that is not encrypted but cannot be read still gets the password question (the
    // window); false drops it at once with the reader's reason (the command line).
    bool ask_for_unreadable_pdf = true;
    // The paths were typed (program arguments): one that does not exist is reported as such,
    // rather than listed as a document gone before it was looked at.
    bool report_missing_paths = false;
};

// A line about something that was not loaded, such as "NAME could not be opened: REASON".
struct LoadProblem {
    std::string line;         // raw text; the front end makes it loggable
    bool user_choice = false; // the user cancelled the password question of this file
};

// What the loop reports, in order, on the thread that runs it.
struct LoadListener {
    std::function<void(const engine::ListRow&)> row_admitted;
    std::function<void(const LoadProblem&)> problem;
    // After every candidate, admitted or not: the rows this load has added so far.
    std::function<void(std::size_t rows_added)> candidate_done;
};

struct LoadSummary {
    int rows_added = 0;
    int problems = 0;       // problem lines, the user's own cancels included
    bool cancelled = false; // the load was cancelled before its end
    std::string report;     // "N Images added to the list"
};

// Walks each folder (loadrecursive) and admits each file (addtolist), folder files in the
// walk's order, the given paths in their order. A folder's files that are not PDF or TIFF are
// passed over quietly; a file named directly is reported. Files are read by a reader worker
// of the load's own, so that one that crashes or hangs the reader is dropped with a line. Passwords are asked of `prompt` on
// this thread. `cancelled` is asked between candidates and folders; true ends the load with
// what it has added. Never throws.
LoadSummary run_load(const LoadRequest& request, intake::PasswordPrompt& prompt, const LoadListener& listener,
                     const std::function<bool()>& cancelled = {});

} // namespace qf::app
