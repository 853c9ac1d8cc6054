// SPDX-License-Identifier: GPL-3.0-or-later
#include "settings/base64.h"

#include <cstdint>

namespace qf::settings {
namespace {

constexpr std::string_view kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

int sextet_of(char c)
{
    if (c >= 'A' && c <= 'Z') {
        return c - 'A';
    }
    if (c >= 'a' && c <= 'z') {
        return c - 'a' + 26;
    }
    if (c >= '0' && c <= '9') {
        return c - '0' + 52;
    }
    if (c == '+') {
        return 62;
    }
    if (c == '/') {
        return 63;
    }
    return -1;
}

} // namespace

std::string encode_base64(std::string_view bytes)
{
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    std::size_t i = 0;
    for (; i + 3 <= bytes.size(); i += 3) {
        const std::uint32_t group = static_cast<std::uint8_t>(bytes[i]) << 16 |
                                    static_cast<std::uint8_t>(bytes[i + 1]) << 8 |
                                    static_cast<std::uint8_t>(bytes[i + 2]);
        text += kAlphabet[group >> 18 & 63];
        text += kAlphabet[group >> 12 & 63];
        text += kAlphabet[group >> 6 & 63];
        text += kAlphabet[group & 63];
    }
    const std::size_t rest = bytes.size() - i;
    if (rest > 0) {
        std::uint32_t group = static_cast<std::uint8_t>(bytes[i]) << 16;
        if (rest == 2) {
            group |= static_cast<std::uint8_t>(bytes[i + 1]) << 8;
        }
        text += kAlphabet[group >> 18 & 63];
        text += kAlphabet[group >> 12 & 63];
        text += rest == 2 ? kAlphabet[group >> 6 & 63] : '=';
        text += '=';
    }
    return text;
}

std::string decode_base64(std::string_view text)
{
    std::string bytes;
    std::uint32_t bits = 0;
    int bit_count = 0;
    for (const char c : text) {
        if (c == '=') {
            break;
        }
        const int sextet = sextet_of(c);
        if (sextet < 0) {
            continue;
        }
        bits = (bits << 6 | static_cast<std::uint32_t>(sextet)) & 0xFFFFFF;
        bit_count += 6;
        if (bit_count >= 8) {
            bit_count -= 8;
            bytes += static_cast<char>(bits >> bit_count & 0xFF);
        }
    }
    return bytes;
}

} // namespace qf::settings
