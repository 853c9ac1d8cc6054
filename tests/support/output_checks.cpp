// SPDX-License-Identifier: GPL-3.0-or-later
#include "tests/support/output_checks.h"

#include <algorithm>
#include <cctype>
#include <iterator>
#include <fstream>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>

#include <qpdf/QPDF.hh>
#include <qpdf/QPDFPageDocumentHelper.hh>

#include "tests/support/image_checks.h"
#include "tests/support/pdf_examine.h"

namespace qf::test {
namespace fs = std::filesystem;

FileSeal seal_of(const fs::path &file)
{
    struct stat info{};
    if (::stat(file.c_str(), &info) != 0) {
        return {};
    }
    return {file_bytes(file), std::int64_t(info.st_mtim.tv_sec) * 1000000000 + info.st_mtim.tv_nsec,
            info.st_ino};
}

std::string undecodable(const fs::path &file, const std::string &pdf_password)
{
    std::string extension = file.extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return std::toupper(c); });
    try {
        if (extension == ".JPG") { // libjpeg only warns about a cut file: check its end marker
            return file_bytes(file).ends_with("\xFF\xD9") && read_jpeg(file).image.width > 0
                       ? "" : "a JPEG cut short, or of no pixels";
        }
        if (extension == ".PNG") {
            const bool ends = file_bytes(file).ends_with(std::string("IEND\xAE\x42\x60\x82", 8));
            return ends && read_png(file).image.width > 0 ? "" : "a PNG cut short, or of no pixels";
        }
        if (extension == ".TIF" || extension == ".TIFF") {
            const auto images = read_tiff(file);
            return !images.empty() && std::ranges::none_of(images, [](const auto &image) {
                return image.image.samples.empty();
            }) ? "" : "a TIFF of no image, or an image without pixels";
        }
        if (extension == ".PDF") {
            return pdf_page_count(file, pdf_password) > 0 ? structural_problems(file, pdf_password)
                                                          : "a PDF of no page, or none that opens";
        }
        if (extension == ".TXT") {
            return file_bytes(file).empty() ? "an empty text file" : "";
        }
    } catch (const std::exception &e) {
        return e.what();
    }
    return "an unexpected file";
}

int pdf_page_count(const fs::path &file, const std::string &password)
{
    try {
        QPDF pdf;
        pdf.setSuppressWarnings(true);
        pdf.processFile(file.c_str(), password.c_str());
        return static_cast<int>(QPDFPageDocumentHelper(pdf).getAllPages().size());
    } catch (const std::exception &) {
        return -1;
    }
}

std::vector<std::string> tree_of(const fs::path &folder)
{
    std::vector<std::string> names;
    std::error_code error;
    for (fs::recursive_directory_iterator it(folder, error), end; !error && it != end;
         it.increment(error)) {
        names.push_back(fs::relative(it->path(), folder).string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::vector<std::string> temporaries_in(const fs::path &folder)
{
    std::vector<std::string> found;
    std::ranges::copy_if(tree_of(folder), std::back_inserter(found), [](const std::string &name) {
        const std::string leaf = fs::path(name).filename().string();
        return leaf.front() == '.' || leaf.find("_exiftool_tmp") != std::string::npos;
    });
    return found;
}

std::vector<std::string> scratch_left(const fs::path &data_home)
{
    std::vector<std::string> left;
    const fs::path work = data_home / "org.quirefold.extract";
    std::error_code error;
    for (fs::directory_iterator it(work, error), end; !error && it != end; it.increment(error)) {
        left.push_back(it->path().filename().string());
    }
    return left;
}

std::vector<pid_t> processes_left(const fs::path &data_home, std::chrono::milliseconds grace)
{
    const std::string entry = "XDG_DATA_HOME=" + data_home.string() + '\0';
    const auto deadline = std::chrono::steady_clock::now() + grace;
    for (;;) {
        std::vector<pid_t> found;
        std::error_code error;
        for (fs::directory_iterator it("/proc", error), end; !error && it != end;
             it.increment(error)) {
            const std::string name = it->path().filename().string();
            if (name.find_first_not_of("0123456789") != std::string::npos) {
                continue;
            }
            // A zombie shows no environment: it is gone for what matters here.
            if (file_bytes(it->path() / "environ").find(entry) != std::string::npos) {
                found.push_back(static_cast<pid_t>(std::stol(name)));
            }
        }
        if (found.empty() || std::chrono::steady_clock::now() >= deadline) {
            return found;
        }
        ::usleep(50000);
    }
}

bool has_line(const std::vector<std::string> &lines, const std::string &line)
{
    return std::find(lines.begin(), lines.end(), line) != lines.end();
}

std::string file_bytes(const fs::path &path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

} // namespace qf::test
