// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string_view>

// What the fuzz targets share: fuzzed bytes as a file for readers that open by path, and a
// property check that stops the fuzzer (or fails the replay) when it does not hold.
namespace qf::fuzz {

// The bytes written to `name` in a folder private to this process (created on first use,
// removed at exit). The file is removed when the object goes, so no input outlives its run.
class InputFile
{
  public:
    InputFile(const std::uint8_t *data, std::size_t size, std::string_view name);
    ~InputFile();
    InputFile(const InputFile &) = delete;
    InputFile &operator=(const InputFile &) = delete;

    const std::filesystem::path &path() const { return path_; }

  private:
    std::filesystem::path path_;
};

// The private folder itself, for targets that write files of their own beside the input.
const std::filesystem::path &scratch_folder();

// Aborts with `what` on stderr when `condition` is false: a property of the code under test
// was broken by this input.
void require(bool condition, const char *what);

} // namespace qf::fuzz
