// SPDX-License-Identifier: GPL-3.0-or-later
#include "writers/pdf/pdf_metadata.h"

#include <array>
#include <cstdio>

#include <qpdf/QPDFObjectHandle.hh>
#include <qpdf/QUtil.hh>

namespace qf::writers::pdf {
namespace {

constexpr const char *kProgramName = "Quirefold";

QPDFObjectHandle info_dictionary(QPDF &pdf)
{
    QPDFObjectHandle trailer = pdf.getTrailer();
    QPDFObjectHandle info = trailer.getKey("/Info");
    if (!info.isDictionary()) {
        info = pdf.makeIndirectObject(QPDFObjectHandle::newDictionary());
        trailer.replaceKey("/Info", info);
    }
    return info;
}

std::string info_text(QPDFObjectHandle info, const std::string &key)
{
    QPDFObjectHandle value = info.getKey(key);
    return value.isString() ? value.getUTF8Value() : std::string();
}

void set_or_remove(QPDFObjectHandle info, const std::string &key, const std::string &text)
{
    if (text.empty()) {
        info.removeKey(key);
    } else {
        info.replaceKey(key, QPDFObjectHandle::newUnicodeString(text));
    }
}

std::string current_xmp(QPDF &pdf)
{
    QPDFObjectHandle metadata = pdf.getRoot().getKey("/Metadata");
    if (!metadata.isStream()) {
        return {};
    }
    try {
        const auto data = metadata.getStreamData(qpdf_dl_all);
        return std::string(reinterpret_cast<const char *>(data->getBuffer()), data->getSize());
    } catch (const std::exception &) {
        return {}; // a packet that cannot be read is replaced as if absent
    }
}

bool is_xml_blank(char c)
{
    return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

// The value of an XMP property written either as an element, <name>value</name> with no markup
// inside (blanks around the value dropped), or as an attribute, name="value" or name='value'
// (blanks allowed around "="); the first element in the packet wins over any attribute.
// Scanned by hand: compiling a pattern for each property of each packet took 40 % of the time
// of writing a one-page file.
std::string xmp_property(const std::string &xmp, const std::string &name)
{
    const std::string open = "<" + name + ">";
    const std::string close = "</" + name + ">";
    for (auto at = xmp.find(open); at != std::string::npos; at = xmp.find(open, at + 1)) {
        auto start = at + open.size();
        auto end = xmp.find('<', start);
        if (end == std::string::npos) {
            break;
        }
        if (xmp.compare(end, close.size(), close) != 0) {
            continue;
        }
        while (start < end && is_xml_blank(xmp[start])) {
            ++start;
        }
        while (end > start && is_xml_blank(xmp[end - 1])) {
            --end;
        }
        return xmp.substr(start, end - start);
    }
    for (auto at = xmp.find(name); at != std::string::npos; at = xmp.find(name, at + 1)) {
        auto i = at + name.size();
        while (i < xmp.size() && is_xml_blank(xmp[i])) {
            ++i;
        }
        if (i >= xmp.size() || xmp[i] != '=') {
            continue;
        }
        ++i;
        while (i < xmp.size() && is_xml_blank(xmp[i])) {
            ++i;
        }
        if (i >= xmp.size() || (xmp[i] != '"' && xmp[i] != '\'')) {
            continue;
        }
        const auto start = i + 1;
        const auto end = xmp.find_first_of("\"'", start);
        if (end != std::string::npos) {
            return xmp.substr(start, end - start);
        }
    }
    return {};
}

// Text as XML character data: markup characters escaped, characters XML forbids dropped.
std::string xml_escape(const std::string &text)
{
    std::string out;
    out.reserve(text.size());
    for (const char c : text) {
        switch (c) {
        case '&':
            out += "&amp;";
            break;
        case '<':
            out += "&lt;";
            break;
        case '>':
            out += "&gt;";
            break;
        case '"':
            out += "&quot;";
            break;
        case '\'':
            out += "&apos;";
            break;
        default:
            if (static_cast<unsigned char>(c) >= 0x20 || c == '\t' || c == '\n' || c == '\r') {
                out += c;
            }
        }
    }
    return out;
}

std::string new_uuid()
{
    // One read of the library's random source: a std::random_device per id, read byte by
    // byte, took a quarter of the time of writing a one-page file.
    std::array<unsigned char, 16> bytes{};
    QUtil::initializeWithRandomBytes(bytes.data(), bytes.size());
    bytes[6] = (bytes[6] & 0x0f) | 0x40; // version 4, random
    bytes[8] = (bytes[8] & 0x3f) | 0x80;
    std::string text = "uuid:";
    char hex[3];
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) {
            text += '-';
        }
        std::snprintf(hex, sizeof hex, "%02x", bytes[i]);
        text += hex;
    }
    return text;
}

std::string iso_date(const std::string &pdf_date)
{
    QUtil::QPDFTime time;
    return QUtil::pdf_time_to_qpdf_time(pdf_date, &time) ? QUtil::qpdf_time_to_iso8601(time)
                                                         : std::string();
}

void add_element(std::string &xml, const std::string &name, const std::string &value)
{
    if (!value.empty()) {
        xml += "   <" + name + ">" + xml_escape(value) + "</" + name + ">\n";
    }
}

void add_language_alternative(std::string &xml, const std::string &name, const std::string &value)
{
    if (!value.empty()) {
        xml += "   <" + name + "><rdf:Alt><rdf:li xml:lang=\"x-default\">" + xml_escape(value) +
               "</rdf:li></rdf:Alt></" + name + ">\n";
    }
}

std::string open_description(const std::string &prefix, const std::string &ns)
{
    return "  <rdf:Description rdf:about=\"\" xmlns:" + prefix + "=\"" + ns + "\">\n";
}

constexpr const char *kCloseDescription = "  </rdf:Description>\n";

// The packet, built from the Info entries so that both always say the same.
std::string build_xmp(QPDFObjectHandle info, const XmpIdentification &id,
                      const std::string &document_id)
{
    std::string xml = "<?xpacket begin=\"\xEF\xBB\xBF\" id=\"W5M0MpCehiHzreSzNTczkc9d\"?>\n"
                      "<x:xmpmeta xmlns:x=\"adobe:ns:meta/\">\n"
                      " <rdf:RDF xmlns:rdf=\"http://www.w3.org/1999/02/22-rdf-syntax-ns#\">\n";
    xml += open_description("dc", "http://purl.org/dc/elements/1.1/");
    add_element(xml, "dc:format", "application/pdf");
    add_language_alternative(xml, "dc:title", info_text(info, "/Title"));
    const std::string author = info_text(info, "/Author");
    if (!author.empty()) {
        xml += "   <dc:creator><rdf:Seq><rdf:li>" + xml_escape(author) +
               "</rdf:li></rdf:Seq></dc:creator>\n";
    }
    add_language_alternative(xml, "dc:description", info_text(info, "/Subject"));
    xml += kCloseDescription;

    xml += open_description("xmp", "http://ns.adobe.com/xap/1.0/");
    add_element(xml, "xmp:CreatorTool", info_text(info, "/Creator"));
    add_element(xml, "xmp:CreateDate", iso_date(info_text(info, "/CreationDate")));
    add_element(xml, "xmp:ModifyDate", iso_date(info_text(info, "/ModDate")));
    add_element(xml, "xmp:MetadataDate", iso_date(info_text(info, "/ModDate")));
    xml += kCloseDescription;

    xml += open_description("pdf", "http://ns.adobe.com/pdf/1.3/");
    add_element(xml, "pdf:Producer", info_text(info, "/Producer"));
    add_element(xml, "pdf:Keywords", info_text(info, "/Keywords"));
    if (!id.pdfx_version.empty() && info.getKey("/Trapped").isName()) {
        add_element(xml, "pdf:Trapped", info.getKey("/Trapped").getName().substr(1));
    }
    xml += kCloseDescription;

    xml += open_description("xmpMM", "http://ns.adobe.com/xap/1.0/mm/");
    add_element(xml, "xmpMM:DocumentID", document_id);
    add_element(xml, "xmpMM:InstanceID", new_uuid());
    if (!id.pdfx_version.empty()) {
        add_element(xml, "xmpMM:VersionID", "1");
        add_element(xml, "xmpMM:RenditionClass", "default");
    }
    xml += kCloseDescription;

    if (!id.pdfa_part.empty()) {
        xml += open_description("pdfaid", "http://www.aiim.org/pdfa/ns/id/");
        add_element(xml, "pdfaid:part", id.pdfa_part);
        add_element(xml, "pdfaid:conformance", id.pdfa_conformance);
        xml += kCloseDescription;
    }
    if (!id.pdfx_version.empty()) {
        xml += open_description("pdfxid", "http://www.npes.org/pdfx/ns/id/");
        add_element(xml, "pdfxid:GTS_PDFXVersion", id.pdfx_version);
        xml += kCloseDescription;
    }
    xml += " </rdf:RDF>\n</x:xmpmeta>\n";
    // Room for an editor to grow the packet in place, as XMP writers customarily leave.
    for (int line = 0; line < 20; ++line) {
        xml += std::string(99, ' ') + "\n";
    }
    xml += "<?xpacket end=\"w\"?>";
    return xml;
}

// Replaces the catalog's Metadata stream with a fresh packet. The stream stays unfiltered so
// that tools which do not decode PDF streams can still find it.
void write_xmp(QPDF &pdf, const XmpIdentification &id)
{
    const std::string old_xmp = current_xmp(pdf);
    std::string document_id = xmp_property(old_xmp, "xmpMM:DocumentID");
    if (document_id.empty()) {
        document_id = new_uuid();
    }
    const std::string packet = build_xmp(info_dictionary(pdf), id, document_id);
    // A stream of this document's own is refilled: making a new object costs QPDF a walk over
    // every object of the document, which for a long document is most of this call.
    QPDFObjectHandle stream = pdf.getRoot().getKey("/Metadata");
    if (stream.isStream() && stream.isIndirect() && stream.getOwningQPDF() == &pdf) {
        stream.replaceStreamData(packet, QPDFObjectHandle::newNull(), QPDFObjectHandle::newNull());
    } else {
        stream = pdf.newStream(packet);
    }
    QPDFObjectHandle dict = stream.getDict();
    dict.replaceKey("/Type", QPDFObjectHandle::newName("/Metadata"));
    dict.replaceKey("/Subtype", QPDFObjectHandle::newName("/XML"));
    pdf.getRoot().replaceKey("/Metadata", stream);
}

} // namespace

