// SPDX-License-Identifier: GPL-3.0-or-later
#include "engine/error.h"

namespace qf::engine {
namespace {

std::string describe(const std::string& message, const std::filesystem::path& file, int page)
{
    std::string text;
    if (!file.empty()) {
        text = file.filename().string();
        if (page > 0) {
            text += " (page " + std::to_string(page) + ")";
        }
        text += ": ";
    }
    return text + message;
}

} // namespace

Error::Error(ErrorKind kind, std::string message, std::filesystem::path file, int page)
    : std::runtime_error(describe(message, file, page)), kind_(kind), file_(std::move(file)),
      page_(page), reason_(std::move(message))
{
}

} // namespace qf::engine
