// SPDX-License-Identifier: GPL-3.0-or-later
// Our progressive coder writes the bytes libjpeg's own coder writes, whatever the picture.
#include <cstdint>
#include <cstdlib>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <vector>

#include "writers/jpeg_progressive_coder.h"

extern "C" const int jpeg_natural_order[]; // libjpeg's: natural position of each zigzag index

namespace qf::writers {
namespace {

struct Picture {
    int width;
    int height;
    int components; // 3: RGB, 1: grey
    std::vector<std::uint8_t> samples;
};

// A compression into memory with the library's defaults for its size and components (3: RGB,
// 1: grey).
struct MemoryCompression {
    jpeg_compress_struct cinfo;
    jpeg_error_mgr errors;
    unsigned char* buffer = nullptr;
    unsigned long size = 0;

    MemoryCompression(int width, int height, int components)
    {
        cinfo.err = jpeg_std_error(&errors);
        jpeg_create_compress(&cinfo);
        jpeg_mem_dest(&cinfo, &buffer, &size);
        cinfo.image_width = static_cast<JDIMENSION>(width);
        cinfo.image_height = static_cast<JDIMENSION>(height);
        cinfo.input_components = components;
        cinfo.in_color_space = components == 3 ? JCS_RGB : JCS_GRAYSCALE;
        jpeg_set_defaults(&cinfo);
    }
    ~MemoryCompression()
    {
        jpeg_destroy_compress(&cinfo);
        std::free(buffer);
    }
    MemoryCompression(const MemoryCompression&) = delete;
    MemoryCompression& operator=(const MemoryCompression&) = delete;

    // Ends the compression; the file's bytes.
    std::vector<std::uint8_t> finish()
    {
        jpeg_finish_compress(&cinfo);
        return {buffer, buffer + size};
    }
};

// Encodes as the JPEG writer does, with libjpeg's coder or ours.
std::vector<std::uint8_t> encode(const Picture& picture, int quality, bool ours)
{
    MemoryCompression compression(picture.width, picture.height, picture.components);
    jpeg_compress_struct& cinfo = compression.cinfo;
    jpeg_set_quality(&cinfo, quality, TRUE);
    jpeg_simple_progression(&cinfo);
    jpeg_start_compress(&cinfo, TRUE);
    if (ours) {
        EXPECT_TRUE(use_fast_progressive_coder(cinfo));
    }
    const std::size_t stride = static_cast<std::size_t>(picture.width) * picture.components;
    while (cinfo.next_scanline < cinfo.image_height) {
        JSAMPROW row = const_cast<JSAMPROW>(picture.samples.data() + stride * cinfo.next_scanline);
        jpeg_write_scanlines(&cinfo, &row, 1);
    }
    return compression.finish();
}

enum class Kind { Text, Noise, Speckle, Gradient, White };

Picture make(Kind kind, int width, int height, int components)
{
    Picture picture{width, height, components, {}};
    picture.samples.assign(static_cast<std::size_t>(width) * height * components, 255);
    std::mt19937 random(7);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            for (int c = 0; c < components; ++c) {
                auto& sample = picture.samples[(static_cast<std::size_t>(y) * width + x) * components + c];
                switch (kind) {
                case Kind::Text: // strokes of glyph size, grey at their edges, a coloured rule
                    if ((x / 3) % 4 == 0 && (y % 24) < 14) {
                        sample = static_cast<std::uint8_t>((x % 3 == 1) ? 0 : 128);
                    } else if (y % 97 == 90) {
                        sample = static_cast<std::uint8_t>(c == 0 ? 200 : 30);
                    }
                    break;
                case Kind::Noise:
                    sample = static_cast<std::uint8_t>(random());
                    break;
                case Kind::Speckle: // a few dark dots on white: small, scattered coefficients
                    if (random() % 61 == 0) {
                        sample = static_cast<std::uint8_t>(random() % 200);
                    }
                    break;
                case Kind::Gradient:
                    sample = static_cast<std::uint8_t>((x * 255 / std::max(1, width - 1) + y * (c + 1)) & 0xFF);
                    break;
                case Kind::White:
                    break;
                }
            }
        }
    }
    return picture;
}

TEST(JpegProgressiveCoder, WritesTheBytesOfLibjpegsOwnCoder)
{
    const struct {
        const char* name;
        Kind kind;
        int width, height, components;
        std::vector<int> qualities;
    } cases[] = {
        {"text", Kind::Text, 613, 409, 3, {10, 75, 100}},
        {"noise", Kind::Noise, 200, 150, 3, {10, 75, 100}},
        {"speckle", Kind::Speckle, 320, 240, 3, {50, 75, 100}},
        {"gradient", Kind::Gradient, 257, 131, 3, {75, 100}},
        {"one pixel", Kind::Noise, 1, 1, 3, {75}},
        {"edge blocks", Kind::Text, 17, 9, 3, {75}},
        {"grey text", Kind::Text, 301, 203, 1, {75}},
        // Over 32,767 empty blocks in one scan: the EOB run is cut at its largest count.
        {"white, EOB run cut", Kind::White, 1600, 1600, 3, {75}},
        {"speckle, long runs", Kind::Speckle, 1700, 1300, 3, {100}},
    };
    for (const auto& c : cases) {
        const Picture picture = make(c.kind, c.width, c.height, c.components);
        for (const int quality : c.qualities) {
            SCOPED_TRACE(std::string(c.name) + " at quality " + std::to_string(quality));
            const auto theirs = encode(picture, quality, false);
            const auto ours = encode(picture, quality, true);
            ASSERT_EQ(ours.size(), theirs.size());
            EXPECT_TRUE(ours == theirs);
        }
    }
}

