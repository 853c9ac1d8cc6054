// SPDX-License-Identifier: GPL-3.0-or-later
#include "writers/pdf/security_pass.h"

#include <cctype>
#include <cstdio>
#include <cstring>

#include <qpdf/PDFVersion.hh>
#include <qpdf/QPDFExc.hh>
#include <qpdf/QPDFSystemError.hh>
#include <qpdf/QUtil.hh>

#include "engine/error.h"
#include "engine/file_ops.h"
#include "engine/options.h"
#include "engine/text_rules.h"
#include "writers/pdf/pdf_conformance.h"
#include "writers/pdf/pdf_metadata.h"

namespace qf::writers::pdf {
namespace {

using engine::Error;
using engine::ErrorKind;

constexpr int kDenyPrint = 0x4;
constexpr int kDenyModify = 0x8;
constexpr int kDenyExtract = 0x10;
constexpr int kDenyAnnotate = 0x20;
constexpr int kDenyFormFill = 0x100;
constexpr int kDenyAccessibility = 0x200;
constexpr int kDenyAssemble = 0x400;
constexpr int kDenyPrintHigh = 0x800;

// Decodes one UTF-8 sequence at `at`; returns its length, or 0 when the bytes are not UTF-8.
std::size_t utf8_sequence(const std::string& text, std::size_t at, char32_t& code)
{
    const auto lead = static_cast<unsigned char>(text[at]);
    std::size_t length = lead < 0x80           ? 1
                         : (lead >> 5) == 0x6  ? 2
                         : (lead >> 4) == 0xE  ? 3
                         : (lead >> 3) == 0x1E ? 4
                                               : 0;
    if (length == 0 || at + length > text.size()) {
        return 0;
    }
    code = length == 1 ? lead : lead & (0x7F >> length);
    for (std::size_t i = 1; i < length; ++i) {
        const auto next = static_cast<unsigned char>(text[at + i]);
        if ((next & 0xC0) != 0x80) {
            return 0;
        }
        code = (code << 6) | (next & 0x3F);
    }
    return length;
}

bool is_non_ascii_space(char32_t c)
{
    return c == 0xA0 || c == 0x1680 || (c >= 0x2000 && c <= 0x200B) || c == 0x202F || c == 0x205F ||
           c == 0x3000;
}

bool is_mapped_to_nothing(char32_t c)
{
    return c == 0xAD || c == 0x34F || c == 0x1806 || (c >= 0x180B && c <= 0x180D) ||
           (c >= 0x200B && c <= 0x200D) || c == 0x2060 || (c >= 0xFE00 && c <= 0xFE0F) ||
           c == 0xFEFF;
}

// The mapping step of SASLprep, which AES-256 (revision 6) readers apply to a typed password:
// spaces other than U+0020 become U+0020, characters that stand for nothing are dropped.
// Its NFKC step is left out: typed text arrives composed, which NFKC keeps for letters with
// diacritics. Text that is not UTF-8 is left as it is.
std::string saslprep_mapping(const std::string& utf8)
{
    std::string mapped;
    for (std::size_t at = 0; at < utf8.size();) {
        char32_t code = 0;
        const std::size_t length = utf8_sequence(utf8, at, code);
        if (length == 0) {
            return utf8;
        }
        if (is_non_ascii_space(code)) {
            mapped += ' ';
        } else if (!is_mapped_to_nothing(code)) {
            mapped.append(utf8, at, length);
        }
        at += length;
    }
    return mapped;
}

// The password bytes a reader derives from the typed text: UTF-8 after SASLprep's mapping for
// revision 6, PDFDocEncoding before it. Text with characters that PDFDocEncoding lacks keeps
// its UTF-8 bytes, which is what readers try next.
std::string encode_password(const std::string& utf8, bool revision6)
{
    if (revision6) {
        return saslprep_mapping(utf8);
    }
    std::string pdfdoc;
    if (QUtil::utf8_to_pdf_doc(utf8, pdfdoc)) {
        return pdfdoc;
    }
    return utf8;
}

std::string random_owner_password()
{
    unsigned char bytes[16];
    QUtil::initializeWithRandomBytes(bytes, sizeof bytes);
    return QUtil::hex_encode(std::string(reinterpret_cast<const char*>(bytes), sizeof bytes));
}

// The ciphers of the encryption level codes; code 2, which no row offers, is taken as RC4
// 128-bit and anything unknown as the strongest.
enum class Cipher { Rc4_40, Rc4_128, Aes128, Aes256 };

Cipher cipher_of(int enlvl)
{
    switch (enlvl) {
    case 0:
        return Cipher::Rc4_40;
    case 1:
    case 2:
        return Cipher::Rc4_128;
    case 3:
        return Cipher::Aes128;
    default:
        return Cipher::Aes256;
    }
}

// The header version the cipher needs.
PDFVersion cipher_version(Cipher cipher)
{
    switch (cipher) {
    case Cipher::Rc4_40:
        return PDFVersion(1, 3);
    case Cipher::Rc4_128:
        return PDFVersion(1, 4);
    case Cipher::Aes128:
        return PDFVersion(1, 6);
    case Cipher::Aes256:
        break;
    }
    return PDFVersion(1, 7, 8);
}

struct EncryptionRequest {
    Cipher cipher = Cipher::Rc4_40;
    std::string user;  // typed text, trimmed
    std::string owner; // typed text, trimmed; a random one stands in when empty
    int restrict = 0;  // denial bits
};

// Sets the writer's encryption. The denial bits map onto QPDF's allow flags one by one, so
// the P value a reader finds refuses exactly the bits of `restrict`, with one exception: from
// AES-128 on QPDF always grants accessibility (0x200), a bit readers there disregard anyway;
// copying stays refused by 0x10.
void set_encryption(QPDFWriter& writer, const EncryptionRequest& request)
{
    const int deny = request.restrict;
    const bool revision6 = request.cipher == Cipher::Aes256;
    const std::string user = encode_password(request.user, revision6);
    const std::string owner =
        request.owner.empty() ? random_owner_password() : encode_password(request.owner, revision6);
    if (request.cipher == Cipher::Rc4_40) {
        writer.setR2EncryptionParametersInsecure(user.c_str(), owner.c_str(), !(deny & kDenyPrint),
                                                 !(deny & kDenyModify), !(deny & kDenyExtract),
                                                 !(deny & kDenyAnnotate));
        return;
    }
    const bool accessibility = !(deny & kDenyAccessibility);
    const bool extract = !(deny & kDenyExtract);
    const bool assemble = !(deny & kDenyAssemble);
    const bool annotate = !(deny & kDenyAnnotate);
    const bool form_fill = !(deny & kDenyFormFill);
    const bool modify = !(deny & kDenyModify);
    const qpdf_r3_print_e print = (deny & kDenyPrint)       ? qpdf_r3p_none
                                  : (deny & kDenyPrintHigh) ? qpdf_r3p_low
                                                            : qpdf_r3p_full;
    switch (request.cipher) {
    case Cipher::Rc4_128:
        writer.setR3EncryptionParametersInsecure(user.c_str(), owner.c_str(), accessibility,
                                                 extract, assemble, annotate, form_fill, modify,
                                                 print);
        break;
    case Cipher::Aes128:
        writer.setR4EncryptionParametersInsecure(user.c_str(), owner.c_str(), accessibility,
                                                 extract, assemble, annotate, form_fill, modify,
                                                 print, true, true);
        break;
    default:
        writer.setR6EncryptionParameters(user.c_str(), owner.c_str(), accessibility, extract,
                                         assemble, annotate, form_fill, modify, print, true);
        break;
    }
}

PDFVersion file_version(QPDF& pdf)
{
    int major = 1;
    int minor = 3;
    const std::string text = pdf.getPDFVersion();
    if (std::sscanf(text.c_str(), "%d.%d", &major, &minor) < 2) {
        return PDFVersion(1, 3);
    }
    return PDFVersion(major, minor, pdf.getExtensionLevel());
}

std::string lower(std::string text)
{
    for (auto& c : text) {
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return text;
}

// Opens the finished file the pass rewrites; throws Error(Output) when it cannot.
void open_delivered(QPDF& document, const std::filesystem::path& pdf)
{
    document.setSuppressWarnings(true);
    try {
        document.processFile(pdf.c_str());
    } catch (const QPDFExc& e) {
        throw Error(ErrorKind::Output,
                    e.getErrorCode() == qpdf_e_password ? "the file is protected by a password"
                                                        : "not a readable PDF file",
                    pdf);
    } catch (const std::exception&) {
        throw Error(ErrorKind::Output, "the file could not be opened", pdf);
    }
}

} // namespace

int restrict_bits(bool allowcopy, bool allowprinting, bool allowannotation)
{
    if (!allowcopy && !allowprinting && !allowannotation) {
        return 0xF3C;
    }
    int bits = 0;
    if (!allowcopy) {
        bits |= kDenyExtract | kDenyAccessibility;
    }
    if (!allowprinting) {
        bits |= kDenyPrint | kDenyPrintHigh;
    }
    if (!allowannotation) {
        bits |= kDenyModify | kDenyAnnotate | kDenyFormFill;
    }
    return bits;
}

ConformanceClaim conformance_claim(QPDF& pdf, int conformance_code)
{
    ConformanceClaim claim;
    const XmpIdentification id = read_identification(pdf);
    const std::string chosen(engine::conformance_name(conformance_code));
    if (chosen.rfind("PDF/", 0) == 0) {
        claim.level = chosen;
    } else if (!id.pdfa_part.empty()) {
        claim.level = "PDF/A " + id.pdfa_part + lower(id.pdfa_conformance);
    } else {
        claim.level = id.pdfx_version;
    }
    claim.pdfa1 = id.pdfa_part == "1" || chosen.rfind("PDF/A 1", 0) == 0;
    return claim;
}

void write_pdf_file(QPDF& pdf, const std::filesystem::path& file,
                    const std::function<void(QPDFWriter&)>& configure)
{
    // QPDF leaves the last flush of a file it opens itself unchecked, so a write failing at
    // the end (a full disk, a file size limit) would go unnoticed: the file is opened, flushed
    // and closed here instead, each step checked.
    std::FILE* out = std::fopen(file.c_str(), "wb");
    if (out == nullptr) {
        throw Error(ErrorKind::Output, std::strerror(errno), file);
    }
    try {
        QPDFWriter writer(pdf);
        writer.setOutputFile(file.c_str(), out, false);
        configure(writer);
        writer.write();
    } catch (...) {
        std::fclose(out);
        throw;
    }
    const bool flushed = std::fflush(out) == 0 && std::ferror(out) == 0;
    const int flush_error = errno;
    const bool closed = std::fclose(out) == 0;
    if (!flushed || !closed) {
        throw Error(ErrorKind::Output, std::strerror(flushed ? errno : flush_error), file);
    }
}

void write_pdf_atomically(QPDF& pdf, const std::filesystem::path& target,
                          const std::function<void(QPDFWriter&)>& configure)
{
    engine::write_atomically(target, [&](const std::filesystem::path& temp) {
        try {
            write_pdf_file(pdf, temp, configure);
        } catch (const QPDFSystemError& e) {
            throw Error(ErrorKind::Output, std::strerror(e.getErrno()), target);
        } catch (const QPDFExc&) {
            throw Error(ErrorKind::Output, "the document could not be read back to rewrite it",
                        target);
        } catch (const Error&) {
            throw;
        } catch (const std::exception&) {
            throw Error(ErrorKind::Output, "the document could not be rewritten", target);
        }
    });
}

SecuredWrite prepare_secured_write(QPDF& document, const engine::OptionSnapshot& snapshot,
                                   const std::filesystem::path& file,
                                   const std::string& written_version, int extension_level)
{
    const std::string name = file.filename().string();
    const ConformanceClaim claim = conformance_claim(document, snapshot.mpdfversionnumber);
    SecuredWrite secured;
    try {
        for (const auto& reason : output_intent_misfits(
                 document, claimed_level(document, snapshot.mpdfversionnumber))) {
            secured.lines.push_back(name + " does not conform to " + claim.level + ": " + reason);
        }
    } catch (const std::exception&) {
        // A page tree that cannot be walked fails the write with its own reason.
    }
    try {
        applydocinfo(document, snapshot);
    } catch (const Error&) {
        throw;
    } catch (const std::exception&) {
        throw Error(ErrorKind::Output, "the document information could not be set", file);
    }

    const EncryptionRequest request{
        cipher_of(snapshot.enlvl), engine::trim(snapshot.mpdfpassword),
        engine::trim(snapshot.mpdffullpassword),
        restrict_bits(snapshot.mallowcopy, snapshot.mallowprinting, snapshot.mallowannotation)};
    const bool encrypt = request.restrict != 0 || !request.user.empty() || !request.owner.empty();

    int major = 1;
    int minor = 3;
    if (std::sscanf(written_version.c_str(), "%d.%d", &major, &minor) < 2) {
        major = 1;
        minor = 3;
    }
    PDFVersion version(major, minor, extension_level);
    if (encrypt) {
        version.updateIfGreater(cipher_version(request.cipher));
    }
    const bool object_streams = !claim.pdfa1 && !(version < PDFVersion(1, 5));
    std::string header;
    int extension = 0;
    version.getVersion(header, extension);
    const bool newline = !claim.level.empty();

    secured.configure = [=](QPDFWriter& writer) {
        // The header a rewrite would keep, forced so that versions below the library's
        // default are written as they are.
        writer.forcePDFVersion(header, extension);
        writer.setCompressStreams(true);
        writer.setDecodeLevel(qpdf_dl_specialized);
        writer.setObjectStreamMode(object_streams ? qpdf_o_generate : qpdf_o_disable);
        writer.setNewlineBeforeEndstream(newline);
        if (encrypt) {
            set_encryption(writer, request);
        } else {
            writer.setPreserveEncryption(false);
        }
    };
    if (encrypt && !claim.level.empty()) {
        secured.lines.push_back(name + " is encrypted and no longer conforms to " + claim.level);
    }
    return secured;
}

SecuredWrite prepare_secured_write(QPDF& document, const engine::OptionSnapshot& snapshot,
                                   const std::filesystem::path& file)
{
    std::string header;
    int extension = 0;
    file_version(document).getVersion(header, extension);
    return prepare_secured_write(document, snapshot, file, header, extension);
}

std::vector<std::string> encryptpdfnow(const std::filesystem::path& pdf,
                                       const engine::OptionSnapshot& snapshot)
{
    QPDF document;
    open_delivered(document, pdf);
    const SecuredWrite secured = prepare_secured_write(document, snapshot, pdf);
    write_pdf_atomically(document, pdf, secured.configure);
    return secured.lines;
}

} // namespace qf::writers::pdf
