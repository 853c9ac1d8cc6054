// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>

#include <sys/resource.h>

#include <qpdf/Buffer.hh>
#include <qpdf/QPDF.hh>

#include "engine/error.h"
#include "engine/run_model.h"
#include "tests/support/hostile_files.h"
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
    const struct {
        std::vector<fs::path> inputs;
        std::vector<std::string> labels;
        std::vector<fs::path> reported;
    } cases[] = {
        {{a, b, c}, concat({A, B, C}), {a, b, c}},
        {{c, a, c}, concat({C, A, C}), {c, a, c}},
        {{a, missing, c}, concat({A, C}), {a, c}},
        {{a, garbage, text, truncated, c}, concat({A, C}), {a, c}},
        {{missing, b, c}, concat({B, C}), {b, c}},
        {{garbage, c, a}, concat({C, A}), {c, a}},
    };
    for (const auto& k : cases) {
        SCOPED_TRACE(::testing::PrintToString(k.inputs));
        std::vector<fs::path> reported;
        merge_pdfs(k.inputs, folder / "Combine.PDF", merge_snapshot(),
                   [&](const fs::path& p) { reported.push_back(p); });
        QPDF merged;
        test::open_pdf(merged, folder / "Combine.PDF");
        EXPECT_EQ(test::page_labels(merged), k.labels);
        EXPECT_EQ(reported, k.reported);
    }
}

// With nothing to merge the call fails, and an older combined file stays as it was.
TEST(MergePdfs, NothingToMergeFailsAndKeepsAnOlderFile)
{
    test::ScratchFolder folder;
    const fs::path garbage = folder / "garbage.pdf", target = folder / "Combine.PDF";
    test::write_garbage_pdf(garbage);
    test::write_labelled_pdf(target, {"older combined file"});
    const std::string before = test::file_bytes(target);

    int reported = 0;
    try {
        merge_pdfs({folder / "gone.pdf", garbage}, target, merge_snapshot(),
                   [&](const fs::path&) { ++reported; });
        ADD_FAILURE() << "the merge succeeded";
    } catch (const engine::Error& e) {
        EXPECT_EQ(e.kind(), engine::ErrorKind::Output);
    }
    EXPECT_EQ(reported, 0);
    EXPECT_EQ(test::file_bytes(target), before);
    EXPECT_EQ(folder.names(), (std::vector<std::string>{"Combine.PDF", "garbage.pdf"}));
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
    EXPECT_EQ(test::page_labels(merged), concat({labels_of("first", 2), labels_of("second", 2)}));
    const std::string xmp = test::xmp_packet_of(merged);
    EXPECT_NE(xmp.find("<pdfaid:part>1</pdfaid:part>"), std::string::npos) << xmp;
    EXPECT_NE(xmp.find("Grace Hopper"), std::string::npos);
    EXPECT_EQ(test::info_entry(merged, "/Author"), "Grace Hopper");
    EXPECT_EQ(test::info_entry(merged, "/Producer"), "Quirefold");

    auto intents = merged.getRoot().getKey("/OutputIntents");
    ASSERT_EQ(intents.isArray() ? intents.getArrayNItems() : 0, 1);
    auto intent = intents.getArrayItem(0);
    EXPECT_TRUE(intent.getKey("/S").isNameAndEquals("/GTS_PDFA1"));
    const auto profile = intent.getKey("/DestOutputProfile").getStreamData(qpdf_dl_generalized);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(profile->getBuffer()), profile->getSize()),
              test::kIccBytes);
}

// Inputs are opened one at a time: more inputs than the process may hold open still merge.
TEST(MergePdfs, ManyInputsStayWithinTheOpenFileLimit)
{
    test::ScratchFolder folder;
    std::vector<fs::path> inputs;
    std::vector<std::string> expected;
    for (int i = 0; i < 80; ++i) {
        const std::string name = "doc" + std::to_string(i);
        inputs.push_back(folder / (name + ".pdf"));
        test::write_labelled_pdf(inputs.back(), {name});
        expected.push_back(name);
    }

    rlimit saved{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &saved), 0);
    rlimit tight = saved;
    tight.rlim_cur = 48;
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &tight), 0);
    std::vector<fs::path> reported;
    EXPECT_NO_THROW(merge_pdfs(inputs, folder / "Combine.PDF", merge_snapshot(),
                               [&](const fs::path& p) { reported.push_back(p); }));
    ::setrlimit(RLIMIT_NOFILE, &saved);

    EXPECT_EQ(reported, inputs);
    QPDF merged;
    test::open_pdf(merged, folder / "Combine.PDF");
    EXPECT_EQ(test::page_labels(merged), expected);
}

} // namespace
} // namespace qf::writers::pdf
