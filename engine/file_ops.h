// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <functional>

namespace qf::engine {

// A free temporary name beside target: ".name.XXXXXX" in the same folder, so that a rename
// onto target is atomic. The file is created empty and registered (see below).
std::filesystem::path sibling_temp_name(const std::filesystem::path& target);

// Writes target through a temporary beside it and renames it into place: a reader never sees
// half a file, and a failure leaves an earlier file as it was. Throws Error(ErrorKind::Output)
// with the reason when the write or the rename fails; the temporary is removed.
void write_atomically(const std::filesystem::path& target,
                      const std::function<void(const std::filesystem::path& temp)>& write);

// Renames a finished temporary onto target; throws Error(ErrorKind::Output) on failure.
void commit_temp(const std::filesystem::path& temp, const std::filesystem::path& target);

// Removes a temporary and forgets it; never throws.
void discard_temp(const std::filesystem::path& temp) noexcept;

// Temporaries under way, kept where a signal handler can reach them: an abrupt end of the
// program removes them so that no half-written file is left behind. Safe in a signal handler.
void remove_registered_temps() noexcept;

} // namespace qf::engine
