// SPDX-License-Identifier: GPL-3.0-or-later
#include "tests/support/pdf_fixtures.h"

#include <qpdf/QPDF.hh>
#include <qpdf/QPDFObjectHandle.hh>
#include <qpdf/QPDFPageDocumentHelper.hh>
#include <qpdf/QPDFPageObjectHelper.hh>
#include <qpdf/QPDFWriter.hh>

#include <fstream>
#include <iomanip>
#include <iterator>
#include <sstream>
#include <stdexcept>

#include "tests/support/hostile_files.h" // write_text_file
#include "tests/support/pdf_examine.h"  // new_stream

namespace qf::test {
namespace {

using Object = QPDFObjectHandle;

// A PDF number: fixed notation (PDF has no exponents), no trailing zeros.
std::string num(double value)
{
    std::ostringstream out;
    out << std::fixed << std::setprecision(4) << value;
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
        out += std::string(c == '\\' || c == '(' || c == ')' ? "\\" : "") + c;
    }
    return out;
}

std::string rect_array(const PdfRect& r)
{
    return "[" + num(r.x) + " " + num(r.y) + " " + num(r.x + r.width) + " " + num(r.y + r.height) +
           "]";
}

Object helvetica(QPDF& pdf)
{
    return pdf.makeIndirectObject(Object::parse(
        "<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica /Encoding /WinAnsiEncoding >>"));
}

std::string page_content(const PdfPageSpec& spec)
{
    std::ostringstream out;
    for (const auto& [rect, color] : spec.fills) {
        out << num(color.r) << ' ' << num(color.g) << ' ' << num(color.b) << " rg "
            << num(spec.origin_x + rect.x) << ' ' << num(spec.origin_y + rect.y) << ' '
            << num(rect.width) << ' ' << num(rect.height) << " re f\n";
    }
    for (const auto& text : spec.texts) {
        out << "BT 0 g /F1 " << num(text.size) << " Tf " << num(spec.origin_x + text.x) << ' '
            << num(spec.origin_y + text.y) << " Td (" << literal(text.text) << ") Tj ET\n";
    }
    return out.str();
}

// A page object for `spec`, not yet added to the document's page tree.
Object make_page(QPDF& pdf, const PdfPageSpec& spec, Object font)
{
    auto contents = Object::newStream(&pdf, page_content(spec));
    return pdf.makeIndirectObject(Object::parse(
        &pdf, "<< /Type /Page /MediaBox " +
                  rect_array({spec.origin_x, spec.origin_y, spec.width, spec.height}) +
                  " /Resources << /Font << /F1 " + font.unparse() + " >> >> /Contents " +
                  contents.unparse() +
                  (spec.rotate != 0 ? " /Rotate " + std::to_string(spec.rotate) : "") + " >>"));
}

// An /AP dictionary whose normal appearance is a form XObject of `content` over `rect`.
std::string normal_appearance(QPDF& pdf, const std::string& content, const PdfRect& rect,
                              const std::string& resources)
{
    auto appearance = new_stream(pdf, content,
                                 "<< /Type /XObject /Subtype /Form /BBox [0 0 " + num(rect.width) +
                                     " " + num(rect.height) + "] /Resources " + resources + " >>");
    return " /AP << /N " + appearance.unparse() + " >>";
}

void write_document(QPDF& pdf, const std::filesystem::path& target)
{
    QPDFWriter writer(pdf, target.c_str());
    writer.setStaticID(true); // same bytes on every run, so failures reproduce
    writer.write();
}

// An empty document with one blank US Letter page; returns the page.
Object start_single_page(QPDF& pdf)
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
    auto font = helvetica(pdf);
    for (const auto& spec : pages) {
        QPDFPageDocumentHelper(pdf).addPage(QPDFPageObjectHelper(make_page(pdf, spec, font)), false);
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
        pages.push_back({.texts = {PdfText{72, 700, 24, numbered_page_line(pageno)}}});
    }
    write_pdf(target, pages);
}

