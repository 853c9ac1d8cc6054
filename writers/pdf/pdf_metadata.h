// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <qpdf/QPDF.hh>

#include "engine/run_model.h"

namespace qf::writers::pdf {

// applydocinfo: sets the Info entries Author, Title, Subject (from the snapshot, already
// trimmed), Creator and Producer ("Quirefold"), and rewrites the document's XMP metadata
// packet so that it says the same, keeping any PDF/A or PDF/X identification it holds.
void applydocinfo(QPDF& pdf, const engine::OptionSnapshot& snapshot);

} // namespace qf::writers::pdf
