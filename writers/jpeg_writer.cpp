// SPDX-License-Identifier: GPL-3.0-or-later
#include "writers/jpeg_writer.h"

#include <algorithm>
#include <cerrno>
#include <csetjmp>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <jpeglib.h>

#include "engine/error.h"
#include "engine/file_ops.h"
#include "engine/text_rules.h"
#include "writers/jpeg_progressive_coder.h"
#include "writers/picture_checks.h"

namespace qf::writers {
namespace {

// libjpeg reports a fatal error by calling error_exit, which must not return. We jump back to
// the encoding function, whose frame holds no C++ object with a destructor, and keep the
// library's message for the thrown reason. Warnings are kept quiet.
struct JpegFailure {
    jpeg_error_mgr manager;
    std::jmp_buf jump;
    char message[JMSG_LENGTH_MAX];
};

void on_error_exit(j_common_ptr cinfo)
{
    auto* failure = reinterpret_cast<JpegFailure*>(cinfo->err);
    (*cinfo->err->format_message)(cinfo, failure->message);
    std::longjmp(failure->jump, 1);
}

void on_output_message(j_common_ptr) {}

struct EncodeSettings {
    int quality;
    unsigned density;
};

// Encodes packed RGB rows into `file`. Returns false with `failure.message` filled when the
// library gives up. Only plain C data lives in this frame, so the long jump skips nothing.
bool encode_rgb(std::FILE* file, const std::uint8_t* pixels, int width, int height,
                const EncodeSettings& settings, JpegFailure& failure)
{
    jpeg_compress_struct cinfo;
    cinfo.err = jpeg_std_error(&failure.manager);
    failure.manager.error_exit = on_error_exit;
    failure.manager.output_message = on_output_message;
    failure.message[0] = '\0';
    if (setjmp(failure.jump) != 0) {
        jpeg_destroy_compress(&cinfo);
        return false;
    }
    jpeg_create_compress(&cinfo);
    jpeg_stdio_dest(&cinfo, file);
    cinfo.image_width = static_cast<JDIMENSION>(width);
    cinfo.image_height = static_cast<JDIMENSION>(height);
    cinfo.input_components = 3;
    cinfo.in_color_space = JCS_RGB;
    jpeg_set_defaults(&cinfo);
    jpeg_set_quality(&cinfo, settings.quality, TRUE);
    jpeg_simple_progression(&cinfo);
    cinfo.write_JFIF_header = TRUE;
    cinfo.density_unit = 1; // dots per inch
    cinfo.X_density = static_cast<UINT16>(settings.density);
    cinfo.Y_density = static_cast<UINT16>(settings.density);
    jpeg_start_compress(&cinfo, TRUE);
    use_fast_progressive_coder(cinfo);
    const std::size_t stride = static_cast<std::size_t>(width) * 3;
    while (cinfo.next_scanline < cinfo.image_height) {
        JSAMPROW row = const_cast<JSAMPROW>(pixels + stride * cinfo.next_scanline);
        jpeg_write_scanlines(&cinfo, &row, 1);
    }
    jpeg_finish_compress(&cinfo);
    jpeg_destroy_compress(&cinfo);
    return true;
}

void write_file(const engine::PagePicture& rgb, const std::filesystem::path& temp,
                const EncodeSettings& settings, const std::filesystem::path& target)
{
    std::FILE* file = std::fopen(temp.c_str(), "wb");
    if (file == nullptr) {
        throw engine::Error(engine::ErrorKind::Output, std::strerror(errno), target);
    }
    JpegFailure failure;
    const bool encoded =
        encode_rgb(file, rgb.pixels.data(), rgb.width, rgb.height, settings, failure);
    const bool write_failed = std::ferror(file) != 0;
    const bool close_failed = std::fclose(file) != 0;
    const std::string close_reason = close_failed ? std::strerror(errno) : "";
    if (!encoded) {
        throw engine::Error(engine::ErrorKind::Output, failure.message, target);
    }
    if (close_failed) {
        throw engine::Error(engine::ErrorKind::Output, close_reason, target);
    }
    if (write_failed) {
        throw engine::Error(engine::ErrorKind::Output, "the file could not be written completely",
                            target);
    }
}

} // namespace

void write_jpeg(const engine::PagePicture& picture, const std::filesystem::path& target,
                const engine::PageWriteContext& context)
{
    check_picture(picture, target);
    engine::PagePicture expanded;
    const engine::PagePicture& rgb = rgb_pixels(picture, expanded);
    const EncodeSettings settings{
        std::clamp(engine::whole_val(context.snapshot.mjpgquality), 1, 100),
        static_cast<unsigned>(std::clamp(context.snapshot.thedpi, 1, 65535)),
    };
    engine::write_atomically(target, [&](const std::filesystem::path& temp) {
        write_file(rgb, temp, settings, target);
    });
}

} // namespace qf::writers
