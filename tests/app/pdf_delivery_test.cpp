// SPDX-License-Identifier: GPL-3.0-or-later
#include <csignal>
#include <gtest/gtest.h>

#include <qpdf/QPDFPageDocumentHelper.hh>

#include "app/run_services.h"
#include "tests/support/pdf_examine.h"
#include "tests/support/pdf_fixtures.h"
#include "tests/support/temp_folder.h"

namespace qf::app {
namespace {

namespace fs = std::filesystem;

// A document's own PDF is written by the worker that keeps its flattened copy. When that
// worker has gone by the time the file is written, the pages are copied in this process
// instead: the file is the same either way, pages in the order taken, a page taken twice
// shown twice, the document information set.
TEST(PdfDelivery, TheFileIsTheSameWhetherItsWorkerStaysOrGoes)
{
    test::TempFolder folder;
    const fs::path source = folder / "source.pdf";
    test::write_numbered_pdf(source, 3);
    const auto readers = std::make_shared<worker::WorkerPool>(worker::default_worker_settings(1));
    const auto assemblers = worker_pdf_assemblers(fs::path(QF_SOURCE_DIR) / "resources", readers);
    engine::OptionSnapshot snapshot;
    snapshot.mpdftitle = "Delivered";
    for (const bool worker_goes : {false, true}) {
        SCOPED_TRACE(worker_goes ? "the worker gone" : "the worker kept");
        const fs::path target = folder / (worker_goes ? "gone.pdf" : "kept.pdf");
        const auto assembler = assemblers(target, snapshot);
        for (const int pageno : {3, 1, 3}) {
            assembler->add_pdf_page(source, "", pageno);
        }
        if (worker_goes) {
            for (const pid_t pid : readers->worker_pids()) {
                ::kill(pid, SIGKILL);
            }
        }
        assembler->close_secured();
        QPDF pdf;
        pdf.processFile(target.c_str());
        std::vector<std::string> lines;
        for (auto &page : QPDFPageDocumentHelper(pdf).getAllPages()) {
            const std::string content = test::page_content(page);
            lines.push_back(content.substr(content.find("Hello page"), 12));
        }
        EXPECT_EQ(lines, (std::vector<std::string>{"Hello page 3", "Hello page 1", "Hello page 3"}));
        EXPECT_EQ(pdf.getTrailer().getKey("/Info").getKey("/Title").getUTF8Value(), "Delivered");
        EXPECT_EQ(test::structural_problems(target), "");
    }
}

} // namespace
} // namespace qf::app
