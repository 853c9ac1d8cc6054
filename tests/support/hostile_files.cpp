// SPDX-License-Identifier: GPL-3.0-or-later
#include "tests/support/hostile_files.h"

#include <cstdio>
#include <fstream>
#include <stdexcept>
#include <vector>

namespace qf::test {
namespace fs = std::filesystem;
namespace {

void write_bytes(const fs::path& target, const std::string& bytes)
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

// An indirect stream object's body: "<< entries /Length N >> stream ... endstream".
std::string stream_object(const std::string& entries, const std::string& data)
{
    return "<< " + entries + " /Length " + std::to_string(data.size()) + " >>\nstream\n" + data +
           "\nendstream";
}

// A Form XObject (full page BBox) whose content is `content`, drawing the forms that
// `xobject_entries` ("/NAME N 0 R ...") name.
std::string form_object(const std::string& content, const std::string& xobject_entries)
{
    return stream_object("/Type /XObject /Subtype /Form /BBox [0 0 612 792] /Resources << "
                         "/XObject << " + xobject_entries + " >> >>",
                         content);
}

// A PDF 1.4 of these objects, numbered from 1 (object 1 the catalog), with a correct
// cross-reference table.
void write_raw_pdf(const fs::path& target, const std::vector<std::string>& objects)
{
    std::string file = "%PDF-1.4\n%\xE2\xE3\xCF\xD3\n";
    std::string xref = "xref\n0 " + std::to_string(objects.size() + 1) + "\n0000000000 65535 f \n";
    for (std::size_t i = 0; i < objects.size(); ++i) {
        char entry[24];
        std::snprintf(entry, sizeof entry, "%010zu 00000 n \n", file.size());
        xref += entry;
        file += std::to_string(i + 1) + " 0 obj\n" + objects[i] + "\nendobj\n";
    }
    file += xref + "trailer\n<< /Size " + std::to_string(objects.size() + 1) +
            " /Root 1 0 R >>\nstartxref\n" + std::to_string(file.size()) + "\n%%EOF\n";
    write_bytes(target, file);
}

// page_entries: more entries of the page dictionary
struct RawPage { std::string media_box = "[0 0 612 792]"; std::string resources = "<< >>";
                 std::string content; std::string page_entries; };

// One page: objects 1 to 4 are the catalog, the page tree, the page and its content stream;
// extra_objects become objects 5, 6, ...
void write_one_page_pdf(const fs::path& target, const RawPage& page,
                        const std::vector<std::string>& extra_objects = {})
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

// A page that draws object 5 as the XObject `name`; `objects` become objects 5, 6, ...
void write_drawing_page_pdf(const fs::path& target, const std::string& name,
                            const std::vector<std::string>& objects,
                            const std::string& content = {})
{
    write_one_page_pdf(target,
                       {.resources = "<< /XObject << /" + name + " 5 0 R >> >>",
                        .content = content.empty() ? "/" + name + " Do" : content},
                       objects);
}

// `levels` forms from object 5 on, each drawing the next with `draw_next`; the last fills.
void write_form_chain_pdf(const fs::path& target, int levels, const std::string& draw_next,
                          const std::string& last)
{
    std::vector<std::string> forms;
    for (int level = 1; level <= levels; ++level) {
        forms.push_back(level < levels ? form_object(draw_next, "/F " + reference(4 + level + 1))
                                       : form_object(last, ""));
    }
    write_drawing_page_pdf(target, "F", forms);
}

} // namespace

void write_deep_page_tree_pdf(const fs::path& target, int depth)
{
    std::vector<std::string> objects = {"<< /Type /Catalog /Pages 2 0 R >>"};
    for (int node = 0; node < depth; ++node) {
        objects.push_back("<< /Type /Pages /Kids [" + reference(node + 3) + "] /Count 1 >>");
    }
    objects.push_back("<< /Type /Page /MediaBox [0 0 100 100] >>");
    write_raw_pdf(target, objects);
}

void write_looping_page_tree_pdf(const fs::path& target)
{
    write_raw_pdf(target, {"<< /Type /Catalog /Pages 2 0 R >>",
                           "<< /Type /Pages /Kids [2 0 R] /Count 1 >>"});
}

void write_jbig2_pdf(const fs::path& target, std::uint32_t side)
{
    const auto be32 = [](std::uint32_t value) {
        return std::string{char(value >> 24), char(value >> 16), char(value >> 8), char(value)};
    };
    const auto segment = [&](std::uint32_t number, char type, const std::string& data) {
        return be32(number) + type + '\0' + '\1' + be32(std::uint32_t(data.size())) + data;
    };
    const std::string region_info = be32(side) + be32(side) + be32(0) + be32(0) + '\0';
    const std::string page_info = region_info + std::string(2, '\0');
    const std::string region = region_info + '\0' +
                               std::string("\x03\xff\xfd\xff\x02\xfe\xfe\xfe", 8) +
                               std::string(16, '\0');
    const std::string size = std::to_string(side);
    write_one_page_pdf(target,
                       {.media_box = "[0 0 100 100]",
                        .resources = "<< /XObject << /Im0 5 0 R >> >>",
                        .content = "q 100 0 0 100 0 0 cm /Im0 Do Q"},
                       {stream_object("/Type /XObject /Subtype /Image /Width " + size +
                                          " /Height " + size +
                                          " /BitsPerComponent 1 /ColorSpace /DeviceGray "
                                          "/Filter /JBIG2Decode",
                                      segment(0, 48, page_info) + segment(1, 38, region))});
}

void write_doubling_forms_pdf(const fs::path& target, int levels)
{
    write_form_chain_pdf(target, levels, "/F Do /F Do", "0 0 1 rg 0 0 612 792 re f");
}

void write_nested_forms_pdf(const fs::path& target, int depth)
{
    write_form_chain_pdf(target, depth, "q /F Do Q", "0 0 1 rg 0 0 100 100 re f");
}

void write_wide_page_pdf(const fs::path& target, double width_pt)
{
    write_one_page_pdf(target, {.media_box = "[0 0 " + std::to_string(width_pt) + " 792]",
                                .resources = "<< /Font << /F1 << /Type /Font /Subtype /Type1 "
                                             "/BaseFont /Helvetica >> >> >>",
                                .content = "BT /F1 24 Tf 72 700 Td (A very wide page) Tj ET"});
}

void write_image_bomb_pdf(const fs::path& target, int width, int height)
{
    write_drawing_page_pdf(target, "Im",
                           {stream_object("/Type /XObject /Subtype /Image /Width " +
                                              std::to_string(width) + " /Height " +
                                              std::to_string(height) +
                                              " /ColorSpace /DeviceRGB /BitsPerComponent 8",
                                          "abc")},
                           "q 612 0 0 792 0 0 cm /Im Do Q");
}

void write_tiff_header_only(const fs::path& target, std::uint32_t width, std::uint32_t height)
{
    // Little-endian classic TIFF: header, one directory of nine entries, 16 bytes of data. A
    // SHORT value sits in the low half of its 4-byte field, as a LONG does.
    std::string file("II*\0\x08\0\0\0", 8);
    const auto put = [&](std::uint32_t value, int bytes) {
        for (int i = 0; i < bytes; ++i) {
            file += static_cast<char>(value >> (8 * i));
        }
    };
    constexpr std::uint32_t kShort = 3;
    constexpr std::uint32_t kLong = 4;
    const std::uint32_t entries[][3] = {
        {256, kLong, width}, {257, kLong, height}, {258, kShort, 8},
        {259, kShort, 1},    {262, kShort, 1},     {273, kLong, 8 + 2 + 9 * 12 + 4},
        {277, kShort, 1},    {278, kLong, height}, {279, kLong, 16},
    };
    put(std::size(entries), 2);
    for (const auto& [tag, type, value] : entries) {
        put(tag, 2);
        put(type, 2);
        put(1, 4);
        put(value, 4);
    }
    put(0, 4); // no next directory
    write_bytes(target, file + std::string(16, '\x80'));
}

void write_text_file(const fs::path& target, const std::string& text)
{
    fs::create_directories(target.parent_path());
    write_bytes(target, text);
}

} // namespace qf::test
