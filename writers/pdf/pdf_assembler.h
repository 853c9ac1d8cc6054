// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

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

// What write_flattened_copy wrote: the source's page count, and the pages (1-based) that could
// not be copied, which stand in the copy as empty pages so that the others keep their numbers.
struct FlattenedCopy {
    int page_count = 0;
    std::vector<int> uncopyable;
    // The copy itself when it was made in memory rather than in its file (a file size limit
    // too low for it); empty otherwise.
    std::string in_memory;
};

// Writes every page of `source`, annotations and form fields flattened as the assemblers
// flatten them, into a new PDF at `copy` with a page tree of one level. Stream data passes as
// it is. Throws Error(Password), Error(Damaged) as add_pdf_page does; Error(Output) when the
// copy cannot be written. With `in_memory`, the copy is made there instead of in a file.
FlattenedCopy write_flattened_copy(const std::filesystem::path &source, const std::string &password,
                                   const std::filesystem::path &copy, std::string *in_memory = nullptr);

// Makes the flattened copy of `source` at `copy`, elsewhere than in this process (a reader
// worker), as write_flattened_copy does. Throws Error for the document's sake, which the
// factory remembers for the file; any other exception (the copy was stopped) it does not.
using PageCopier = std::function<FlattenedCopy(const std::filesystem::path &source,
                                               const std::string &password,
                                               const std::filesystem::path &copy)>;

// A factory whose assemblers never read a source PDF themselves: `copier` writes its flattened
// copy into a scratch folder of the work folder, and the pages are copied from that file, which
// this program wrote; the folder goes as soon as the copy is open. A source whose copy failed fails its later pages with the same reason
// until the file changes.
engine::PdfAssemblerFactory pdf_assembler_factory(std::filesystem::path resources, PageCopier copier);

} // namespace qf::writers::pdf
