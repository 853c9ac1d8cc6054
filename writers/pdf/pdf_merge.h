// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "engine/run_model.h"

namespace qf::writers::pdf {

// Merges the pages of `inputs`, in order, into one PDF at `target`. The merged file keeps the
// first merged input's header version and catalog XMP metadata, so a combined PDF/A run stays
// PDF/A, and gets the snapshot's document information. Its OutputIntents are the first
// input's when they fit every merged page; otherwise a PDF/A or PDF/X file gets the one
// output intent that fits them all, device colours it does not describe tied to profiles of
// their own (the profiles of the default resources folder). No security pass
// happens here. A missing input is passed over in silence; one that cannot be read is passed
// over too. `merged` is called with each input once its pages are in.
// Input files are opened one at a time and closed between reads, so any number of inputs
// stays within the open-file limit; page data is read from them only when the file is
// written, so the inputs must stay in place until this returns.
// The file appears under `target` only when complete. Throws engine::Error(ErrorKind::Output)
// when nothing could be merged or the file could not be written; an earlier file at `target`
// then stays as it was.
void merge_pdfs(const std::vector<std::filesystem::path>& inputs,
                const std::filesystem::path& target, const engine::OptionSnapshot& snapshot,
                const std::function<void(const std::filesystem::path&)>& merged);

// The same, secured in the same write: the file is the one merge_pdfs followed by
// encryptpdfnow (security_pass.h) would give, and the lines returned are that pass's.
std::vector<std::string> merge_and_secure(
    const std::vector<std::filesystem::path>& inputs, const std::filesystem::path& target,
    const engine::OptionSnapshot& snapshot,
    const std::function<void(const std::filesystem::path&)>& merged);

} // namespace qf::writers::pdf
