// SPDX-License-Identifier: GPL-3.0-or-later
// The passes over a finished PDF: encryption and document information, and merging.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <tuple>

#include <sys/resource.h>

#include <qpdf/QPDF.hh>

#include "engine/error.h"
#include "engine/run_model.h"
#include "tests/support/hostile_files.h"
#include "tests/support/output_checks.h"
#include "tests/support/pdf_fixtures.h"
#include "tests/support/pdf_security_checks.h"
#include "writers/pdf/pdf_merge.h"
#include "writers/pdf/security_pass.h"

namespace qf::writers::pdf {
namespace {

using test::opens_with;
using test::read_encryption;

// Each level as a reader finds it: revision R, version V, cipher and key length.
const struct { int enlvl; const char* row; int revision, version; QPDF::encryption_method_e cipher;
               std::size_t key_bits; } kLevels[] = {
    {0, "40 Bit", 2, 1, QPDF::e_rc4, 40},       {1, "128 Bit RC4", 3, 2, QPDF::e_rc4, 128},
    {3, "128 Bit AES", 4, 4, QPDF::e_aes, 128}, {4, "256 Bit AES", 6, 5, QPDF::e_aesv3, 256},
};

struct Rights { bool copy, print, annotate; };
// Each right refused alone, then all of them.
const Rights kRights[] = {{true, true, true},  {false, true, true},  {true, false, true},
                          {true, true, false}, {false, false, false}};

engine::OptionSnapshot snapshot_for(int enlvl, const std::string& user = {},
                                    const std::string& owner = {},
                                    const Rights& rights = kRights[0])
{
    engine::OptionSnapshot snapshot;
    snapshot.mimageformat = "PDF (Multipage)";
    snapshot.mpdfversionnumber = 7;
    snapshot.enlvl = std::max(enlvl, 0); // -1: a file without passwords, left unencrypted
    snapshot.mpdfpassword = user;
    snapshot.mpdffullpassword = owner;
    snapshot.mallowcopy = rights.copy;
    snapshot.mallowprinting = rights.print;
    snapshot.mallowannotation = rights.annotate;
    return snapshot;
}

// Every level with each right refused and with passwords: the cipher, key and permissions
// a reader finds, which password opens the file and which lifts the refused rights. Without a
// Master Password the owner password is random, never empty and never the Viewing Password, so
// whoever opens the file cannot lift the refused rights; a Master Password alone, or a refused
// right alone, gives a file anyone opens. Blanks around a password are not part of it, and
// blanks alone are no password at all.
TEST(SecurityPass, EncryptsAtEachLevelWithThePasswordsAndRefusedRights)
{
    // The password a reader gives to open the file, whether the file opens without one and
    // whether the opener matched the owner password.
    struct Case { const char *user, *owner; Rights rights; const char* opener; bool opens_without,
                  opener_lifts_rights; };
    std::vector<Case> cases = {
        {"  secret ", "", kRights[0], "secret", false, false},
        {"", "  boss  ", kRights[0], "boss", true, true},
        {"", "boss", kRights[0], "", true, false},
        {"", "", {true, false, true}, "", true, false},
    };
    for (const Rights& rights : kRights) {
        cases.push_back({"reader", "master", rights, "reader", false, false});
        cases.push_back({"reader", "master", rights, "master", false, true});
    }
    cases.push_back({"viewer", "", {false, true, true}, "viewer", false, false});
    test::ScratchFolder folder;
    const auto pdf = folder / "secured.pdf";
    for (const auto& level : kLevels) {
        for (const auto& c : cases) {
            SCOPED_TRACE(std::string(level.row) + ", user '" + c.user + "', owner '" + c.owner +
                         "', rights " + std::to_string(c.rights.copy) +
                         std::to_string(c.rights.print) + std::to_string(c.rights.annotate));
            test::write_labelled_pdf(pdf, {"first", "second"});
            EXPECT_TRUE(encryptpdfnow(pdf, snapshot_for(level.enlvl, c.user, c.owner, c.rights)).empty());
            EXPECT_EQ(opens_with(pdf, ""), c.opens_without);
            EXPECT_EQ(opens_with(pdf, c.user), c.user[0] != ' '); // as typed, untrimmed
            const auto facts = read_encryption(pdf, c.opener);
            EXPECT_EQ(std::tuple(facts.encrypted, facts.revision, facts.version, facts.stream_method,
                                 facts.key_bits, facts.owner_matched),
                      std::tuple(true, level.revision, level.version, level.cipher, level.key_bits,
                                 c.opener_lifts_rights));
            QPDF reopened;
            test::open_pdf(reopened, pdf, c.opener);
            if (!c.opener_lifts_rights) {
                EXPECT_EQ(std::tuple(reopened.allowPrintLowRes(), reopened.allowPrintHighRes(),
                                     reopened.allowExtractAll(), reopened.allowModifyAnnotation()),
                          std::tuple(c.rights.print, c.rights.print, c.rights.copy,
                                     c.rights.annotate));
            }
        }
    }
    test::write_labelled_pdf(pdf, {"only page"});
    encryptpdfnow(pdf, snapshot_for(3, "   ", " \t"));
    EXPECT_FALSE(read_encryption(pdf, "").encrypted);
}

// What a reader hashes is the typed text in the encoding of the revision: UTF-8 (with
// SASLprep's mapping) for AES-256, PDFDocEncoding for the older levels, whose readers fall back
// to UTF-8 bytes for characters PDFDocEncoding lacks.
TEST(SecurityPass, NonAsciiPasswordsOpenAsReadersEncodeThem)
{
    const struct { int enlvl; const char* typed; std::string reader_bytes; } cases[] = {
        {3, "pässwörd", "p\xE4ssw\xF6rd"},       {4, "pässwörd", "pässwörd"},
        {4, "open\u00A0sesame", "open sesame"}, {4, "soft\u00ADhyphen", "softhyphen"},
        {3, "密码", "密码"},
    };
    test::ScratchFolder folder;
    const auto pdf = folder / "unicode.pdf";
    for (const auto& c : cases) {
        SCOPED_TRACE(std::to_string(c.enlvl) + " " + c.typed);
        test::write_labelled_pdf(pdf, {"only page"});
        encryptpdfnow(pdf, snapshot_for(c.enlvl, c.typed));
        EXPECT_FALSE(opens_with(pdf, ""));
        EXPECT_TRUE(opens_with(pdf, c.reader_bytes));
    }
}

// The header is the higher of the file's own version and what encryption needs; object
// streams appear only where that version allows them and never in PDF/A-1.
TEST(SecurityPass, VersionAndObjectStreamsFollowTheFeatures)
{
    const struct { const char* version; int pdfa_part, enlvl; // enlvl -1: no encryption
                   const char* expected_version; int expected_extension; bool object_streams;
    } cases[] = {
        {"1.4", 0, -1, "1.4", 0, false}, {"1.5", 0, -1, "1.5", 0, true},
        {"1.7", 1, -1, "1.7", 0, false}, {"1.7", 2, -1, "1.7", 0, true},
        {"1.4", 0, 3, "1.6", 0, true},   {"1.4", 0, 4, "1.7", 8, true},
    };
    test::ScratchFolder folder;
    const auto pdf = folder / "version.pdf";
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.version << " part " << c.pdfa_part << " " << c.enlvl);
        test::write_labelled_pdf(pdf, {"a", "b"}, {.version = c.version, .pdfa_part = c.pdfa_part});
        encryptpdfnow(pdf, snapshot_for(c.enlvl, c.enlvl < 0 ? "" : "reader"));
        QPDF result;
        test::open_pdf(result, pdf, c.enlvl < 0 ? "" : "reader");
        EXPECT_EQ(std::tuple(result.getPDFVersion(), result.getExtensionLevel(),
                             test::uses_object_streams(result)),
                  std::tuple(std::string(c.expected_version), c.expected_extension, c.object_streams));
    }
}

