// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <stdexcept>
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

// A flattened copy that a reader worker keeps in memory, so that the same worker can write a
// document's output from it at once (deliver), without writing the copy and parsing it again.
struct KeptCopy {
    FlattenedCopy facts;
    std::uint64_t token = 0; // the copy's number in its worker
    int worker = 0;          // the process id of the worker that keeps it
};

// What the write of a delivered PDF needs besides its pages.
struct DeliveryOrder {
    engine::OptionSnapshot snapshot;
    std::filesystem::path target;    // the file as delivered, as lines name it
    std::filesystem::path resources; // holds icc/
    bool secured = false;            // close_secured() rather than close()
};

// Thrown by a delivery when the worker that kept the copy has gone or let it go.
class CopyGone : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Output written by the reader worker that keeps the document's flattened copy. `keep` makes
// the copy (throws as PageCopier does); `deliver` writes the chosen pages of it (1-based, in
// order) to `temp` as the order asks, returning what close_secured() returns; it throws
// Error(Output), or CopyGone, after which the pages are copied here from a new copy.
struct WorkerDelivery {
    std::function<KeptCopy(const std::filesystem::path &source, const std::string &password)> keep;
    std::function<engine::PdfClosed(const KeptCopy &copy, const std::vector<int> &pages,
                                    const DeliveryOrder &order, const std::filesystem::path &temp)>
        deliver;
};

// As pdf_assembler_factory(resources, copier), except that a document's own PDF (PDF
// (Multipage), and the parts of a combined file) is written by the worker through `delivery`.
engine::PdfAssemblerFactory pdf_assembler_factory(std::filesystem::path resources, PageCopier copier,
                                                  WorkerDelivery delivery);

// The worker's side of a delivery: a source's flattened copy kept in memory.
class HeldCopy;
struct HeldCopyDeleter {
    void operator()(HeldCopy *copy) const;
};
using HeldCopyPtr = std::unique_ptr<HeldCopy, HeldCopyDeleter>;

// Flattens `source` as write_flattened_copy does and keeps the copy. `facts` receives its
// page count and the pages that could not be copied. Throws as write_flattened_copy does.
HeldCopyPtr hold_flattened_copy(const std::filesystem::path &source, const std::string &password,
                                FlattenedCopy &facts);

// Writes `pages` of the held copy to `temp` as close() or close_secured() of an assembler
// given the same pages would write them. The copy is used up. Throws Error.
engine::PdfClosed deliver_held_copy(HeldCopy &copy, const std::vector<int> &pages, const DeliveryOrder &order,
                                    const std::filesystem::path &temp);

} // namespace qf::writers::pdf