XmpIdentification read_identification(QPDF &pdf)
{
    const std::string xmp = current_xmp(pdf);
    return {xmp_property(xmp, "pdfaid:part"), xmp_property(xmp, "pdfaid:conformance"),
            xmp_property(xmp, "pdfxid:GTS_PDFXVersion")};
}

void set_identification(QPDF &pdf, const XmpIdentification &id)
{
    QPDFObjectHandle info = info_dictionary(pdf);
    if (!id.pdfx_version.empty()) {
        info.replaceKey("/GTS_PDFXVersion", QPDFObjectHandle::newString(id.pdfx_version));
        if (!info.getKey("/Trapped").isNameAndEquals("/True")) {
            info.replaceKey("/Trapped", QPDFObjectHandle::newName("/False"));
        }
    }
    write_xmp(pdf, id);
}

void applydocinfo(QPDF &pdf, const engine::OptionSnapshot &snapshot)
{
    const XmpIdentification id = read_identification(pdf);
    QPDFObjectHandle info = info_dictionary(pdf);
    set_or_remove(info, "/Author", snapshot.mpdfauthorname);
    if (!snapshot.mpdftitle.empty() || id.pdfx_version.empty()) {
        set_or_remove(info, "/Title", snapshot.mpdftitle);
    }
    set_or_remove(info, "/Subject", snapshot.msubject);
    set_or_remove(info, "/Creator", kProgramName);
    set_or_remove(info, "/Producer", kProgramName);

    const std::string now = QUtil::qpdf_time_to_pdf_time(QUtil::get_current_qpdf_time());
    if (!QUtil::pdf_time_to_qpdf_time(info_text(info, "/CreationDate"))) {
        info.replaceKey("/CreationDate", QPDFObjectHandle::newString(now));
    }
    info.replaceKey("/ModDate", QPDFObjectHandle::newString(now));
    write_xmp(pdf, id);
}

} // namespace qf::writers::pdf
