// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>

namespace qf::engine {

enum class ErrorKind { BadInput, Damaged, Password, Unsupported, Output };

// The one error type of the core. what() reads "scan.tif (page 4): unsupported bit depth 12";
// reason() is the message alone, as the log lines quote it.
class Error : public std::runtime_error {
public:
    Error(ErrorKind kind, std::string message, std::filesystem::path file = {}, int page = 0);

    ErrorKind kind() const noexcept { return kind_; }
    const std::filesystem::path& file() const noexcept { return file_; }
    int page() const noexcept { return page_; }
    const std::string& reason() const noexcept { return reason_; }

private:
    ErrorKind kind_;
    std::filesystem::path file_;
    int page_;
    std::string reason_;
};

} // namespace qf::engine
