// SPDX-License-Identifier: GPL-3.0-or-later
#include "writers/pdf/mapped_pdf.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <qpdf/QPDF.hh>

#include <utility>

namespace qf::writers::pdf {

MappedPdf::MappedPdf(const std::filesystem::path& path, const std::string& password, bool map)
    : pdf_(std::make_unique<QPDF>())
{
    pdf_->setSuppressWarnings(true);
    const int fd = map ? ::open(path.c_str(), O_RDONLY | O_CLOEXEC) : -1;
    struct stat facts {};
    if (fd >= 0 && ::fstat(fd, &facts) == 0 && S_ISREG(facts.st_mode) && facts.st_size > 0) {
        void* at = ::mmap(nullptr, static_cast<std::size_t>(facts.st_size), PROT_READ, MAP_PRIVATE, fd, 0);
        if (at != MAP_FAILED) {
            data_ = at;
            size_ = static_cast<std::size_t>(facts.st_size);
        }
    }
    if (fd >= 0) {
        ::close(fd);
    }
    const char* key = password.empty() ? nullptr : password.c_str();
    try {
        if (data_ != nullptr) {
            pdf_->processMemoryFile(path.c_str(), static_cast<const char*>(data_), size_, key);
        } else {
            pdf_->processFile(path.c_str(), key);
        }
    } catch (...) {
        pdf_.reset();
        if (data_ != nullptr) {
            ::munmap(data_, size_);
        }
        throw;
    }
}

MappedPdf::MappedPdf(std::string bytes, const std::filesystem::path& description)
    : bytes_(std::move(bytes)), pdf_(std::make_unique<QPDF>())
{
    pdf_->setSuppressWarnings(true);
    pdf_->processMemoryFile(description.c_str(), bytes_.data(), bytes_.size());
}

MappedPdf::~MappedPdf()
{
    pdf_.reset(); // reads the mapping until it goes
    if (data_ != nullptr) {
        ::munmap(data_, size_);
    }
}

FileStamp stamp_of(const std::filesystem::path& path)
{
    std::error_code error;
    FileStamp stamp;
    if (std::filesystem::is_regular_file(path, error)) {
        stamp.size = std::filesystem::file_size(path, error);
        stamp.time = std::filesystem::last_write_time(path, error);
    }
    return stamp;
}

} // namespace qf::writers::pdf
