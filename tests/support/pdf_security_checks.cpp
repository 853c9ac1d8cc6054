// SPDX-License-Identifier: GPL-3.0-or-later
#include "tests/support/pdf_security_checks.h"

#include <algorithm>
#include <regex>

#include <qpdf/QPDFExc.hh>
#include <qpdf/QPDFPageObjectHelper.hh>
#include <qpdf/QPDFWriter.hh>
#include <qpdf/QPDFXRefEntry.hh>

#include "tests/support/pdf_examine.h"
#include "tests/support/pdf_fixtures.h"

namespace qf::test {
namespace {

std::string xmp_for(const PdfDressing& dressing)
{
    std::string description;
    if (dressing.pdfa_part != 0) {
        description +=
            "<rdf:Description rdf:about=\"\" xmlns:pdfaid=\"http://www.aiim.org/pdfa/ns/id/\">"
            "<pdfaid:part>" +
            std::to_string(dressing.pdfa_part) + "</pdfaid:part><pdfaid:conformance>" +
            dressing.pdfa_conformance + "</pdfaid:conformance></rdf:Description>";
    }
    if (!dressing.pdfx_version.empty()) {
        description +=
            "<rdf:Description rdf:about=\"\" xmlns:pdfxid=\"http://www.npes.org/pdfx/ns/id/\" "
            "pdfxid:GTS_PDFXVersion=\"" +
            dressing.pdfx_version + "\"/>";
    }
    return "<?xpacket begin=\"\xEF\xBB\xBF\" id=\"W5M0MpCehiHzreSzNTczkc9d\"?>\n"
           "<x:xmpmeta xmlns:x=\"adobe:ns:meta/\"><rdf:RDF "
           "xmlns:rdf=\"http://www.w3.org/1999/02/22-rdf-syntax-ns#\">" +
           description + "</rdf:RDF></x:xmpmeta>\n<?xpacket end=\"w\"?>";
}

} // namespace

void write_labelled_pdf(const std::filesystem::path& target, const std::vector<std::string>& labels,
                        const PdfDressing& dressing)
{
    std::vector<PdfPageSpec> pages;
    for (const auto& label : labels) {
        pages.push_back({.texts = {PdfText{72, 700, 24, label}}});
    }
    const auto plain = target.parent_path() / (".plain-" + target.filename().string());
    write_pdf(plain, pages);

    QPDF pdf;
    open_pdf(pdf, plain);
    if (dressing.pdfa_part != 0 || !dressing.pdfx_version.empty()) {
        pdf.getRoot().replaceKey(
            "/Metadata", new_stream(pdf, xmp_for(dressing), "<< /Type /Metadata /Subtype /XML >>"));
    }
    {
        QPDFWriter writer(pdf, target.c_str());
        writer.setCompressStreams(false);
        writer.setDecodeLevel(qpdf_dl_none);
        writer.setObjectStreamMode(qpdf_o_disable);
        writer.forcePDFVersion(dressing.version);
        writer.setStaticID(true);
        writer.write();
    }
    std::filesystem::remove(plain);
}

std::vector<std::string> page_labels(QPDF& pdf)
{
    static const std::regex shown(R"(\(((?:[^()\\]|\\.)*)\)\s*Tj)");
    std::vector<std::string> labels;
    for (auto& page : pdf.getAllPages()) {
        const std::string content = page_content(page);
        std::string label;
        for (std::sregex_iterator it(content.begin(), content.end(), shown), end; it != end; ++it) {
            label += (*it)[1].str();
        }
        labels.push_back(label);
    }
    return labels;
}

void open_pdf(QPDF& pdf, const std::filesystem::path& path, const std::string& password)
{
    pdf.setSuppressWarnings(true);
    pdf.processFile(path.c_str(), password.c_str());
}

bool opens_with(const std::filesystem::path& path, const std::string& password)
{
    try {
        QPDF pdf;
        open_pdf(pdf, path, password);
        return true;
    } catch (const QPDFExc& e) {
        if (e.getErrorCode() != qpdf_e_password) {
            throw;
        }
        return false;
    }
}

EncryptionFacts read_encryption(const std::filesystem::path& path, const std::string& password)
{
    QPDF pdf;
    open_pdf(pdf, path, password);
    EncryptionFacts facts;
    QPDF::encryption_method_e string_method = QPDF::e_none;
    QPDF::encryption_method_e file_method = QPDF::e_none;
    facts.encrypted = pdf.isEncrypted(facts.revision, facts.permissions, facts.version,
                                      facts.stream_method, string_method, file_method);
    if (facts.encrypted) {
        if (facts.version < 4) {
            facts.stream_method = QPDF::e_rc4; // V 1 and 2 have no crypt filters: RC4 is implied
        }
        facts.key_bits = pdf.getEncryptionKey().size() * 8;
        facts.owner_matched = pdf.ownerPasswordMatched();
    }
    return facts;
}

std::string xmp_packet_of(QPDF& pdf)
{
    auto metadata = pdf.getRoot().getKey("/Metadata");
    return metadata.isStream() ? stream_text(metadata) : std::string();
}

std::string info_entry(QPDF& pdf, const std::string& key)
{
    auto entry = pdf.getTrailer().getKey("/Info").getKeyIfDict(key);
    return entry.isString() ? entry.getUTF8Value() : std::string();
}

bool uses_object_streams(QPDF& pdf)
{
    const auto table = pdf.getXRefTable();
    return std::any_of(table.begin(), table.end(),
                       [](const auto& object) { return object.second.getType() == 2; });
}

} // namespace qf::test
