// SPDX-License-Identifier: GPL-3.0-or-later
#include "fuzz/fuzz_support.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <string>

#include "tests/support/temp_folder.h"

namespace qf::fuzz {
namespace fs = std::filesystem;

const fs::path &scratch_folder()
{
    // Removed when the program ends normally.
    static const test::TempFolder folder;
    return folder.path();
}

InputFile::InputFile(const std::uint8_t *data, std::size_t size, std::string_view name)
    : path_(scratch_folder() / name)
{
    std::ofstream out(path_, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char *>(data), static_cast<std::streamsize>(size));
    out.close();
    if (!out) {
        std::fprintf(stderr, "qf-fuzz: cannot write %s\n", path_.c_str());
        std::abort();
    }
}

InputFile::~InputFile()
{
    std::error_code ignored;
    fs::remove(path_, ignored);
}

void require(bool condition, const char *what)
{
    if (!condition) {
        std::fprintf(stderr, "qf-fuzz: property broken: %s\n", what);
        std::abort();
    }
}

} // namespace qf::fuzz
