// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "engine/page.h"
#include "tests/support/process.h"     // run_program
#include "tests/support/temp_folder.h" // OutputFolder

// Decoders of the picture files the writers make, and small pictures to feed them, for tests.
// Every reader throws std::runtime_error when the file cannot be decoded.
namespace qf::test {

// Decoded pixels: 8 bits a sample, samples interleaved, rows packed.
struct DecodedImage {
    int width = 0, height = 0, components = 0;
    std::vector<std::uint8_t> samples;

    // The pixel at (x, y) as R, G, B; a one-component image gives its grey three times.
    std::array<std::uint8_t, 3> rgb_at(int x, int y) const;
};

struct JpegFile {
    DecodedImage image;
    bool progressive = false;
    bool jfif = false;
    int density_unit = 0; // 0 none, 1 dots per inch, 2 dots per centimetre
    int x_density = 0, y_density = 0;
};
JpegFile read_jpeg(const std::filesystem::path& file);

struct PngFile {
    DecodedImage image; // 8-bit RGB whatever the file holds
};
PngFile read_png(const std::filesystem::path& file);

// One image (directory) of a TIFF file. Text tags are absent when the file lacks them.
struct TiffImage {
    int width = 0, height = 0, compression = 0, photometric = -1, bits_per_sample = 0,
        samples_per_pixel = 0, planar_config = 0, fill_order = 0;
    std::uint32_t rows_per_strip = 0;
    float x_resolution = 0, y_resolution = 0;
    int resolution_unit = 0;
    std::optional<std::string> software, copyright, document_name;
    DecodedImage image; // 8-bit RGB through libtiff's RGBA reader, top row first
    std::vector<std::uint16_t> samples16; // a contiguous 16-bit strip image's raw samples
};
std::vector<TiffImage> read_tiff(const std::filesystem::path& file);

// A picture to write, its colour a function of the pixel.
engine::PagePicture
make_rgb_picture(int width, int height,
                 const std::function<std::array<std::uint8_t, 3>(int x, int y)>& colour);


} // namespace qf::test
