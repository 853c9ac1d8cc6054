// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>

#include <qpdf/Buffer.hh>
#include <qpdf/QPDF.hh>
#include <qpdf/QPDFPageObjectHelper.hh>

#include "engine/error.h"
#include "engine/run_model.h"
#include "tests/support/hostile_files.h"
#include "tests/support/pdf_fixtures.h"
#include "tests/support/pdf_security_checks.h"
#include "writers/pdf/security_pass.h"

namespace qf::writers::pdf {
namespace {

engine::OptionSnapshot plain_snapshot()
{
    engine::OptionSnapshot snapshot;
    snapshot.mimageformat = "PDF (Multipage)";
    snapshot.mpdfversionnumber = 7;
    return snapshot;
}

engine::OptionSnapshot encrypting_snapshot(int enlvl)
{
    auto snapshot = plain_snapshot();
    snapshot.enlvl = enlvl;
    snapshot.mpdfpassword = "reader";
    return snapshot;
}

std::string stream_bytes(QPDFObjectHandle stream, qpdf_stream_decode_level_e level)
{
    const auto data =
        level == qpdf_dl_none ? stream.getRawStreamData() : stream.getStreamData(level);
    return std::string(reinterpret_cast<const char*>(data->getBuffer()), data->getSize());
}

// With nothing asked for, the file is rewritten unencrypted with the document information;
// images are recompressed losslessly and never resampled, and JPEG data passes as it is.
TEST(SecurityPass, NoOptionsRewriteTheFileUnencryptedAndLossless)
{
    test::ScratchFolder folder;
    const auto pdf = folder / "plain.pdf";
    test::write_labelled_pdf(pdf, {"one", "two"}, {.images = true});
    auto snapshot = plain_snapshot();
    snapshot.mpdfauthorname = "Ada Lovelace";
    EXPECT_TRUE(encryptpdfnow(pdf, snapshot).empty());

    QPDF result;
    test::open_pdf(result, pdf);
    EXPECT_FALSE(result.isEncrypted());
    EXPECT_EQ(test::page_labels(result), (std::vector<std::string>{"one", "two"}));
    EXPECT_EQ(test::info_entry(result, "/Author"), "Ada Lovelace");
    EXPECT_NE(test::xmp_packet_of(result).find("Ada Lovelace"), std::string::npos);
    EXPECT_EQ(folder.names(), std::vector<std::string>{"plain.pdf"});

    QPDFObjectHandle page = result.getAllPages().front();
    auto xobjects = page.getKey("/Resources").getKey("/XObject");
    auto raw = xobjects.getKey("/Im0");
    EXPECT_TRUE(raw.getDict().getKey("/Filter").isNameAndEquals("/FlateDecode"));
    EXPECT_EQ(raw.getDict().getKey("/Width").getIntValue(), test::kRawImageSide);
    EXPECT_EQ(stream_bytes(raw, qpdf_dl_generalized), test::raw_image_pixels());
    EXPECT_LT(stream_bytes(raw, qpdf_dl_none).size(), test::raw_image_pixels().size());
    auto jpeg = xobjects.getKey("/Im1");
    EXPECT_TRUE(jpeg.getDict().getKey("/Filter").isNameAndEquals("/DCTDecode"));
    EXPECT_EQ(stream_bytes(jpeg, qpdf_dl_none), test::kJpegBytes);
}

// The header is the higher of the file's own version and what encryption needs; object
// streams appear only where that version allows them and never in PDF/A-1.
TEST(SecurityPass, VersionAndObjectStreamsFollowTheFeatures)
{
    const struct {
        const char* version;
        int pdfa_part;
        int enlvl; // -1: no encryption
        const char* expected_version;
        int expected_extension;
        bool object_streams;
    } cases[] = {
        {"1.4", 0, -1, "1.4", 0, false}, {"1.5", 0, -1, "1.5", 0, true},
        {"1.7", 0, -1, "1.7", 0, true},  {"1.4", 1, -1, "1.4", 0, false},
        {"1.7", 1, -1, "1.7", 0, false}, {"1.7", 2, -1, "1.7", 0, true},
        {"1.4", 0, 0, "1.4", 0, false},  {"1.3", 0, 1, "1.4", 0, false},
        {"1.4", 0, 3, "1.6", 0, true},   {"1.4", 0, 4, "1.7", 8, true},
        {"2.0", 0, 0, "2.0", 0, true},
    };
    test::ScratchFolder folder;
    const auto pdf = folder / "version.pdf";
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.version) + " part " + std::to_string(c.pdfa_part) + " level " +
                     std::to_string(c.enlvl));
        test::PdfDressing dressing;
        dressing.version = c.version;
        dressing.pdfa_part = c.pdfa_part;
        test::write_labelled_pdf(pdf, {"a", "b"}, dressing);
        encryptpdfnow(pdf, c.enlvl < 0 ? plain_snapshot() : encrypting_snapshot(c.enlvl));

