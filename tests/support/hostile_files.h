// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

// Hostile documents written byte by byte: PDFs whose structure is sound but whose content is
// built to exhaust a reader (loops, exponential or deep nesting, enormous sizes), and TIFFs
// whose header promises what the file cannot hold. Each writer throws std::runtime_error when
// the file cannot be written.
namespace qf::test {

// One page under a chain of `depth` /Pages nodes: a reader that walks the page tree by
// recursion runs out of stack.
void write_deep_page_tree_pdf(const std::filesystem::path &target, int depth);
// A page tree whose only node names itself as its kid.
void write_looping_page_tree_pdf(const std::filesystem::path &target);
// A 100-point page showing a side x side 1-bit JBIG2 image: one generic region of the whole
// page, which the decoder works through pixel by pixel (for minutes at 30000) whatever the
// data says, never looking at the reader's abort flag.
void write_jbig2_pdf(const std::filesystem::path &target, std::uint32_t side);

// `levels` forms, each drawing the next one twice: 2^levels fills of the last.
void write_doubling_forms_pdf(const std::filesystem::path &target, int levels);
// A chain of `depth` forms, each drawing the next once.
void write_nested_forms_pdf(const std::filesystem::path &target, int depth);
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