// Coefficients chosen block by block, for the cases a picture reaches only by chance.
using BlockMaker = void (*)(JCOEF* block, std::mt19937& random);

// Encodes a grey picture of 48 x 40 blocks from coefficients given in zigzag order, with
// libjpeg's coder or ours.
std::vector<std::uint8_t> encode_coefficients(BlockMaker make_block, bool ours)
{
    constexpr int kBlocksWide = 48;
    constexpr int kBlocksHigh = 40;
    MemoryCompression compression(kBlocksWide * 8, kBlocksHigh * 8, 1);
    jpeg_compress_struct& cinfo = compression.cinfo;
    jpeg_simple_progression(&cinfo);
    jvirt_barray_ptr arrays[1] = {(*cinfo.mem->request_virt_barray)(reinterpret_cast<j_common_ptr>(&cinfo), JPOOL_IMAGE,
                                                                    TRUE, kBlocksWide, kBlocksHigh, kBlocksHigh)};
    (*cinfo.mem->realize_virt_arrays)(reinterpret_cast<j_common_ptr>(&cinfo));
    std::mt19937 random(11);
    for (JDIMENSION row = 0; row < kBlocksHigh; ++row) {
        JBLOCKARRAY blocks =
            (*cinfo.mem->access_virt_barray)(reinterpret_cast<j_common_ptr>(&cinfo), arrays[0], row, 1, TRUE);
        for (int column = 0; column < kBlocksWide; ++column) {
            JCOEF zigzag[64] = {};
            make_block(zigzag, random);
            for (int k = 0; k < 64; ++k) {
                blocks[0][column][jpeg_natural_order[k]] = zigzag[k];
            }
        }
    }
    jpeg_write_coefficients(&cinfo, arrays);
    if (ours) {
        EXPECT_TRUE(use_fast_progressive_coder(cinfo));
    }
    return compression.finish();
}

JCOEF signed_value(std::mt19937& random, int low, int high)
{
    const int magnitude = low + static_cast<int>(random() % static_cast<unsigned>(high - low + 1));
    return static_cast<JCOEF>(random() % 2 ? magnitude : -magnitude);
}

TEST(JpegProgressiveCoder, WritesLibjpegsBytesForChosenCoefficients)
{
    const struct {
        const char* name;
        BlockMaker make;
    } cases[] = {
        // Only large coefficients: every refinement is a correction bit held with the EOB run,
        // until the bits held would overflow.
        {"correction bits overflow",
         [](JCOEF* block, std::mt19937& random) {
             for (int k = 1; k <= 14; ++k) {
                 block[k] = signed_value(random, 8, 40);
             }
         }},
        // A coefficient refined to one after a run of more than 15 zeros, some with a large
        // coefficient inside the run.
        {"long runs before a newly non-zero coefficient",
         [](JCOEF* block, std::mt19937& random) {
             block[0] = signed_value(random, 0, 300);
             block[1] = signed_value(random, 5, 9);
             if (random() % 3 == 0) {
                 block[10 + random() % 20] = signed_value(random, 6, 12);
             }
             block[34 + random() % 30] = signed_value(random, 1, 1);
         }},
        // The largest values: AC magnitudes of 10 bits, DC steps of 11.
        {"extremes",
         [](JCOEF* block, std::mt19937& random) {
             block[0] = signed_value(random, 900, 1023);
             block[1 + random() % 63] = signed_value(random, 1000, 1023);
             block[63] = signed_value(random, 1, 1023);
         }},
        {"sparse, mixed",
         [](JCOEF* block, std::mt19937& random) {
             block[0] = signed_value(random, 0, 60);
             for (int k = 1; k < 64; ++k) {
                 if (random() % 9 == 0) {
                     block[k] = signed_value(random, 1, random() % 5 == 0 ? 200 : 3);
                 }
             }
         }},
        {"empty", [](JCOEF*, std::mt19937&) {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const auto theirs = encode_coefficients(c.make, false);
        const auto ours = encode_coefficients(c.make, true);
        ASSERT_EQ(ours.size(), theirs.size());
        EXPECT_TRUE(ours == theirs);
    }
}

TEST(JpegProgressiveCoder, LeavesCompressionsItDoesNotCodeToLibjpeg)
{
    const struct {
        const char* name;
        void (*set)(jpeg_compress_struct&);
    } cases[] = {
        {"sequential", [](jpeg_compress_struct&) {}},
        {"restart markers",
         [](jpeg_compress_struct& cinfo) {
             jpeg_simple_progression(&cinfo);
             cinfo.restart_in_rows = 1;
         }},
        {"arithmetic coding",
         [](jpeg_compress_struct& cinfo) {
             jpeg_simple_progression(&cinfo);
             cinfo.arith_code = TRUE;
         }},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        MemoryCompression compression(64, 64, 3);
        c.set(compression.cinfo);
        jpeg_start_compress(&compression.cinfo, TRUE);
        EXPECT_FALSE(use_fast_progressive_coder(compression.cinfo));
    }
}

} // namespace
} // namespace qf::writers
