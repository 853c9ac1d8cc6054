// SPDX-License-Identifier: GPL-3.0-or-later
#include "tests/support/hostile_files.h"

#include <cstring>
#include <fstream>
#include <stdexcept>

namespace qf::test {
namespace fs = std::filesystem;
namespace {

void write_bytes(const fs::path &target, const std::string &bytes)
{
    std::ofstream file(target, std::ios::binary | std::ios::trunc);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    file.close();
    if (!file) {
        throw std::runtime_error("cannot write " + target.string());
    }
}

std::string reference(int object)
{
    return std::to_string(object) + " 0 R";
}

std::string repeated(const std::string &text, int times)
{
    std::string out;
    out.reserve(text.size() * static_cast<std::size_t>(times));
    for (int i = 0; i < times; ++i) {
        out += text;
    }
    return out;
}

constexpr int kFirstExtraObject = 5;

} // namespace

std::string stream_object(const std::string &entries, const std::string &data)
{
    return "<< " + entries + " /Length " + std::to_string(data.size()) + " >>\nstream\n" + data +
           "\nendstream";
}

std::string form_object(const std::string &content, const std::string &xobject_entries)
{
    return stream_object("/Type /XObject /Subtype /Form /BBox [0 0 612 792] /Resources << "
                         "/XObject << " +
                             xobject_entries + " >> >>",
                         content);
}

void write_raw_pdf(const fs::path &target, const std::vector<std::string> &objects)
{
    std::string file = "%PDF-1.4\n%\xE2\xE3\xCF\xD3\n";
    std::vector<std::size_t> offsets;
    for (std::size_t i = 0; i < objects.size(); ++i) {
        offsets.push_back(file.size());
        file += std::to_string(i + 1) + " 0 obj\n" + objects[i] + "\nendobj\n";
    }
    const std::size_t xref = file.size();
    file += "xref\n0 " + std::to_string(objects.size() + 1) + "\n0000000000 65535 f \n";
    for (const std::size_t offset : offsets) {
        char entry[24];
        std::snprintf(entry, sizeof entry, "%010zu 00000 n \n", offset);
        file += entry;
    }
    file += "trailer\n<< /Size " + std::to_string(objects.size() + 1) +
            " /Root 1 0 R >>\nstartxref\n" + std::to_string(xref) + "\n%%EOF\n";
    write_bytes(target, file);
}

void write_one_page_pdf(const fs::path &target, const RawPage &page,
                        const std::vector<std::string> &extra_objects)
{
    std::vector<std::string> objects = {
        "<< /Type /Catalog /Pages 2 0 R >>",
        "<< /Type /Pages /Kids [3 0 R] /Count 1 >>",
        "<< /Type /Page /Parent 2 0 R /MediaBox " + page.media_box + " /Resources " +
            page.resources + " /Contents 4 0 R " + page.page_entries + " >>",
        stream_object("", page.content),
    };
    objects.insert(objects.end(), extra_objects.begin(), extra_objects.end());
    write_raw_pdf(target, objects);
}

void write_deep_page_tree_pdf(const fs::path &target, int depth)
{
    std::vector<std::string> objects = {"<< /Type /Catalog /Pages 2 0 R >>"};
    for (int node = 0; node < depth; ++node) {
        objects.push_back("<< /Type /Pages /Kids [" + reference(node + 3) + "] /Count 1 >>");
    }
    objects.push_back("<< /Type /Page /MediaBox [0 0 100 100] >>");
    write_raw_pdf(target, objects);
}

void write_looping_page_tree_pdf(const fs::path &target)
{
    write_raw_pdf(target, {"<< /Type /Catalog /Pages 2 0 R >>",
                           "<< /Type /Pages /Kids [2 0 R] /Count 1 >>"});
}

void write_jbig2_pdf(const fs::path &target, std::uint32_t side)
{
    const auto be32 = [](std::uint32_t value) {
        return std::string{char(value >> 24), char(value >> 16), char(value >> 8), char(value)};
    };
    const auto segment = [&](std::uint32_t number, char type, const std::string &data) {
        return be32(number) + type + '\0' + '\1' + be32(static_cast<std::uint32_t>(data.size())) +
               data;
    };
    const std::string page_info =
        be32(side) + be32(side) + be32(0) + be32(0) + '\0' + std::string(2, '\0');
    const std::string region = be32(side) + be32(side) + be32(0) + be32(0) + '\0' + '\0' +
                               std::string("\x03\xff\xfd\xff\x02\xfe\xfe\xfe", 8) +
                               std::string(16, '\0');
    RawPage page;
    page.media_box = "[0 0 100 100]";
    page.resources = "<< /XObject << /Im0 " + reference(kFirstExtraObject) + " >> >>";
    page.content = "q 100 0 0 100 0 0 cm /Im0 Do Q";
    const std::string size = std::to_string(side);
    write_one_page_pdf(target, page,
                       {stream_object("/Type /XObject /Subtype /Image /Width " + size +
                                          " /Height " + size +
                                          " /BitsPerComponent 1 /ColorSpace /DeviceGray "
                                          "/Filter /JBIG2Decode",
                                      segment(0, 48, page_info) + segment(1, 38, region))});
}

void write_self_drawing_form_pdf(const fs::path &target)
{
    RawPage page;
    page.resources = "<< /XObject << /F " + reference(5) + " >> >>";
    page.content = "/F Do";
    write_one_page_pdf(target, page,
                       {form_object("0 0 1 rg 10 10 100 100 re f /F Do", "/F " + reference(5))});
}

void write_mutual_forms_pdf(const fs::path &target)
{
    RawPage page;
    page.resources = "<< /XObject << /A " + reference(5) + " >> >>";
    page.content = "/A Do";
    write_one_page_pdf(target, page,
                       {form_object("0 0 1 rg 10 10 100 100 re f /B Do", "/B " + reference(6)),
                        form_object("1 0 0 rg 200 200 100 100 re f /A Do", "/A " + reference(5))});
}

void write_doubling_forms_pdf(const fs::path &target, int levels)
{
    RawPage page;
    page.resources = "<< /XObject << /F " + reference(kFirstExtraObject) + " >> >>";
    page.content = "/F Do";
    std::vector<std::string> forms;
    for (int level = 0; level < levels; ++level) {
        const int next = kFirstExtraObject + level + 1;
        forms.push_back(level + 1 < levels ? form_object("/F Do /F Do", "/F " + reference(next))
                                           : form_object("0 0 1 rg 0 0 612 792 re f", ""));
    }
    write_one_page_pdf(target, page, forms);
}

void write_nested_forms_pdf(const fs::path &target, int depth)
{
    RawPage page;
    page.resources = "<< /XObject << /F " + reference(kFirstExtraObject) + " >> >>";
    page.content = "/F Do";
    std::vector<std::string> forms;
    for (int level = 0; level < depth; ++level) {
        const int next = kFirstExtraObject + level + 1;
        forms.push_back(level + 1 < depth ? form_object("q /F Do Q", "/F " + reference(next))
                                          : form_object("0 0 1 rg 0 0 100 100 re f", ""));
    }
    write_one_page_pdf(target, page, forms);
}

void write_nested_saves_pdf(const fs::path &target, int depth)
{
    RawPage page;
    page.content = repeated("q ", depth) + "0 0 1 rg 0 0 100 100 re f " + repeated("Q ", depth);
    write_one_page_pdf(target, page);
}

void write_nested_arrays_pdf(const fs::path &target, int depth)
{
    const std::string nested = repeated("[", depth) + "1" + repeated("]", depth);
    RawPage page;
    page.page_entries = "/Nested " + nested;
    page.content = nested + " 0 d 0 0 1 rg 0 0 100 100 re f";
    write_one_page_pdf(target, page);
}

void write_wide_page_pdf(const fs::path &target, double width_pt)
{
    RawPage page;
    page.media_box = "[0 0 " + std::to_string(width_pt) + " 792]";
    page.resources = "<< /Font << /F1 << /Type /Font /Subtype /Type1 /BaseFont /Helvetica >> >> >>";
    page.content = "BT /F1 24 Tf 72 700 Td (A very wide page) Tj ET";
    write_one_page_pdf(target, page);
}

void write_image_bomb_pdf(const fs::path &target, int width, int height)
{
    RawPage page;
    page.resources = "<< /XObject << /Im " + reference(kFirstExtraObject) + " >> >>";
    page.content = "q 612 0 0 792 0 0 cm /Im Do Q";
    write_one_page_pdf(
        target, page,
        {stream_object("/Type /XObject /Subtype /Image /Width " + std::to_string(width) +
                           " /Height " + std::to_string(height) +
                           " /ColorSpace /DeviceRGB /BitsPerComponent 8",
                       "abc")});
}

void write_tiff_header_only(const fs::path &target, std::uint32_t width, std::uint32_t height)
{
    // Little-endian classic TIFF: header, one directory of nine entries, 16 bytes of data.
    std::string file("II*\0\x08\0\0\0", 8);
    const auto put16 = [&](std::uint16_t value) {
        file += static_cast<char>(value & 0xFF);
        file += static_cast<char>(value >> 8);
    };
    const auto put32 = [&](std::uint32_t value) {
        put16(static_cast<std::uint16_t>(value & 0xFFFF));
        put16(static_cast<std::uint16_t>(value >> 16));
    };
    constexpr std::uint16_t kShort = 3;
    constexpr std::uint16_t kLong = 4;
    const std::uint32_t data_offset = 8 + 2 + 9 * 12 + 4;
    const struct
    {
        std::uint16_t tag;
        std::uint16_t type;
        std::uint32_t value;
    } entries[] = {
        {256, kLong, width}, {257, kLong, height}, {258, kShort, 8},
        {259, kShort, 1},    {262, kShort, 1},     {273, kLong, data_offset},
        {277, kShort, 1},    {278, kLong, height}, {279, kLong, 16},
    };
    put16(static_cast<std::uint16_t>(std::size(entries)));
    for (const auto &entry : entries) {
        put16(entry.tag);
        put16(entry.type);
        put32(1);
        if (entry.type == kShort) {
            put16(static_cast<std::uint16_t>(entry.value));
            put16(0);
        } else {
            put32(entry.value);
        }
    }
    put32(0); // no next directory
    file += std::string(16, '\x80');
    write_bytes(target, file);
}

void write_text_file(const fs::path &target, const std::string &text)
{
    fs::create_directories(target.parent_path());
    write_bytes(target, text);
}

} // namespace qf::test