        QPDF result;
        test::open_pdf(result, pdf, c.enlvl < 0 ? "" : "reader");
        EXPECT_EQ(result.getPDFVersion(), c.expected_version);
        EXPECT_EQ(result.getExtensionLevel(), c.expected_extension);
        EXPECT_EQ(test::uses_object_streams(result), c.object_streams);
    }
}

// A PDF/A or PDF/X file that gets encrypted no longer conforms, and the log says so; the
// claim comes from the chosen level or, failing that, from the file's XMP.
TEST(SecurityPass, ReportsTheConformanceThatEncryptionBreaks)
{
    const struct {
        int chosen_code;
        int pdfa_part;
        char conformance;
        const char* pdfx;
        bool encrypt;
        std::vector<std::string> lines;
    } cases[] = {
        {14, 1, 'B', "", true, {"report.pdf is encrypted and no longer conforms to PDF/A 1b"}},
        {14, 0, 'B', "", true, {"report.pdf is encrypted and no longer conforms to PDF/A 1b"}},
        {7, 2, 'U', "", true, {"report.pdf is encrypted and no longer conforms to PDF/A 2u"}},
        {15, 0, 'B', "PDF/X-4", true, {"report.pdf is encrypted and no longer conforms to PDF/X-4"}},
        {7, 0, 'B', "PDF/X-4", true, {"report.pdf is encrypted and no longer conforms to PDF/X-4"}},
        {18, 2, 'B', "", false, {}},
        {7, 0, 'B', "", true, {}},
    };
    test::ScratchFolder folder;
    const auto pdf = folder / "report.pdf";
    for (const auto& c : cases) {
        SCOPED_TRACE("code " + std::to_string(c.chosen_code) + " part " +
                     std::to_string(c.pdfa_part));
        test::PdfDressing dressing;
        dressing.pdfa_part = c.pdfa_part;
        dressing.pdfa_conformance = c.conformance;
        dressing.pdfx_version = c.pdfx;
        test::write_labelled_pdf(pdf, {"page"}, dressing);
        auto snapshot = c.encrypt ? encrypting_snapshot(4) : plain_snapshot();
        snapshot.mpdfversionnumber = c.chosen_code;
        EXPECT_EQ(encryptpdfnow(pdf, snapshot), c.lines);
    }
}

// A pass that fails leaves the delivered file byte for byte as it was, and no temporary.
TEST(SecurityPass, FailureLeavesTheFileAsItWas)
{
    test::ScratchFolder folder;
    test::write_text_file(folder / "notes.pdf", "These are plain notes, not a PDF.\n");
    test::write_garbage_pdf(folder / "garbage.pdf");
    test::write_labelled_pdf(folder / "source.pdf", {"secret page"});
    test::write_encrypted_copy(folder / "source.pdf", folder / "locked.pdf",
                               test::PdfEncryption::Aes256, "someone else", "owner");
    const auto names_before = folder.names();
    for (const char* name : {"notes.pdf", "garbage.pdf", "locked.pdf"}) {
        SCOPED_TRACE(name);
        const std::string before = test::file_bytes(folder / name);
        try {
            encryptpdfnow(folder / name, encrypting_snapshot(4));
            ADD_FAILURE() << "the pass succeeded";
        } catch (const engine::Error& e) {
            EXPECT_EQ(e.kind(), engine::ErrorKind::Output);
            EXPECT_EQ(e.reason().find("reader"), std::string::npos) << "the password is in it";
        }
        EXPECT_EQ(test::file_bytes(folder / name), before);
    }
    EXPECT_EQ(folder.names(), names_before);
}

} // namespace
} // namespace qf::writers::pdf