// A PDF/A or PDF/X file that gets encrypted no longer conforms, and the log says so; the
// claim comes from the chosen level or, failing that, from the file's XMP.
TEST(SecurityPass, ReportsTheConformanceThatEncryptionBreaks)
{
    const std::string broken = "report.pdf is encrypted and no longer conforms to ";
    const struct { int chosen_code, pdfa_part; char conformance; const char* pdfx; int enlvl;
                   std::vector<std::string> lines; } cases[] = {
        {14, 0, 'B', "", 4, {broken + "PDF/A 1b"}}, {7, 2, 'U', "", 4, {broken + "PDF/A 2u"}},
        {15, 0, 'B', "PDF/X-4", 4, {broken + "PDF/X-4"}},
        {7, 0, 'B', "PDF/X-4", 4, {broken + "PDF/X-4"}}, {18, 2, 'B', "", -1, {}},
        {7, 0, 'B', "", 4, {}},
    };
    test::ScratchFolder folder;
    const auto pdf = folder / "report.pdf";
    for (const auto& c : cases) {
        SCOPED_TRACE("code " + std::to_string(c.chosen_code) + " part " + std::to_string(c.pdfa_part));
        test::write_labelled_pdf(pdf, {"page"}, {.pdfa_part = c.pdfa_part,
                                                 .pdfa_conformance = c.conformance,
                                                 .pdfx_version = c.pdfx});
        auto snapshot = snapshot_for(c.enlvl, c.enlvl < 0 ? "" : "reader");
        snapshot.mpdfversionnumber = c.chosen_code;
        EXPECT_EQ(encryptpdfnow(pdf, snapshot), c.lines);
    }
}

