// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <filesystem>
#include <memory>
#include <string>

class QPDF;

namespace qf::writers::pdf {

// A PDF parsed by QPDF from its file mapped into memory, so that the many small reads of
// its objects cost no seek and no system call each. The mapping lasts as long as the
// document. A file that cannot be mapped (empty, not a regular file) is parsed from the file.
// A file cut short while mapped ends the process with SIGBUS: only files this program wrote,
// or files read in a reader worker, are parsed this way.
class MappedPdf {
public:
    // Throws what QPDF::processFile throws. Without `map`, the file is read as it is parsed.
    MappedPdf(const std::filesystem::path& path, const std::string& password, bool map = true);
    ~MappedPdf();

    MappedPdf(const MappedPdf&) = delete;
    MappedPdf& operator=(const MappedPdf&) = delete;

    QPDF& operator*() const { return *pdf_; }
    QPDF* operator->() const { return pdf_.get(); }

private:
    void* data_ = nullptr;
    std::size_t size_ = 0;
    std::unique_ptr<QPDF> pdf_;
};

} // namespace qf::writers::pdf
