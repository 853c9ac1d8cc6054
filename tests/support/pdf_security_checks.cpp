// SPDX-License-Identifier: GPL-3.0-or-later
#include "tests/support/pdf_security_checks.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <regex>
#include <stdexcept>

#include <qpdf/Buffer.hh>
#include <qpdf/QPDFExc.hh>
#include <qpdf/QPDFObjectHandle.hh>
#include <qpdf/QPDFPageObjectHelper.hh>
#include <qpdf/QPDFWriter.hh>
#include <qpdf/QPDFXRefEntry.hh>

#include "tests/support/pdf_fixtures.h"

namespace qf::test {
namespace {

std::string stream_text(QPDFObjectHandle stream)
{
    const auto data = stream.getStreamData(qpdf_dl_generalized);
    return std::string(reinterpret_cast<const char*>(data->getBuffer()), data->getSize());
}

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

void add_images(QPDF& pdf, QPDFObjectHandle page)
{
    auto raw = QPDFObjectHandle::newStream(&pdf, raw_image_pixels());
    raw.getDict().replaceKey("/Type", QPDFObjectHandle::newName("/XObject"));
    raw.getDict().replaceKey("/Subtype", QPDFObjectHandle::newName("/Image"));
    raw.getDict().replaceKey("/Width", QPDFObjectHandle::newInteger(kRawImageSide));
    raw.getDict().replaceKey("/Height", QPDFObjectHandle::newInteger(kRawImageSide));
    raw.getDict().replaceKey("/ColorSpace", QPDFObjectHandle::newName("/DeviceGray"));
    raw.getDict().replaceKey("/BitsPerComponent", QPDFObjectHandle::newInteger(8));

    auto jpeg = QPDFObjectHandle::newStream(&pdf);
    jpeg.replaceStreamData(kJpegBytes, QPDFObjectHandle::newName("/DCTDecode"),
                           QPDFObjectHandle::newNull());
    jpeg.getDict().replaceKey("/Type", QPDFObjectHandle::newName("/XObject"));
    jpeg.getDict().replaceKey("/Subtype", QPDFObjectHandle::newName("/Image"));
    jpeg.getDict().replaceKey("/Width", QPDFObjectHandle::newInteger(4));
    jpeg.getDict().replaceKey("/Height", QPDFObjectHandle::newInteger(4));
    jpeg.getDict().replaceKey("/ColorSpace", QPDFObjectHandle::newName("/DeviceGray"));
    jpeg.getDict().replaceKey("/BitsPerComponent", QPDFObjectHandle::newInteger(8));

    auto xobjects = QPDFObjectHandle::newDictionary();
    xobjects.replaceKey("/Im0", raw);
    xobjects.replaceKey("/Im1", jpeg);
    page.getKey("/Resources").replaceKey("/XObject", xobjects);
    QPDFPageObjectHelper(page).addPageContents(
        QPDFObjectHandle::newStream(
            &pdf, "q 100 0 0 100 72 72 cm /Im0 Do Q q 50 0 0 50 300 72 cm /Im1 Do Q\n"),
        false);
}

void add_output_intent(QPDF& pdf)
{
    auto profile = QPDFObjectHandle::newStream(&pdf, kIccBytes);
    profile.getDict().replaceKey("/N", QPDFObjectHandle::newInteger(3));
    auto intent = QPDFObjectHandle::parse(
        "<< /Type /OutputIntent /S /GTS_PDFA1 /OutputConditionIdentifier (sRGB IEC61966-2.1) >>");
    intent.replaceKey("/DestOutputProfile", profile);
    auto intents = QPDFObjectHandle::newArray();
    intents.appendItem(pdf.makeIndirectObject(intent));
    pdf.getRoot().replaceKey("/OutputIntents", intents);
}

} // namespace

std::string raw_image_pixels()
{
    std::string pixels;
    for (int i = 0; i < kRawImageSide * kRawImageSide; ++i) {
        pixels += static_cast<char>((i * 7) % 256);
    }
    return pixels;
}

void write_labelled_pdf(const std::filesystem::path& target, const std::vector<std::string>& labels,
                        const PdfDressing& dressing)
{
    std::vector<PdfPageSpec> pages;
    for (const auto& label : labels) {
        PdfPageSpec spec;
        spec.texts.push_back(PdfText{72, 700, 24, label});
        pages.push_back(spec);
    }
    const auto plain = target.parent_path() / (".plain-" + target.filename().string());
    write_pdf(plain, pages);

    QPDF pdf;
    open_pdf(pdf, plain);
    if (dressing.pdfa_part != 0 || !dressing.pdfx_version.empty()) {
        auto metadata = QPDFObjectHandle::newStream(&pdf, xmp_for(dressing));
        metadata.getDict().replaceKey("/Type", QPDFObjectHandle::newName("/Metadata"));
        metadata.getDict().replaceKey("/Subtype", QPDFObjectHandle::newName("/XML"));
        pdf.getRoot().replaceKey("/Metadata", metadata);
    }
    if (dressing.output_intent) {
        add_output_intent(pdf);
    }
    if (dressing.images && !labels.empty()) {
        add_images(pdf, pdf.getAllPages().front());
    }
    {
        QPDFWriter writer(pdf, target.c_str());
        writer.setCompressStreams(false); // the raw image stays uncompressed
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
        std::string content;
        for (auto& stream : QPDFPageObjectHelper(page).getPageContents()) {
            content += stream_text(stream) + "\n";
        }
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
    auto info = pdf.getTrailer().getKey("/Info");
    if (!info.isDictionary() || !info.getKey(key).isString()) {
        return {};
    }
    return info.getKey(key).getUTF8Value();
}

bool uses_object_streams(QPDF& pdf)
{
    for (const auto& [object, entry] : pdf.getXRefTable()) {
        if (entry.getType() == 2) {
            return true;
        }
    }
    return false;
}

} // namespace qf::test