namespace fs = std::filesystem;

engine::OptionSnapshot merge_snapshot()
{
    engine::OptionSnapshot snapshot;
    snapshot.mimageformat = "PDF (Multipage)";
    snapshot.mcombineall = true;
    snapshot.mpdfauthorname = "Grace Hopper";
    snapshot.mpdftitle = "Combined";
    return snapshot;
}

// Labels "<name> <page>" for a document of `pages` pages, named after its file.
std::vector<std::string> labels_of(const fs::path& file, int pages)
{
    std::vector<std::string> labels;
    for (int page = 1; page <= pages; ++page) {
        labels.push_back(file.stem().string() + " " + std::to_string(page));
    }
    return labels;
}

// Every page of each input in order; missing inputs are passed over in silence and unreadable
// ones passed over too, and whichever input comes first among the readable ones is the base.
// The document information is the run's.
// With nothing to merge the call fails and an older combined file stays as it was. Inputs are
// opened one at a time: more inputs than the process may hold open still merge.
TEST(MergePdfs, AppendsThePagesOfEachReadableInputInOrder)
{
    test::ScratchFolder folder;
    const fs::path a = folder / "a.pdf", b = folder / "b.pdf", c = folder / "c.pdf";
    const fs::path missing = folder / "gone.pdf", garbage = folder / "garbage.pdf",
                   text = folder / "text.pdf", truncated = folder / "truncated.pdf";
    const std::map<fs::path, int> pages = {{a, 2}, {b, 3}, {c, 1}}; // the others have one
    for (const auto& [file, count] : pages) {
        test::write_labelled_pdf(file, labels_of(file, count));
    }
    test::write_garbage_pdf(garbage);
    test::write_text_file(text, "not a PDF at all\n");
    test::write_truncated_copy(b, truncated, 20);
    std::vector<fs::path> many;
    for (int i = 1; i <= 80; ++i) {
        many.push_back(folder / ("many" + std::to_string(i) + ".pdf"));
        test::write_labelled_pdf(many.back(), labels_of(many.back(), 1));
    }
    // The inputs and those merged, whose pages the file holds; none: the merge fails.
    const std::pair<std::vector<fs::path>, std::vector<fs::path>> cases[] = {
        {{missing, garbage}, {}},
        {{c, a, b, c}, {c, a, b, c}},
        {{a, missing, garbage, text, truncated, c}, {a, c}},
        {{garbage, missing, b, a}, {b, a}},
        {many, many},
    };
    const auto target = folder / "Combine.PDF";
    test::write_labelled_pdf(target, {"older combined file"});
    rlimit saved{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &saved), 0);
    for (const auto& [inputs, merged_inputs] : cases) {
        SCOPED_TRACE(::testing::PrintToString(inputs).substr(0, 300));
        const std::string before = test::file_bytes(target);
        std::vector<fs::path> reported;
        rlimit tight = saved;
        tight.rlim_cur = 48;
        ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &tight), 0);
        try {
            merge_pdfs(inputs, target, merge_snapshot(),
                       [&](const fs::path& p) { reported.push_back(p); });
            EXPECT_FALSE(merged_inputs.empty()) << "the merge succeeded";
        } catch (const engine::Error& e) {
            EXPECT_TRUE(merged_inputs.empty()) << e.what();
            EXPECT_EQ(e.kind(), engine::ErrorKind::Output);
            EXPECT_EQ(test::file_bytes(target), before);
        }
        ::setrlimit(RLIMIT_NOFILE, &saved);
        EXPECT_EQ(reported, merged_inputs);
        std::vector<std::string> labels;
        for (const auto& input : merged_inputs) {
            const auto more = labels_of(input, pages.contains(input) ? pages.at(input) : 1);
            labels.insert(labels.end(), more.begin(), more.end());
        }
        if (labels.empty()) {
            continue;
        }
        QPDF merged;
        test::open_pdf(merged, target);
        EXPECT_EQ(test::page_labels(merged), labels);
        EXPECT_EQ(test::info_entry(merged, "/Author"), "Grace Hopper");
    }
    EXPECT_TRUE(test::temporaries_in(folder.path()).empty());
}

} // namespace
} // namespace qf::writers::pdf
