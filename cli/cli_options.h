// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "engine/options.h"
#include "settings/option_table.h"

namespace qf::cli {

// A command line that cannot be run as given; the message says why.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct CliRequest {
    engine::OptionValues values = settings::default_values(); // then the profile's, the flags'
    std::vector<std::string> paths;     // files and folders, in the order given
    bool recursive = false;             // walk sub-folders of the folders given
    bool pages_given = false;
    std::string pages;                  // range text for every document, normalised per document
    std::vector<std::string> passwords; // tried in order on every PDF that needs one
    // Where the arguments hold a password (an unlock password, or one of the PDF output's)
    // given on the command line: the argument's index
    // and the offset of the password in it, so that the program can blank it out.
    std::vector<std::pair<std::size_t, std::size_t>> password_spans;
    std::string save_profile;           // write the effective options here
    std::vector<std::string> messages;  // what loading a profile said
    int jobs = 0;                       // 0: one worker per core
    bool help = false;
    bool version = false;
};

// Parses the arguments (without the program name). A --profile is applied before any other
// option, whatever its place; of the others, a later flag wins over an earlier one (--pages
// turns usepageranges on where it stands). Throws UsageError, and nothing else, with a message
// for the user.
CliRequest parse_arguments(const std::vector<std::string>& arguments);

// Overwrites the passwords that `request` found in the program's own argument vector (argv[0]
// being the program name), so that other users listing processes no longer see them, and
// when the request holds any password, keeps the process from leaving a core dump.
void protect_passwords(const CliRequest& request, int argc, char** argv);

// Keeps the process from leaving a core dump (which would hold the passwords in its memory)
// and other programs of the user from reading its memory.
void refuse_core_dumps();

// The --help text, made from the option table.
std::string help_text();

} // namespace qf::cli
