// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

// Hostile documents written byte by byte: PDFs whose structure is sound but whose content is
// built to exhaust a reader (loops, exponential or deep nesting, enormous sizes), and TIFFs
// whose header promises what the file cannot hold. Each writer throws std::runtime_error when
// the file cannot be written.
namespace qf::test {

// A one-page PDF 1.4 with a correct cross-reference table. Objects 1 to 4 are the catalog,
// the page tree, the page and its content stream; extra_objects become objects 5, 6, ...
struct RawPage
{
    std::string media_box = "[0 0 612 792]";
    std::string resources = "<< >>";
    std::string content;
    std::string page_entries; // more entries of the page dictionary
};
void write_one_page_pdf(const std::filesystem::path &target, const RawPage &page,
                        const std::vector<std::string> &extra_objects = {});

// A PDF 1.4 of these objects, numbered from 1 (object 1 the catalog), with a correct
// cross-reference table.
void write_raw_pdf(const std::filesystem::path &target, const std::vector<std::string> &objects);

// One page under a chain of `depth` /Pages nodes: a reader that walks the page tree by
// recursion runs out of stack.
void write_deep_page_tree_pdf(const std::filesystem::path &target, int depth);
// A page tree whose only node names itself as its kid.
void write_looping_page_tree_pdf(const std::filesystem::path &target);
// A 100-point page showing a side x side 1-bit JBIG2 image: one generic region of the whole
// page, which the decoder works through pixel by pixel (for minutes at 30000) whatever the
// data says, never looking at the reader's abort flag.
void write_jbig2_pdf(const std::filesystem::path &target, std::uint32_t side);

// An indirect stream object's body: "<< entries /Length N >> stream ... endstream".
std::string stream_object(const std::string &entries, const std::string &data);

// A Form XObject (full page BBox) whose content is `content`, drawing the forms `names`
// refer to: resources "/XObject << /NAME N 0 R ... >>".
std::string form_object(const std::string &content, const std::string &xobject_entries);

// A form that draws itself.
void write_self_drawing_form_pdf(const std::filesystem::path &target);
// Two forms that draw each other.
void write_mutual_forms_pdf(const std::filesystem::path &target);
// `levels` forms, each drawing the next one twice: 2^levels fills of the last.
void write_doubling_forms_pdf(const std::filesystem::path &target, int levels);
// A chain of `depth` forms, each drawing the next once.
void write_nested_forms_pdf(const std::filesystem::path &target, int depth);
// `depth` nested q ... Q around one fill.
void write_nested_saves_pdf(const std::filesystem::path &target, int depth);
// Arrays nested `depth` deep, in the page dictionary and as an operand in the content stream.
void write_nested_arrays_pdf(const std::filesystem::path &target, int depth);
// A page `width_pt` points wide, with a line of text.
void write_wide_page_pdf(const std::filesystem::path &target, double width_pt);
// A page showing an RGB image that claims width x height pixels and holds three bytes.
void write_image_bomb_pdf(const std::filesystem::path &target, int width, int height);

// An 8-bit grey TIFF whose header claims width x height pixels; the file holds 16 bytes of
// image data.
void write_tiff_header_only(const std::filesystem::path &target, std::uint32_t width,
                            std::uint32_t height);

// A file of these bytes, parent folders made.
void write_text_file(const std::filesystem::path &target, const std::string &text);

} // namespace qf::test