void write_square_annotation_pdf(const std::filesystem::path& target, AnnotationForm form)
{
    QPDF pdf;
    auto page = start_single_page(pdf);
    const std::string fill = "1 0 0 rg 0 0 " + num(kAnnotationRect.width) + " " +
                             num(kAnnotationRect.height) + " re f\n";
    auto annotation = pdf.makeIndirectObject(Object::parse(
        &pdf, "<< /Type /Annot /Subtype /Square /F 4 /Rect " + rect_array(kAnnotationRect) +
                  " /C [1 0 0] /IC [1 0 0] /BS << /W 2 >> /P " + page.unparse() +
                  (form == AnnotationForm::WithAppearance
                       ? normal_appearance(pdf, fill, kAnnotationRect, "<< >>")
                       : "") +
                  " >>"));
    page.replaceKey("/Annots", Object::parse(&pdf, "[" + annotation.unparse() + "]"));
    write_document(pdf, target);
}

void write_text_field_pdf(const std::filesystem::path& target, const std::string& value,
                          FieldForm form)
{
    QPDF pdf;
    auto page = start_single_page(pdf);
    const std::string resources = "<< /Font << /Helv " + helvetica(pdf).unparse() + " >> >>";
    const std::string show =
        "/Tx BMC q BT /Helv 18 Tf 0 g 4 12 Td (" + literal(value) + ") Tj ET Q EMC\n";
    auto widget = pdf.makeIndirectObject(Object::parse(
        &pdf, "<< /Type /Annot /Subtype /Widget /FT /Tx /T (name) /F 4 /DA (/Helv 18 Tf 0 g) "
              "/Rect " + rect_array(kFieldRect) + " /V " + Object::newString(value).unparse() +
                  " /P " + page.unparse() +
                  (form == FieldForm::WithAppearance
                       ? normal_appearance(pdf, show, kFieldRect, resources)
                       : "") +
                  " >>"));
    page.replaceKey("/Annots", Object::parse(&pdf, "[" + widget.unparse() + "]"));
    pdf.getRoot().replaceKey(
        "/AcroForm",
        pdf.makeIndirectObject(Object::parse(
            &pdf, "<< /DA (/Helv 0 Tf 0 g) /Fields [" + widget.unparse() + "] /DR " + resources +
                      (form == FieldForm::NeedAppearances ? " /NeedAppearances true" : "") +
                      " >>")));
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
    if (encryption == PdfEncryption::Rc4_128) {
        writer.setR3EncryptionParametersInsecure(user, owner, true, true, true, true, true, true,
                                                 qpdf_r3p_full);
    } else if (encryption == PdfEncryption::Aes128) {
        writer.setR4EncryptionParametersInsecure(user, owner, true, true, true, true, true, true,
                                                 qpdf_r3p_full, true, true);
    } else if (owner_password.empty()) {
        throw std::invalid_argument("AES-256 fixtures need an owner password");
    } else {
        writer.setR6EncryptionParameters(user, owner, true, true, true, true, true, true,
                                         qpdf_r3p_full, true);
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
    const std::string bytes{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    write_text_file(target, bytes.substr(0, keep_bytes));
}

void write_garbage_pdf(const std::filesystem::path& target)
{
    std::string text = "%PDF-1.4\n";
    for (int i = 0; i < 64; ++i) {
        text += "garbage line " + std::to_string(i) + " without objects\n";
    }
    write_text_file(target, text);
}

void write_boxed_pdf(const std::filesystem::path& target, const std::vector<PdfBoxesSpec>& pages)
{
    QPDF pdf;
    pdf.emptyPDF();
    for (const auto& spec : pages) {
        auto contents = Object::newStream(&pdf, "");
        const auto page = Object::parse(
            &pdf, "<< /Type /Page /MediaBox " + spec.media_box + " /Resources << >>" +
                      (spec.crop_box.empty() ? "" : " /CropBox " + spec.crop_box) +
                      (spec.rotate != 0 ? " /Rotate " + std::to_string(spec.rotate) : "") +
                      " /Contents " + contents.unparse() + " >>");
        QPDFPageDocumentHelper(pdf).addPage(QPDFPageObjectHelper(pdf.makeIndirectObject(page)),
                                            false);
    }
    write_document(pdf, target);
}

} // namespace qf::test
