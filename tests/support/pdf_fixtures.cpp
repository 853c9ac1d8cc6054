// SPDX-License-Identifier: GPL-3.0-or-later
#include "tests/support/pdf_fixtures.h"

#include <qpdf/QPDF.hh>
#include <qpdf/QPDFObjectHandle.hh>
#include <qpdf/QPDFPageDocumentHelper.hh>
#include <qpdf/QPDFPageObjectHelper.hh>
#include <qpdf/QPDFWriter.hh>

#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>

namespace qf::test {
namespace {

// A PDF number: fixed notation (PDF has no exponents), no trailing zeros.
std::string num(double value)
{
    std::ostringstream out;
    out.setf(std::ios::fixed);
    out.precision(4);
    out << value;
    std::string text = out.str();
    text.erase(text.find_last_not_of('0') + 1);
    if (text.back() == '.') {
        text.pop_back();
    }
    return text == "-0" ? "0" : text;
}

// A PDF literal string's body: backslash, parentheses escaped.
std::string literal(const std::string& text)
{
    std::string out;
    for (const char c : text) {
        if (c == '\\' || c == '(' || c == ')') {
            out += '\\';
        }
        out += c;
    }
    return out;
}

std::string rect_array(const PdfRect& r)
{
    return "[" + num(r.x) + " " + num(r.y) + " " + num(r.x + r.width) + " " + num(r.y + r.height) +
           "]";
}

QPDFObjectHandle helvetica(QPDF& pdf)
{
    return pdf.makeIndirectObject(QPDFObjectHandle::parse(
        "<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica /Encoding /WinAnsiEncoding >>"));
}

std::string page_content(const PdfPageSpec& spec)
{
    std::ostringstream out;
    for (const auto& fill : spec.fills) {
        out << num(fill.color.r) << ' ' << num(fill.color.g) << ' ' << num(fill.color.b) << " rg "
            << num(spec.origin_x + fill.rect.x) << ' ' << num(spec.origin_y + fill.rect.y) << ' '
            << num(fill.rect.width) << ' ' << num(fill.rect.height) << " re f\n";
    }
    for (const auto& text : spec.texts) {
        out << "BT 0 g /F1 " << num(text.size) << " Tf " << num(spec.origin_x + text.x) << ' '
            << num(spec.origin_y + text.y) << " Td (" << literal(text.text) << ") Tj ET\n";
    }
    return out.str();
}

// A page dictionary for `spec`, not yet added to the document.
QPDFObjectHandle make_page(QPDF& pdf, const PdfPageSpec& spec, QPDFObjectHandle font)
{
    auto page = QPDFObjectHandle::parse(
        "<< /Type /Page /MediaBox [" + num(spec.origin_x) + " " + num(spec.origin_y) + " " +
        num(spec.origin_x + spec.width) + " " + num(spec.origin_y + spec.height) + "] >>");
    auto fonts = QPDFObjectHandle::newDictionary();
    fonts.replaceKey("/F1", font);
    auto resources = QPDFObjectHandle::newDictionary();
    resources.replaceKey("/Font", fonts);
    page.replaceKey("/Resources", resources);
    page.replaceKey("/Contents", QPDFObjectHandle::newStream(&pdf, page_content(spec)));
    if (spec.rotate != 0) {
        page.replaceKey("/Rotate", QPDFObjectHandle::newInteger(spec.rotate));
    }
    return pdf.makeIndirectObject(page);
}

// An /AP dictionary whose normal appearance is a form XObject of `content` over the
// annotation's rectangle.
QPDFObjectHandle normal_appearance(QPDF& pdf, const std::string& content, const PdfRect& rect,
                                   QPDFObjectHandle resources)
{
    auto appearance = QPDFObjectHandle::newStream(&pdf, content);
    auto dict = appearance.getDict();
    dict.replaceKey("/Type", QPDFObjectHandle::newName("/XObject"));
    dict.replaceKey("/Subtype", QPDFObjectHandle::newName("/Form"));
    dict.replaceKey("/BBox", QPDFObjectHandle::parse("[0 0 " + num(rect.width) + " " +
                                                     num(rect.height) + "]"));
    dict.replaceKey("/Resources", resources);
    auto ap = QPDFObjectHandle::newDictionary();
    ap.replaceKey("/N", appearance);
    return ap;
}

void write_document(QPDF& pdf, const std::filesystem::path& target)
{
    QPDFWriter writer(pdf, target.c_str());
    writer.setStaticID(true); // same bytes on every run, so failures reproduce
    writer.write();
}

// An empty document with one blank US Letter page; returns the page.
QPDFObjectHandle start_single_page(QPDF& pdf)
{
    pdf.emptyPDF();
    auto page = make_page(pdf, PdfPageSpec{}, helvetica(pdf));
    QPDFPageDocumentHelper(pdf).addPage(QPDFPageObjectHelper(page), false);
    return page;
}

} // namespace

void write_pdf(const std::filesystem::path& target, const std::vector<PdfPageSpec>& pages)
{
    QPDF pdf;
    pdf.emptyPDF();
    const auto font = helvetica(pdf);
    QPDFPageDocumentHelper pages_helper(pdf);
    for (const auto& spec : pages) {
        pages_helper.addPage(QPDFPageObjectHelper(make_page(pdf, spec, font)), false);
    }
    write_document(pdf, target);
}

std::string numbered_page_line(int pageno)
{
    return "Hello page " + std::to_string(pageno);
}

void write_numbered_pdf(const std::filesystem::path& target, int page_count)
{
    std::vector<PdfPageSpec> pages;
    for (int pageno = 1; pageno <= page_count; ++pageno) {
        PdfPageSpec spec;
        spec.texts.push_back(PdfText{72, 700, 24, numbered_page_line(pageno)});
        pages.push_back(spec);
    }
    write_pdf(target, pages);
}

void write_square_annotation_pdf(const std::filesystem::path& target, AnnotationForm form)
{
    QPDF pdf;
    auto page = start_single_page(pdf);
    auto annot = QPDFObjectHandle::parse("<< /Type /Annot /Subtype /Square /F 4 /Rect " +
                                         rect_array(kAnnotationRect) +
                                         " /C [1 0 0] /IC [1 0 0] /BS << /W 2 >> >>");
    if (form == AnnotationForm::WithAppearance) {
        const std::string fill = "1 0 0 rg 0 0 " + num(kAnnotationRect.width) + " " +
                                 num(kAnnotationRect.height) + " re f\n";
        annot.replaceKey("/AP", normal_appearance(pdf, fill, kAnnotationRect,
                                                  QPDFObjectHandle::newDictionary()));
    }
    annot.replaceKey("/P", page);
    auto annots = QPDFObjectHandle::newArray();
    annots.appendItem(pdf.makeIndirectObject(annot));
    page.replaceKey("/Annots", annots);
    write_document(pdf, target);
}

void write_text_field_pdf(const std::filesystem::path& target, const std::string& value,
                          FieldForm form)
{
    QPDF pdf;
    auto page = start_single_page(pdf);
    const auto font = helvetica(pdf);
    auto font_dict = QPDFObjectHandle::newDictionary();
    font_dict.replaceKey("/Helv", font);
    auto resources = QPDFObjectHandle::newDictionary();
    resources.replaceKey("/Font", font_dict);

    auto widget = QPDFObjectHandle::parse(
        "<< /Type /Annot /Subtype /Widget /FT /Tx /T (name) /F 4 /DA (/Helv 18 Tf 0 g) /Rect " +
        rect_array(kFieldRect) + " >>");
    widget.replaceKey("/V", QPDFObjectHandle::newString(value));
    widget.replaceKey("/P", page);
    if (form == FieldForm::WithAppearance) {
        const std::string show =
            "/Tx BMC q BT /Helv 18 Tf 0 g 4 12 Td (" + literal(value) + ") Tj ET Q EMC\n";
        widget.replaceKey("/AP", normal_appearance(pdf, show, kFieldRect, resources));
    }
    widget = pdf.makeIndirectObject(widget);

    auto annots = QPDFObjectHandle::newArray();
    annots.appendItem(widget);
    page.replaceKey("/Annots", annots);

    auto acroform = QPDFObjectHandle::parse("<< /DA (/Helv 0 Tf 0 g) >>");
    auto fields = QPDFObjectHandle::newArray();
    fields.appendItem(widget);
    acroform.replaceKey("/Fields", fields);
    acroform.replaceKey("/DR", resources);
    if (form == FieldForm::NeedAppearances) {
        acroform.replaceKey("/NeedAppearances", QPDFObjectHandle::newBool(true));
    }
    pdf.getRoot().replaceKey("/AcroForm", pdf.makeIndirectObject(acroform));
    write_document(pdf, target);
}

void write_encrypted_copy(const std::filesystem::path& source, const std::filesystem::path& target,
                          PdfEncryption encryption, const std::string& user_password,
                          const std::string& owner_password)
{
    QPDF pdf;
    pdf.processFile(source.string().c_str());
    QPDFWriter writer(pdf, target.c_str());
    const char* user = user_password.c_str();
    const char* owner = owner_password.c_str();
    switch (encryption) {
    case PdfEncryption::Rc4_128:
        writer.setR3EncryptionParametersInsecure(user, owner, true, true, true, true, true, true,
                                                 qpdf_r3p_full);
        break;
    case PdfEncryption::Aes128:
        writer.setR4EncryptionParametersInsecure(user, owner, true, true, true, true, true, true,
                                                 qpdf_r3p_full, true, true);
        break;
    case PdfEncryption::Aes256:
        if (owner_password.empty()) {
            throw std::invalid_argument("AES-256 fixtures need an owner password");
        }
        writer.setR6EncryptionParameters(user, owner, true, true, true, true, true, true,
                                         qpdf_r3p_full, true);
        break;
    }
    writer.write();
}

void write_blank_pdf(const std::filesystem::path& target, int pages,
                     const std::string& user_password, const std::string& owner_password)
{
    std::filesystem::create_directories(target.parent_path());
    write_pdf(target, std::vector<PdfPageSpec>(static_cast<std::size_t>(pages)));
    if (user_password.empty() && owner_password.empty()) {
        return;
    }
    const auto plain = target.string() + ".plain";
    std::filesystem::rename(target, plain);
    write_encrypted_copy(plain, target, PdfEncryption::Aes128, user_password,
                         owner_password.empty() ? user_password + "-owner" : owner_password);
    std::filesystem::remove(plain);
}

void write_truncated_copy(const std::filesystem::path& source, const std::filesystem::path& target,
                          std::size_t keep_bytes)
{
    std::ifstream in(source, std::ios::binary);
    if (!in) {
        throw std::runtime_error("cannot read " + source.string());
    }
    std::string bytes{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    bytes.resize(std::min(bytes.size(), keep_bytes));
    std::ofstream out(target, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (!out) {
        throw std::runtime_error("cannot write " + target.string());
    }
}

void write_garbage_pdf(const std::filesystem::path& target)
{
    std::ofstream out(target, std::ios::binary | std::ios::trunc);
    out << "%PDF-1.4\n";
    for (int i = 0; i < 64; ++i) {
        out << "garbage line " << i << " without objects\n";
    }
    if (!out) {
        throw std::runtime_error("cannot write " + target.string());
    }
}

void write_boxed_pdf(const std::filesystem::path& target, const std::vector<PdfBoxesSpec>& pages)
{
    QPDF pdf;
    pdf.emptyPDF();
    QPDFPageDocumentHelper pages_helper(pdf);
    for (const auto& spec : pages) {
        auto page = QPDFObjectHandle::parse("<< /Type /Page /MediaBox " + spec.media_box +
                                            " /Resources << >> >>");
        if (!spec.crop_box.empty()) {
            page.replaceKey("/CropBox", QPDFObjectHandle::parse(spec.crop_box));
        }
        if (spec.rotate != 0) {
            page.replaceKey("/Rotate", QPDFObjectHandle::newInteger(spec.rotate));
        }
        page.replaceKey("/Contents", QPDFObjectHandle::newStream(&pdf, ""));
        pages_helper.addPage(QPDFPageObjectHelper(pdf.makeIndirectObject(page)), false);
    }
    write_document(pdf, target);
}

} // namespace qf::test
