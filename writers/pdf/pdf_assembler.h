// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <memory>

#include "engine/services.h"

namespace qf::writers::pdf {

// The resources folder of an installed or a source-tree build: <prefix>/share/quirefold
// beside the running program when it exists, else the source tree's resources/.
std::filesystem::path default_resources_folder();

// A PDF assembled page by page with QPDF and written to `target` at close(). Source PDFs are
// opened once per path and stay open until close(), since QPDF copies page data when it
// writes; their annotations and form fields are flattened in memory, the files are never
// written. Picture data waits in a scratch file beside the target. The ICC profiles of the
// conformance levels are read from <resources>/icc. Not thread-safe.
// add_pdf_page throws Error(Password) when the password does not open the source,
// Error(Damaged) when it cannot be read and Error(BadInput) for a page it does not have;
// close() throws Error(Output), "no page could be converted" for a document of no page.
std::unique_ptr<engine::PdfAssembler> make_pdf_assembler(const std::filesystem::path &target,
                                                         const engine::OptionSnapshot &snapshot,
                                                         const std::filesystem::path &resources);

// The same with the default resources folder: an engine::PdfAssemblerFactory.
std::unique_ptr<engine::PdfAssembler> make_pdf_assembler(const std::filesystem::path &target,
                                                         const engine::OptionSnapshot &snapshot);

// A factory bound to a resources folder, for the composition roots. Its assemblers share the
// source they opened last, so consecutive one-page files of a document parse it once; that
// source stays open until another is needed or the factory goes.
engine::PdfAssemblerFactory pdf_assembler_factory(std::filesystem::path resources);

} // namespace qf::writers::pdf
