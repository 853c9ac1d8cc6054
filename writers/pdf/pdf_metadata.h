// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>

#include <qpdf/QPDF.hh>

#include "engine/run_model.h"

namespace qf::writers::pdf {

// applydocinfo: sets the Info entries Author, Title, Subject (from the snapshot, already
// trimmed), Creator and Producer ("Quirefold"), and rewrites the document's XMP metadata
// packet so that it says the same, keeping any PDF/A or PDF/X identification it holds.
// An empty Author, Title or Subject removes the entry from Info and XMP alike, except the
// Title of a PDF/X file, which that standard requires and which is kept. CreationDate is
// kept when the file has one; ModDate becomes now.
void applydocinfo(QPDF &pdf, const engine::OptionSnapshot &snapshot);

// The conformance claim an XMP packet makes: PDF/A part and level, or the PDF/X version.
struct XmpIdentification
{
    std::string pdfa_part;        // "1", "2", "3"; empty when no PDF/A claim
    std::string pdfa_conformance; // "A", "B", "U"
    std::string pdfx_version;     // "PDF/X-4"; empty when no PDF/X claim
    bool operator==(const XmpIdentification &) const = default;
};

// The identification of the document's current XMP packet; all empty when it has none.
XmpIdentification read_identification(QPDF &pdf);

// Makes the document claim `id`: rewrites the XMP packet from the Info entries with it, and
// for PDF/X sets Info GTS_PDFXVersion and Trapped (/False unless already True) as well.
void set_identification(QPDF &pdf, const XmpIdentification &id);

} // namespace qf::writers::pdf
