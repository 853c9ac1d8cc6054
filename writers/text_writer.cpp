// SPDX-License-Identifier: GPL-3.0-or-later
#include "writers/text_writer.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "engine/error.h"
#include "engine/file_ops.h"

namespace qf::writers {

void write_text(const std::string& text, const std::filesystem::path& target)
{
    engine::write_atomically(target, [&](const std::filesystem::path& temp) {
        std::FILE* file = std::fopen(temp.c_str(), "wb");
        if (file == nullptr) {
            throw engine::Error(engine::ErrorKind::Output, std::strerror(errno));
        }
        const bool written = std::fwrite(text.data(), 1, text.size(), file) == text.size() && std::fflush(file) == 0;
        const int write_error = errno;
        if (std::fclose(file) != 0 || !written) {
            throw engine::Error(engine::ErrorKind::Output, std::strerror(written ? errno : write_error));
        }
    });
}

} // namespace qf::writers
