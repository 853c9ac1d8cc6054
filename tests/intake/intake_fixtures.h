// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

// Small documents and folders made on the fly for the intake tests.

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <qpdf/QPDF.hh>
#include <qpdf/QPDFPageDocumentHelper.hh>
#include <qpdf/QPDFWriter.hh>
#include <tiffio.h>

namespace qf::intake::fixtures {

// A fresh folder under the system's temporary folder, removed with everything in it.
class TempFolder {
public:
    TempFolder()
    {
        const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
        std::string name = "qf-intake-";
        name += info ? std::string(info->test_suite_name()) + "-" + info->name() : "test";
        path_ = std::filesystem::temp_directory_path() / name;
        std::filesystem::remove_all(path_);
        std::filesystem::create_directories(path_);
    }
    ~TempFolder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    const std::filesystem::path& path() const { return path_; }
    std::filesystem::path operator/(const std::string& name) const { return path_ / name; }

private:
    std::filesystem::path path_;
};

inline void write_text_file(const std::filesystem::path& path, const std::string& text)
{
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << text;
}

// A grey 8-bit TIFF of `images` images of 16 x 16 pixels, in strips or in 16 x 16 tiles.
inline void write_tiff(const std::filesystem::path& path, int images, bool tiled = false)
{
    std::filesystem::create_directories(path.parent_path());
    TIFF* tiff = TIFFOpen(path.c_str(), "w");
    ASSERT_NE(tiff, nullptr);
    std::vector<unsigned char> pixels(16 * 16, 0x80);
    for (int image = 0; image < images; ++image) {
        TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, 16);
        TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, 16);
        TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, 8);
        TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, 1);
        TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
        TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
        TIFFSetField(tiff, TIFFTAG_COMPRESSION, COMPRESSION_NONE);
        if (tiled) {
            TIFFSetField(tiff, TIFFTAG_TILEWIDTH, 16);
            TIFFSetField(tiff, TIFFTAG_TILELENGTH, 16);
            ASSERT_GT(TIFFWriteEncodedTile(tiff, 0, pixels.data(), static_cast<tmsize_t>(pixels.size())), 0);
        } else {
            TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, 16);
            ASSERT_GT(TIFFWriteEncodedStrip(tiff, 0, pixels.data(), static_cast<tmsize_t>(pixels.size())), 0);
        }
        ASSERT_TRUE(TIFFWriteDirectory(tiff));
    }
    TIFFClose(tiff);
}

// A TIFF header whose first image offset is 0: a well-formed file of no images.
inline void write_empty_tiff(const std::filesystem::path& path)
{
    write_text_file(path, std::string("II*\0\0\0\0\0", 8));
}

// A PDF of `pages` letter pages. With a user password it is encrypted with 128-bit AES (R4);
// with only an owner password it is encrypted yet opens without a password.
inline void write_pdf(const std::filesystem::path& path, int pages, const std::string& user_password = {},
                      const std::string& owner_password = {})
{
    std::filesystem::create_directories(path.parent_path());
    QPDF pdf;
    pdf.emptyPDF();
    QPDFPageDocumentHelper helper(pdf);
    for (int page = 0; page < pages; ++page) {
        QPDFObjectHandle contents = QPDFObjectHandle::newStream(&pdf, "q Q\n");
        QPDFObjectHandle dictionary = QPDFObjectHandle::parse("<< /Type /Page /MediaBox [0 0 612 792] >>");
        dictionary.replaceKey("/Contents", contents);
        helper.addPage(QPDFPageObjectHelper(pdf.makeIndirectObject(dictionary)), false);
    }
    QPDFWriter writer(pdf, path.c_str());
    if (!user_password.empty() || !owner_password.empty()) {
        const std::string owner = owner_password.empty() ? user_password + "-owner" : owner_password;
        writer.setR4EncryptionParametersInsecure(user_password.c_str(), owner.c_str(), true, true, true, true,
                                                 true, true, qpdf_r3p_full, true, true);
    }
    writer.write();
}

} // namespace qf::intake::fixtures
