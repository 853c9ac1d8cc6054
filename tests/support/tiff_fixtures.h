// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/temp_folder.h" // TempFolder

// TIFF documents made on the fly for the tests, with libtiff.
namespace qf::test {

struct Rgb {
    std::uint8_t r, g, b;
    bool operator==(const Rgb&) const = default;
};

enum class TiffKind {
    Rgb,      // 8-bit RGB: the page's colour with a black square in its top-left quarter
    Bilevel,  // 1-bit MinIsWhite: white with the same black square
    BilevelMinIsBlack, // the same picture stored 1-bit MinIsBlack
    Gray16,   // 16-bit grey of the page colour's red value, same black square
    RgbAlpha, // RGB with unassociated alpha: left half opaque colour, right half clear
};

struct TiffPage {
    int width = 64, height = 48;
    TiffKind kind = TiffKind::Rgb;
    std::uint16_t compression = 5; // LZW; 4 for CCITT G4 on bilevel pages
    std::uint16_t fill_order = 1;  // 2: each byte's bits stored least significant first
    bool tiled = false;            // 16 by 16 tiles
    float xres = 0, yres = 0;      // 0: no resolution tags
    std::uint16_t resolution_unit = 2; // inch
    std::string copyright, document_name;
};

// The colour of page `index` (0-based) of an Rgb page.
Rgb page_colour(int index);

// Writes the pages as one TIFF file, parent folders made; throws std::runtime_error when
// libtiff fails.
void make_tiff(const std::filesystem::path& path, const std::vector<TiffPage>& pages);

// An image written with exactly the tags given, for the forms the kinds above do not cover
// (odd bit depths, float samples, CMYK, colour maps, orientations, extra samples).
struct RawTiffImage {
    int width = 1, height = 1;
    std::uint16_t bits_per_sample = 8;
    std::uint16_t samples_per_pixel = 1;
    std::uint16_t photometric = 1;   // MinIsBlack
    std::uint16_t sample_format = 1; // unsigned integer; 3 for IEEE float
    std::uint16_t orientation = 1;   // top-left
    std::vector<std::uint16_t> extra_samples;
    std::vector<std::uint16_t> colour_map; // red, then green, then blue entries
    float xres = 0, yres = 0;              // 0: no resolution tags; inch otherwise
    std::vector<std::uint8_t> data; // rows as the file holds them, each starting on a byte
};

// Writes the images uncompressed as one TIFF file; throws std::runtime_error when libtiff fails.
void make_raw_tiff(const std::filesystem::path& path, const std::vector<RawTiffImage>& images);

// Integer samples, row after row of `per_row`, packed `bits` each (most significant bit first,
// whole bytes in this little-endian machine's order, as libtiff takes them).
std::vector<std::uint8_t> pack_samples(const std::vector<std::uint64_t>& samples, int per_row, int bits);

// A TIFF of `images` 16 x 16 Rgb images, in strips or in 16 x 16 tiles.
void make_tiff(const std::filesystem::path& path, int images, bool tiled = false);

} // namespace qf::test
