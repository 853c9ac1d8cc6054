// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <functional>
#include <string>

namespace qf::engine {

// The system's words for a failure of the storage itself (no room, a file size limit, an I/O
// error), which encoding libraries report in their own ("non-recoverable state"); empty for any
// other error number.
std::string storage_failure(int error);

// A free temporary name beside target: ".quirefold-PID-name.XXXXXX" in the same folder (PID
// this process's id), so that a rename onto target is atomic. The file is created empty and
// registered (see below). The first temporary of a process in a folder removes what runs
// killed outright left there (see remove_abandoned_temps).
std::filesystem::path sibling_temp_name(const std::filesystem::path& target);

// A private folder beside target (named as sibling_temp_name's files), in which a file is written under target's
// own file name before commit_temp_if_free gives it target's place. The folder and the file
// path inside it are registered like temporaries (see below).
std::filesystem::path sibling_temp_folder(const std::filesystem::path& target);

// A hidden folder beside target, named as sibling_temp_name's files, for a run's scratch
// files when the work folder cannot be had; registered as a tree. Throws Error(Output).
std::filesystem::path hidden_scratch_folder(const std::filesystem::path& target);

// Removes from `folder` the temporaries (files and folders) of the programs' processes that
// are no longer alive; a name not made by sibling_temp_name's rule, or of a live process, is
// left alone. Never throws.
void remove_abandoned_temps(const std::filesystem::path& folder) noexcept;

// Removes a folder of sibling_temp_folder with anything in it, and forgets it; never throws.
void discard_temp_folder(const std::filesystem::path& folder) noexcept;

// Writes target through a temporary beside it and renames it into place: a reader never sees
// half a file, and a failure leaves an earlier file as it was. Throws Error(ErrorKind::Output)
// with the reason when the write or the rename fails; the temporary is removed.
void write_atomically(const std::filesystem::path& target,
                      const std::function<void(const std::filesystem::path& temp)>& write);

// Renames a finished temporary onto target; throws Error(ErrorKind::Output) on failure.
void commit_temp(const std::filesystem::path& temp, const std::filesystem::path& target);

// Renames a finished temporary onto target unless a file of that name exists: false, with
// nothing changed, when one does (another program may have written it meanwhile). Throws
// Error(ErrorKind::Output) on any other failure, the temporary staying where it is.
bool commit_temp_if_free(const std::filesystem::path& temp, const std::filesystem::path& target);

// Removes a temporary and forgets it; never throws.
void discard_temp(const std::filesystem::path& temp) noexcept;

// Temporaries under way, kept where a signal handler can reach them: an abrupt end of the
// program removes them (files first, then the emptied temporary folders) so that no
// half-written file is left behind. Safe in a signal handler.
void remove_registered_temps() noexcept;

} // namespace qf::engine
