// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>

#include <ctime>
#include <regex>
#include <set>

#include <qpdf/JSON.hh>
#include <qpdf/QPDFPageDocumentHelper.hh>

#include "settings/base64.h"
#include "tests/support/pdf_examine.h"
#include "tests/support/pdf_fixtures.h"
#include "tests/support/process.h"
#include "tests/support/temp_folder.h"
#include "writers/pdf/pdf_assembler.h"
#include "writers/pdf/pdf_merge.h"
#include "writers/pdf/security_pass.h"

namespace qf::writers::pdf {
namespace {

namespace fs = std::filesystem;

const char *const kOwner = "owner-secret";

// `value` without the dictionary entries whose keys are in `left_out`, at any depth, stream
// data decoded and the XMP packet's random document and instance ids left out.
JSON normalised(const JSON &value, const std::set<std::string> &left_out)
{
    if (value.isDictionary()) {
        JSON kept = JSON::makeDictionary();
        value.forEachDictItem([&](const std::string &key, const JSON &item) {
            std::string data;
            if (key == "data" && item.getString(data)) {
                static const std::regex uuid("uuid:[0-9a-f-]+");
                kept.addDictionaryMember(key, JSON::makeString(std::regex_replace(
                                                  settings::decode_base64(data), uuid, "uuid:")));
            } else if (left_out.count(key) == 0) {
                kept.addDictionaryMember(key, normalised(item, left_out));
            }
        });
        return kept;
    }
    if (value.isArray()) {
        JSON kept = JSON::makeArray();
        value.forEachArrayItem([&](const JSON &item) { kept.addArrayElement(normalised(item, left_out)); });
        return kept;
    }
    return value;
}

std::string run_qpdf(const std::vector<std::string> &arguments)
{
    std::vector<std::string> argv{"qpdf", std::string("--password=") + kOwner};
    argv.insert(argv.end(), arguments.begin(), arguments.end());
    test::Process qpdf(argv, {});
    EXPECT_EQ(qpdf.finish(), 0) << qpdf.err();
    return qpdf.out();
}

// The objects of the file decrypted and written without object streams (numbered as they are
// reached), with decoded stream data, as qpdf's JSON shows them; the file identifier left out.
std::string decrypted_json(const fs::path &pdf)
{
    const fs::path plain = pdf.parent_path() / ("plain-" + pdf.filename().string());
    run_qpdf({"--decrypt", "--object-streams=disable", pdf.string(), plain.string()});
    const JSON json = JSON::parse(run_qpdf({"--json", "--json-key=qpdf", "--json-stream-data=inline",
                                            "--decode-level=generalized", plain.string()}));
    return normalised(json, {"/ID", "/Encrypt"}).unparse();
}

enum class Output { PerPage, PerDocument, Combined };

engine::OptionSnapshot snapshot_for(Output output, int code)
{
    engine::OptionSnapshot snapshot;
    snapshot.mimageformat = output == Output::PerPage ? "PDF (Single Page)" : "PDF (Multipage)";
    snapshot.mcombineall = output == Output::Combined;
    snapshot.mpdfversionnumber = code;
    snapshot.mpdfauthorname = "Ada Lovelace";
    snapshot.mpdftitle = "Notes on the Engine";
    snapshot.msubject = "Bernoulli numbers";
    snapshot.enlvl = 4;
    snapshot.mpdfpassword = "reader";
    snapshot.mpdffullpassword = kOwner;
    snapshot.mallowprinting = false;
    return snapshot;
}

// A file of copied pages and pictures; one page alone for a file a page.
std::unique_ptr<engine::PdfAssembler> assemble(const fs::path &target, const fs::path &source,
                                               Output output, const engine::OptionSnapshot &snapshot)
{
    auto assembler = make_pdf_assembler(target, snapshot, fs::path(QF_SOURCE_DIR) / "resources");
    assembler->add_pdf_page(source, "", 2);
    if (output != Output::PerPage) {
        assembler->add_image_page(test::gradient_rgb(40, 30), 1.0);
        assembler->add_pdf_page(source, "", 1);
        assembler->add_image_page(test::patterned_bilevel(64, 48), 0.5);
    }
    return assembler;
}

// Writing a file and then securing it in a separate pass, and securing it in the write that
// makes it, give the same file once decrypted, and the same log lines.
TEST(OnePass, SecuringInTheWriteGivesWhatTheSeparatePassGives)
{
    const struct { const char *what; Output output; int code; } cases[] = {
        {"a file a page, PDF/A-2b", Output::PerPage, 18},
        {"a file a document, PDF/X-4", Output::PerDocument, 15},
        {"a file a document, PDF 1.3 raised by the cipher", Output::PerDocument, 3},
        {"combined, PDF/A-1b", Output::Combined, 14},
        {"combined, PDF 1.7", Output::Combined, 7},
    };
    test::TempFolder folder;
    const fs::path source = folder / "source.pdf";
    test::write_numbered_pdf(source, 3);
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        const auto snapshot = snapshot_for(c.output, c.code);
        const fs::path old_way = folder / "old.pdf", one_pass = folder / "new.pdf";
        std::vector<std::string> old_lines, new_lines;
        // Dates are written to the second: a pair made across a second's turn is made again.
        for (int attempt = 0; attempt < 5; ++attempt) {
            const std::time_t started = std::time(nullptr);
            if (c.output == Output::Combined) {
                const std::vector<fs::path> parts{folder / "a.pdf", folder / "b.pdf"};
                for (const auto &part : parts) {
                    assemble(part, source, c.output, snapshot)->close();
                }
                merge_pdfs(parts, old_way, snapshot, [](const fs::path &) {});
                old_lines = encryptpdfnow(old_way, snapshot);
                new_lines = merge_and_secure(parts, one_pass, snapshot, [](const fs::path &) {});
            } else {
                assemble(old_way, source, c.output, snapshot)->close();
                old_lines = encryptpdfnow(old_way, snapshot);
                new_lines = assemble(one_pass, source, c.output, snapshot)->close_secured().lines;
            }
            if (std::time(nullptr) == started) {
                break;
            }
        }
        for (auto &line : new_lines) {
            line.replace(0, one_pass.filename().string().size(), old_way.filename().string());
        }
        EXPECT_EQ(new_lines, old_lines);
        EXPECT_EQ(test::pdf_header_version(one_pass), test::pdf_header_version(old_way));
        EXPECT_EQ(decrypted_json(one_pass), decrypted_json(old_way)); // shown as a diff
        // The cipher, revision and permissions; the encryption dictionary's salts are random.
        EXPECT_EQ(run_qpdf({"--show-encryption", one_pass.string()}),
                  run_qpdf({"--show-encryption", old_way.string()}));
    }
}

// The pages of the file, each page's content as drawn.
std::vector<std::string> page_contents(const fs::path &pdf)
{
    QPDF document;
    document.processFile(pdf.c_str(), kOwner);
    std::vector<std::string> contents;
    for (auto &page : QPDFPageDocumentHelper(document).getAllPages()) {
        contents.push_back(test::page_content(page));
    }
    return contents;
}

// A combined run's parts merged as they are written give the pages a merge at the end gives,
// and a part replaced after it was merged ahead is merged anew.
TEST(OnePass, MergingAheadGivesWhatMergingAtTheEndGives)
{
    test::TempFolder folder;
    const fs::path source = folder / "source.pdf";
    test::write_numbered_pdf(source, 3);
    const auto snapshot = snapshot_for(Output::Combined, 7);
    const std::vector<fs::path> parts{folder / "a.pdf", folder / "b.pdf"};
    MergeAhead ahead;
    for (const bool replaced : {false, true}) {
        SCOPED_TRACE(replaced ? "a part replaced" : "the parts as written");
        for (const auto &part : parts) {
            assemble(part, source, Output::Combined, snapshot)->close();
            ahead.prepare(part, part == parts.front());
        }
        if (replaced) {
            test::write_numbered_pdf(folder / "other.pdf", 1);
            fs::rename(folder / "other.pdf", parts.back());
        }
        std::vector<fs::path> told;
        ahead.merge_and_secure(parts, folder / "ahead.pdf", snapshot, [&](const fs::path &part) { told.push_back(part); });
        merge_and_secure(parts, folder / "end.pdf", snapshot, [](const fs::path &) {});
        EXPECT_EQ(told, parts);
        EXPECT_EQ(page_contents(folder / "ahead.pdf"), page_contents(folder / "end.pdf"));
        EXPECT_EQ(page_contents(folder / "ahead.pdf").size(), replaced ? 5u : 8u);
    }
}

} // namespace
} // namespace qf::writers::pdf
