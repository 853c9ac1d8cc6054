// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

class QPDF;

namespace qf::writers::pdf {

// A PDF parsed by QPDF from memory, so that the many small reads of its objects cost no seek
// and no system call each: its file mapped, or bytes already read. The memory lasts as long as
// the document. A file that cannot be mapped (empty, not a regular file) is parsed from the file.
// A file cut short while mapped ends the process with SIGBUS: only files this program wrote,
// or files read in a reader worker, are parsed this way.
class MappedPdf {
public:
    // Throws what QPDF::processFile throws. Without `map`, the file is read as it is parsed.
    MappedPdf(const std::filesystem::path& path, const std::string& password, bool map = true);
    // The PDF `bytes` hold, named `description` in QPDF's messages; the bytes are kept as long
    // as the document.
    MappedPdf(std::string bytes, const std::filesystem::path& description);
    ~MappedPdf();

    MappedPdf(const MappedPdf&) = delete;
    MappedPdf& operator=(const MappedPdf&) = delete;

    QPDF& operator*() const { return *pdf_; }
    QPDF* operator->() const { return pdf_.get(); }

private:
    void* data_ = nullptr; // the mapping, if any
    std::size_t size_ = 0;
    std::string bytes_;    // or the bytes read
    std::unique_ptr<QPDF> pdf_;
};

// A file's size and modification time, which tell a file written again since it was parsed.
struct FileStamp {
    std::uintmax_t size = 0; // 0 for what is not a regular file
    std::filesystem::file_time_type time{};
    bool operator==(const FileStamp&) const = default;
};

FileStamp stamp_of(const std::filesystem::path& path);

} // namespace qf::writers::pdf
