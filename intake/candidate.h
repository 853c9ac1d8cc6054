// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>
#include <vector>

namespace qf::intake {

// A file offered to the document list: its full path and its file name with extension.
struct Candidate {
    std::string path;
    std::string name;

    bool operator==(const Candidate&) const = default;
};

// The files of one load, in the order their rows are to be added.
using CandidateTable = std::vector<Candidate>;

} // namespace qf::intake
