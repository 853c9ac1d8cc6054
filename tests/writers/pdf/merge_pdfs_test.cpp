// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>

#include <sys/resource.h>

#include <qpdf/Buffer.hh>
#include <qpdf/QPDF.hh>

#include "engine/error.h"
#include "engine/run_model.h"
#include "tests/support/hostile_files.h"
#include "tests/support/output_checks.h"
#include "tests/support/pdf_fixtures.h"
#include "tests/support/pdf_security_checks.h"
#include "writers/pdf/pdf_merge.h"

namespace qf::writers::pdf {
namespace {

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

// Labels "<name> <page>" for a document of `pages` pages.
std::vector<std::string> labels_of(const std::string& name, int pages)
{
    std::vector<std::string> labels;
    for (int page = 1; page <= pages; ++page) {
        labels.push_back(name + " " + std::to_string(page));
    }
    return labels;
}

std::vector<std::string> concat(std::initializer_list<std::vector<std::string>> parts)
{
    std::vector<std::string> all;
    for (const auto& part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

// Every page of each input in order; missing inputs are passed over in silence and unreadable
// ones passed over too, and whichever input comes first among the readable ones is the base.
// With nothing to merge the call fails and an older combined file stays as it was. Inputs are
// opened one at a time: more inputs than the process may hold open still merge.
TEST(MergePdfs, AppendsThePagesOfEachReadableInputInOrder)
{
    test::ScratchFolder folder;
    const fs::path a = folder / "a.pdf", b = folder / "b.pdf", c = folder / "c.pdf";
    const fs::path missing = folder / "gone.pdf", garbage = folder / "garbage.pdf",
                   text = folder / "text.pdf", truncated = folder / "truncated.pdf";
    test::write_labelled_pdf(a, labels_of("A", 2));
    test::write_labelled_pdf(b, labels_of("B", 3));
    test::write_labelled_pdf(c, labels_of("C", 1));
    test::write_garbage_pdf(garbage);
    test::write_text_file(text, "not a PDF at all\n");
    test::write_truncated_copy(b, truncated, 20);
    const auto A = labels_of("A", 2), B = labels_of("B", 3), C = labels_of("C", 1);
    std::vector<fs::path> many;
    for (int i = 1; i <= 80; ++i) {
        many.push_back(folder / ("many" + std::to_string(i) + ".pdf"));
        test::write_labelled_pdf(many.back(), {"many " + std::to_string(i)});
    }
    const struct {
        std::vector<fs::path> inputs;
        std::vector<std::string> labels; // empty: the merge fails
        std::vector<fs::path> reported;
    } cases[] = {
        {{missing, garbage}, {}, {}},
        {{a, b, c}, concat({A, B, C}), {a, b, c}},
        {{c, a, c}, concat({C, A, C}), {c, a, c}},
        {{a, missing, c}, concat({A, C}), {a, c}},
        {{a, garbage, text, truncated, c}, concat({A, C}), {a, c}},
        {{missing, b, c}, concat({B, C}), {b, c}},
        {{garbage, c, a}, concat({C, A}), {c, a}},
        {many, labels_of("many", 80), many},
    };
    const auto target = folder / "Combine.PDF";
    test::write_labelled_pdf(target, {"older combined file"});
    rlimit saved{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &saved), 0);
    for (const auto& k : cases) {
        SCOPED_TRACE(::testing::PrintToString(k.inputs).substr(0, 300));
        const std::string before = test::file_bytes(target);
        std::vector<fs::path> reported;
        rlimit tight = saved;
        tight.rlim_cur = 48;
        ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &tight), 0);
        try {
            merge_pdfs(k.inputs, target, merge_snapshot(),
                       [&](const fs::path& p) { reported.push_back(p); });
            EXPECT_FALSE(k.labels.empty()) << "the merge succeeded";
        } catch (const engine::Error& e) {
            EXPECT_TRUE(k.labels.empty()) << e.what();
            EXPECT_EQ(e.kind(), engine::ErrorKind::Output);
            EXPECT_EQ(test::file_bytes(target), before);
        }
        ::setrlimit(RLIMIT_NOFILE, &saved);
        EXPECT_EQ(reported, k.reported);
        if (!k.labels.empty()) {
            QPDF merged;
            test::open_pdf(merged, target);
            EXPECT_EQ(test::page_labels(merged), k.labels);
        }
    }
    EXPECT_TRUE(test::temporaries_in(folder.path()).empty());
}

// A combined PDF/A run stays PDF/A: the first input's version, XMP identification and
// OutputIntent carry over, and the document information is the run's.
TEST(MergePdfs, KeepsTheFirstInputsVersionXmpAndOutputIntent)
{
    test::ScratchFolder folder;
    const fs::path first = folder / "first.pdf", second = folder / "second.pdf",
                   target = folder / "Combine.PDF";
    test::write_labelled_pdf(first, labels_of("first", 2),
                             {.version = "1.4", .pdfa_part = 1, .output_intent = true});
    test::write_labelled_pdf(second, labels_of("second", 2), {.version = "1.7"});

    merge_pdfs({first, second}, target, merge_snapshot(), [](const fs::path&) {});

    QPDF merged;
    test::open_pdf(merged, target);
    EXPECT_EQ(merged.getPDFVersion(), "1.4");
    EXPECT_FALSE(test::uses_object_streams(merged));
    const std::string xmp = test::xmp_packet_of(merged);
    EXPECT_NE(xmp.find("<pdfaid:part>1</pdfaid:part>"), std::string::npos) << xmp;
    EXPECT_NE(xmp.find("Grace Hopper"), std::string::npos);
    EXPECT_EQ(test::info_entry(merged, "/Author"), "Grace Hopper");
    auto intents = merged.getRoot().getKey("/OutputIntents");
    ASSERT_EQ(intents.isArray() ? intents.getArrayNItems() : 0, 1);
    auto intent = intents.getArrayItem(0);
    EXPECT_TRUE(intent.getKey("/S").isNameAndEquals("/GTS_PDFA1"));
    const auto profile = intent.getKey("/DestOutputProfile").getStreamData(qpdf_dl_generalized);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(profile->getBuffer()), profile->getSize()),
              test::kIccBytes);
}

} // namespace
} // namespace qf::writers::pdf
