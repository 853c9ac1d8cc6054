// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>
#include <string_view>

// The Base64 of profile passwords: standard alphabet, "=" padding, no line breaks.
namespace qf::settings {

std::string encode_base64(std::string_view bytes);

// Decodes leniently, as a user's hand-edited profile needs: characters outside the alphabet
// (blanks, line ends) are skipped, decoding stops at the first "=", and bits of an unfinished
// last byte are dropped. Never fails.
std::string decode_base64(std::string_view text);

} // namespace qf::settings
