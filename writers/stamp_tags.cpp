// SPDX-License-Identifier: GPL-3.0-or-later
#include "writers/stamp_tags.h"

#include <cmath>
#include <cstdlib>
#include <regex>
#include <string_view>
#include <vector>

#include "engine/text_rules.h"
#include "engine/version.h"

namespace qf::writers {
namespace {

constexpr double kMaxUnsigned = 4294967295.0;

// A number's text may end in one line end, as the readers of these conventions allow.
std::string_view without_final_line_end(std::string_view text)
{
    if (!text.empty() && text.back() == '\n') {
        text.remove_suffix(1);
    }
    return text;
}

bool matches(std::string_view text, const std::regex& pattern)
{
    const std::string_view body = without_final_line_end(text);
    return std::regex_match(body.begin(), body.end(), pattern);
}

const std::regex kDecimal(R"([+-]?(?=\d|\.\d)\d*(\.\d*)?([Ee][+-]?\d+)?)");
const std::regex kCommaDecimal(R"([+-]?(?=\d|,\d)\d*(,\d*)?([Ee][+-]?\d+)?)");
const std::regex kWhole(R"([+-]?\d+)");
const std::regex kHex(R"((0[xX])?[0-9a-fA-F]{1,8})");
const std::regex kFraction(R"(([-+]?\d+)/(\d+))");

// The decimal number a text spells, with a comma accepted for the point.
std::optional<double> decimal_value(std::string_view text)
{
    std::string body(without_final_line_end(text));
    if (!matches(body, kDecimal)) {
        if (!matches(body, kCommaDecimal)) {
            return std::nullopt;
        }
        for (char& c : body) {
            c = c == ',' ? '.' : c;
        }
    }
    return std::strtod(body.c_str(), nullptr);
}

std::uint32_t low_32_bits(std::string_view digits)
{
    std::uint64_t value = 0;
    for (const char c : digits) {
        if (c >= '0' && c <= '9') {
            value = value * 10 + static_cast<std::uint64_t>(c - '0');
        }
    }
    return static_cast<std::uint32_t>(value);
}

// The nearest fraction by continued fractions, stopping at a relative error below 1e-8;
// numerator and denominator stay within 32 bits.
Rational rationalize(double value)
{
    if (value == 0) {
        return {0, 1};
    }
    std::vector<double> terms; // latest first
    double fraction = value;
    double numerator = 0;
    double denominator = 0;
    bool found = false;
    for (;;) {
        double n = std::trunc(fraction + 0.5);
        double d = 1;
        for (const double term : terms) {
            const double next = term * n + d;
            d = n;
            n = next;
        }
        if (n > kMaxUnsigned || d > kMaxUnsigned) {
            if (found) {
                break;
            }
            return value < 1 ? Rational{1, 0xffffffffu} : Rational{0xffffffffu, 1};
        }
        numerator = n;
        denominator = d;
        found = true;
        if (std::fabs((n / d - value) / value) < 1e-8) {
            break;
        }
        const double whole = std::trunc(fraction);
        terms.insert(terms.begin(), whole);
        fraction -= whole;
        if (fraction == 0) {
            break;
        }
        fraction = 1 / fraction;
    }
    return {static_cast<std::uint32_t>(numerator), static_cast<std::uint32_t>(denominator)};
}

// The EXIF rational of the resolution text; empty when the text is not an unsigned number.
std::optional<Rational> resolution_rational(std::string_view text)
{
    if (const auto value = decimal_value(text)) {
        if (*value < 0) {
            return std::nullopt;
        }
        return rationalize(*value);
    }
    const std::string_view body = without_final_line_end(text);
    if (body == "inf") {
        return Rational{1, 0};
    }
    if (body == "undef") {
        return Rational{0, 0};
    }
    std::match_results<std::string_view::const_iterator> parts;
    if (std::regex_match(body.begin(), body.end(), parts, kFraction) && parts[1].str()[0] != '-') {
        return Rational{low_32_bits(parts[1].str()), low_32_bits(parts[2].str())};
    }
    return std::nullopt;
}

// The JFIF density of the resolution text, read as a 16-bit whole number.
std::optional<std::uint16_t> jfif_density(std::string_view text)
{
    double value = 0;
    if (matches(text, kWhole)) {
        value = std::strtod(std::string(without_final_line_end(text)).c_str(), nullptr);
    } else if (matches(text, kHex)) {
        value = static_cast<double>(
            std::strtoull(std::string(without_final_line_end(text)).c_str(), nullptr, 16));
    } else if (const auto decimal = decimal_value(text)) {
        value = std::trunc(*decimal + (*decimal < 0 ? -0.5 : 0.5));
    } else {
        return std::nullopt;
    }
    if (value < 0 || value > 65535) {
        return std::nullopt;
    }
    return static_cast<std::uint16_t>(value);
}

bool is_ascii_space(char c)
{
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v';
}

// EXIF Copyright holds the photographer's notice, a zero byte and the editor's notice: the
// first line break (with the blanks around it) becomes that zero byte.
std::string copyright_bytes(const std::string& text)
{
    const std::size_t line_end = text.find_first_of("\r\n");
    if (line_end == std::string::npos) {
        return text + '\0';
    }
    std::size_t first_end = line_end;
    while (first_end > 0 && is_ascii_space(text[first_end - 1])) {
        --first_end;
    }
    std::size_t second = line_end;
    while (second < text.size() && is_ascii_space(text[second])) {
        ++second;
    }
    const std::string photographer = text.substr(0, first_end);
    const std::string editor = text.substr(second);
    if (editor.empty()) {
        return photographer + '\0';
    }
    return (photographer.empty() ? std::string(" ") : photographer) + '\0' + editor + '\0';
}

// Length of the well-formed UTF-8 sequence at `at`, or 0 when the byte there starts none.
std::size_t utf8_sequence_length(const std::string& text, std::size_t at)
{
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char lead = byte(at);
    if (lead < 0xc2 || lead >= 0xf8) {
        return 0;
    }
    const std::size_t tail = lead < 0xe0 ? 1 : lead < 0xf0 ? 2 : 3;
    if (at + tail >= text.size()) {
        return 0;
    }
    for (std::size_t i = 1; i <= tail; ++i) {
        if ((byte(at + i) & 0xc0) != 0x80) {
            return 0;
        }
    }
    const unsigned char second = byte(at + 1);
    if (tail == 2 &&
        ((lead == 0xe0 && (second & 0xe0) == 0x80) || (lead == 0xed && (second & 0xe0) == 0xa0) ||
         (lead == 0xef && second == 0xbf && (byte(at + 2) & 0xfe) == 0xbe))) {
        return 0; // overlong, a surrogate, or U+FFFE and U+FFFF
    }
    if (tail == 3 && ((lead == 0xf0 && (second & 0xf0) == 0x80) ||
                      (lead == 0xf4 && second > 0x8f) || lead > 0xf4)) {
        return 0;
    }
    return tail + 1;
}

// An XMP text value: control characters XML cannot hold become ".", bytes that are not
// UTF-8 "?", and the XML specials are escaped.
std::string xmp_text(const std::string& text)
{
    std::string result;
    result.reserve(text.size() + 16);
    for (std::size_t i = 0; i < text.size();) {
        const auto c = static_cast<unsigned char>(text[i]);
        if (c >= 0x80) {
            const std::size_t length = utf8_sequence_length(text, i);
            if (length == 0) {
                result += '?';
                ++i;
            } else {
                result.append(text, i, length);
                i += length;
            }
            continue;
        }
        switch (c) {
        case '&': result += "&amp;"; break;
        case '<': result += "&lt;"; break;
        case '>': result += "&gt;"; break;
        case '\'': result += "&#39;"; break;
        case '"': result += "&quot;"; break;
        default: result += (c < 0x20 && c != '\t' && c != '\n' && c != '\r') ? '.' : text[i];
        }
        ++i;
    }
    return result;
}

std::string xmp_packet(const std::string& author)
{
    std::string packet = "<?xpacket begin='\xef\xbb\xbf' id='W5M0MpCehiHzreSzNTczkc9d'?>\n"
                         "<x:xmpmeta xmlns:x='adobe:ns:meta/' x:xmptk='";
    packet += xmp_text(std::string("Quirefold v") + engine::kLongVersion);
    packet += "'>\n"
              "<rdf:RDF xmlns:rdf='http://www.w3.org/1999/02/22-rdf-syntax-ns#'>\n"
              "\n"
              " <rdf:Description rdf:about=''\n"
              "  xmlns:pdf='http://ns.adobe.com/pdf/1.3/'>\n"
              "  <pdf:Author>";
    packet += xmp_text(author);
    packet += "</pdf:Author>\n"
              " </rdf:Description>\n"
              "</rdf:RDF>\n"
              "</x:xmpmeta>\n";
    // Room for an editor to add to the packet in place.
    const std::string blank_line = std::string(100, ' ') + "\n";
    for (int line = 0; line < 24; ++line) {
        packet += blank_line;
    }
    packet += "<?xpacket end='w'?>";
    return packet;
}

} // namespace

StampTags stamp_tags(const engine::StampRequest& request)
{
    StampTags tags;
    if (request.dots_per_inch.empty()) {
        tags.resolution = StampTags::Resolution::Remove;
    } else if (const auto rational = resolution_rational(request.dots_per_inch)) {
        tags.resolution = StampTags::Resolution::Set;
        tags.resolution_value = *rational;
    }
    if (!request.dots_per_inch.empty()) {
        tags.jfif_density = jfif_density(request.dots_per_inch);
    }
    const std::string copyright = engine::trim(request.copyright);
    if (!copyright.empty()) {
        tags.copyright = copyright_bytes(engine::santitext(copyright));
    }
    const std::string author = engine::trim(request.author);
    if (!author.empty()) {
        tags.artist = engine::santitext(author);
        tags.xmp_packet = xmp_packet(*tags.artist);
    }
    return tags;
}

} // namespace qf::writers
