// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

#include "engine/options.h"

namespace qf::cli {

// A command line that cannot be run as given; the message says why.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct CliRequest {
    engine::OptionValues values;        // the profile's, then the flags'
    std::vector<std::string> paths;     // files and folders, in the order given
    bool recursive = false;             // walk sub-folders of the folders given
    bool pages_given = false;
    std::string pages;                  // range text for every document
    std::vector<std::string> passwords; // tried in order on every PDF that needs one
    std::string save_profile;           // write the effective options here
    std::vector<std::string> messages;  // what loading a profile said
    int jobs = 0;                       // 0: one worker per core
    bool help = false;
    bool version = false;
};

// Parses the arguments (without the program name). A --profile is applied before any other
// option, whatever its place. Throws UsageError.
CliRequest parse_arguments(const std::vector<std::string>& arguments);

// The --help text, made from the option table.
std::string help_text();

} // namespace qf::cli
