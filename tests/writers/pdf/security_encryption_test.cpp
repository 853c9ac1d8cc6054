// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>

#include <qpdf/QPDF.hh>

#include "engine/run_model.h"
#include "tests/support/pdf_security_checks.h"
#include "writers/pdf/security_pass.h"

namespace qf::writers::pdf {
namespace {

using test::opens_with;
using test::read_encryption;

struct Level {
    int enlvl;
    const char* row;
    int revision;
    int version;
    QPDF::encryption_method_e cipher;
    std::size_t key_bits;
};

const Level kLevels[] = {
    {0, "40 Bit", 2, 1, QPDF::e_rc4, 40},
    {1, "128 Bit RC4", 3, 2, QPDF::e_rc4, 128},
    {3, "128 Bit AES", 4, 4, QPDF::e_aes, 128},
    {4, "256 Bit AES", 6, 5, QPDF::e_aesv3, 256},
};

struct Rights {
    bool copy;
    bool print;
    bool annotate;
    int denied; // the permission bits a reader must find refused
};

const Rights kRights[] = {
    {true, true, true, 0},      {false, true, true, 528},    {true, false, true, 2052},
    {true, true, false, 296},   {false, false, true, 2580},  {false, true, false, 824},
    {true, false, false, 2348}, {false, false, false, 3900},
};

engine::OptionSnapshot snapshot_for(int enlvl, const std::string& user, const std::string& owner,
                                    const Rights& rights = {true, true, true, 0})
{
    engine::OptionSnapshot snapshot;
    snapshot.mimageformat = "PDF (Multipage)";
    snapshot.enlvl = enlvl;
    snapshot.mpdfpassword = user;
    snapshot.mpdffullpassword = owner;
    snapshot.mallowcopy = rights.copy;
    snapshot.mallowprinting = rights.print;
    snapshot.mallowannotation = rights.annotate;
    return snapshot;
}

// The permission bits a revision gives meaning to. Revision 2 knows only the four low rights,
// revision 3 all twelve bits. From revision 4 on readers disregard the accessibility bit
// (0x200) and QPDF always grants it; copying is still refused by 0x10.
int meaningful_bits(int revision)
{
    return revision == 2 ? 0x3C : revision == 3 ? 0xF3C : 0xD3C;
}

// Every level with every combination of rights: the cipher, key and permissions a reader
// finds, and that the passwords open what they should.
TEST(SecurityPass, EncryptsAtEachLevelWithTheRefusedRights)
{
    test::ScratchFolder folder;
    const auto pdf = folder / "secured.pdf";
    for (const auto& level : kLevels) {
        for (const auto& rights : kRights) {
            SCOPED_TRACE(std::string(level.row) + ", denied " + std::to_string(rights.denied));
            test::write_labelled_pdf(pdf, {"first", "second"});
            EXPECT_TRUE(
                encryptpdfnow(pdf, snapshot_for(level.enlvl, "reader", "master", rights)).empty());

            EXPECT_FALSE(opens_with(pdf, ""));
            const auto facts = read_encryption(pdf, "reader");
            ASSERT_TRUE(facts.encrypted);
            EXPECT_EQ(facts.revision, level.revision);
            EXPECT_EQ(facts.version, level.version);
            EXPECT_EQ(facts.stream_method, level.cipher);
            EXPECT_EQ(facts.key_bits, level.key_bits);
            EXPECT_FALSE(facts.owner_matched);
            const int meaningful = meaningful_bits(level.revision);
            EXPECT_EQ(~facts.permissions & meaningful, rights.denied & meaningful);
            EXPECT_TRUE(read_encryption(pdf, "master").owner_matched);

            QPDF reopened;
            test::open_pdf(reopened, pdf, "reader");
            EXPECT_EQ(reopened.allowPrintLowRes(), rights.print);
            EXPECT_EQ(reopened.allowExtractAll(), rights.copy);
            EXPECT_EQ(reopened.allowModifyAnnotation(), rights.annotate);
            EXPECT_EQ(test::page_labels(reopened), (std::vector<std::string>{"first", "second"}));
        }
    }
}

// Which password opens the file and which lifts the refused rights. Without a Master
// Password the owner password is random, never empty and never the Viewing Password, so
// whoever opens the file cannot lift the refused rights; a Master Password alone, or a
// refused right alone, gives a file anyone opens.
TEST(SecurityPass, PasswordCombinationsAtEachLevel)
{
    const struct {
        const char* user;
        const char* owner;
        Rights rights;
        const char* opener;       // the password a reader gives to open the file
        bool opens_without;       // no password needed at all
        bool opener_lifts_rights; // the opener matched the owner password
    } cases[] = {
        {"viewer", "", {false, true, true, 528}, "viewer", false, false},
        {"", "  boss  ", {true, true, true, 0}, "boss", true, true},
        {"", "boss", {true, true, true, 0}, "", true, false},
        {"", "", {true, false, true, 2052}, "", true, false},
    };
    test::ScratchFolder folder;
    const auto pdf = folder / "combination.pdf";
    for (const auto& level : kLevels) {
        for (const auto& c : cases) {
            SCOPED_TRACE(std::string(level.row) + ", user '" + c.user + "', owner '" + c.owner +
                         "'");
            test::write_labelled_pdf(pdf, {"only page"});
            encryptpdfnow(pdf, snapshot_for(level.enlvl, c.user, c.owner, c.rights));

            EXPECT_EQ(opens_with(pdf, ""), c.opens_without);
            const auto facts = read_encryption(pdf, c.opener);
            ASSERT_TRUE(facts.encrypted);
            EXPECT_EQ(facts.revision, level.revision);
            EXPECT_EQ(facts.owner_matched, c.opener_lifts_rights);
            const int meaningful = meaningful_bits(level.revision);
            EXPECT_EQ(~facts.permissions & meaningful, c.rights.denied & meaningful);
        }
    }
}

// What a reader hashes is the typed text in the encoding of the revision: UTF-8 (with
// SASLprep's mapping) for AES-256, PDFDocEncoding for the older levels, whose readers fall back
// to UTF-8 bytes for characters PDFDocEncoding lacks.
TEST(SecurityPass, NonAsciiPasswordsOpenAsReadersEncodeThem)
{
    const struct {
        int enlvl;
        const char* typed;
        std::string reader_bytes;
    } cases[] = {
        {0, "pässwörd", "p\xE4ssw\xF6rd"},
        {1, "pässwörd", "p\xE4ssw\xF6rd"},
        {3, "pässwörd", "p\xE4ssw\xF6rd"},
        {4, "pässwörd", "pässwörd"},
        {4, "open\u00A0sesame", "open sesame"},
        {4, "soft\u00ADhyphen", "softhyphen"},
        {3, "密码", "密码"},
    };
    test::ScratchFolder folder;
    const auto pdf = folder / "unicode.pdf";
    for (const auto& c : cases) {
        SCOPED_TRACE(std::to_string(c.enlvl) + " " + c.typed);
        test::write_labelled_pdf(pdf, {"only page"});
        encryptpdfnow(pdf, snapshot_for(c.enlvl, c.typed, ""));
        EXPECT_FALSE(opens_with(pdf, ""));
        EXPECT_TRUE(opens_with(pdf, c.reader_bytes));
    }
}

// Blanks around a password are not part of it, and blanks alone are no password at all.
TEST(SecurityPass, PasswordsAreTrimmed)
{
    test::ScratchFolder folder;
    const auto pdf = folder / "blanks.pdf";
    test::write_labelled_pdf(pdf, {"only page"});
    encryptpdfnow(pdf, snapshot_for(3, "   ", " \t"));
    EXPECT_FALSE(read_encryption(pdf, "").encrypted);

    encryptpdfnow(pdf, snapshot_for(3, "  secret ", ""));
    EXPECT_FALSE(opens_with(pdf, "  secret "));
    EXPECT_TRUE(opens_with(pdf, "secret"));
}

} // namespace
} // namespace qf::writers::pdf
