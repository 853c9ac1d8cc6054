// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "intake/candidate.h"

namespace qf::intake {

// The files of one folder, to be handed to addtolist in one call.
struct FolderCandidates {
    std::filesystem::path folder;
    CandidateTable candidates; // never empty
};

struct FolderWalk {
    std::vector<FolderCandidates> tables; // in the order they are to be added
    std::vector<std::string> messages;    // "FOLDER could not be read: REASON", one per folder
};

// loadrecursive: the candidate tables of a folder load. Every entry that is not a folder is
// listed; the extension is tested later by addtolist. Children are taken in the byte order
// of their names, so that a load repeats. With `recurse`, sub-folders (hidden ones and those
// reached through symbolic links included) are walked depth first, and a folder's own table
// comes after the tables of all its sub-folders. A folder already walked (same device and
// inode) is not walked again, so link loops end. A folder that cannot be read gives a message
// and the walk goes on. Folders without files give no table. `cancelled`, when given, is asked
// before each folder; true ends the walk with the tables found so far.
FolderWalk loadrecursive(const std::filesystem::path& folder, bool recurse,
                         const std::function<bool()>& cancelled = {});

} // namespace qf::intake
