// SPDX-License-Identifier: GPL-3.0-or-later
#include "sources/pdf_probe.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "tests/support/pdf_fixtures.h"
#include "tests/support/temp_folder.h"

namespace qf::sources {
namespace {

namespace fs = std::filesystem;

TEST(PdfProbe, OpensOnlyReadableDocumentsWithTheirPassword)
{
    const test::TempFolder dir;

    test::write_numbered_pdf(dir / "five.pdf", 5);
    test::write_encrypted_copy(dir / "five.pdf", dir / "aes.pdf", test::PdfEncryption::Aes256,
                               "open", "owner");
    test::write_encrypted_copy(dir / "five.pdf", dir / "owner-only.pdf",
                               test::PdfEncryption::Aes128, "", "owner");
    test::write_garbage_pdf(dir / "garbage.pdf");
    test::write_truncated_copy(dir / "five.pdf", dir / "stub.pdf", 20);

    const struct {
        const char* name;
        const char* password;
        bool opened;
        int page_count;
    } cases[] = {
        {"five.pdf", "", true, 5},
        {"five.pdf", "a password it doesn't need", true, 5},
        {"aes.pdf", "open", true, 5},
        {"aes.pdf", "owner", true, 5},
        {"aes.pdf", "Open", false, 0},
        {"aes.pdf", "", false, 0},
        {"owner-only.pdf", "", true, 5}, // an empty user password opens it for reading
        {"garbage.pdf", "", false, 0},
        {"stub.pdf", "", false, 0},
        {"missing.pdf", "", false, 0},
    };
    for (const auto& c : cases) {
        const PdfProbe probe = probe_pdf(dir / c.name, c.password);
        EXPECT_EQ(probe.opened, c.opened) << c.name << " / " << c.password;
        EXPECT_EQ(probe.page_count, c.page_count) << c.name << " / " << c.password;
    }
}

} // namespace
} // namespace qf::sources
