// SPDX-License-Identifier: GPL-3.0-or-later
#include "writers/exif_stamper.h"

#include <cstdio>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "engine/error.h"
#include "engine/file_ops.h"
#include "writers/stamp_tags.h"

namespace qf::writers {
namespace {

namespace fs = std::filesystem;

enum TiffType : std::uint16_t { kByte = 1, kAscii = 2, kShort = 3, kLong = 4, kRational = 5 };

enum Tag : std::uint16_t {
    kXResolution = 0x11a,
    kYResolution = 0x11b,
    kResolutionUnit = 0x128,
    kArtist = 0x13b,
    kYCbCrPositioning = 0x213,
    kXmp = 0x2bc,
    kCopyright = 0x8298,
};

// One directory entry. `field` is the entry's last four bytes as found in a file (a value or
// an offset), kept as they are; `data` is a new value, laid out when the directory is.
struct Entry {
    std::uint16_t tag = 0;
    std::uint16_t type = 0;
    std::uint32_t count = 0;
    std::optional<std::string> field;
    std::string data;
};

class Bytes {
public:
    explicit Bytes(bool big_endian) : big_(big_endian) {}
    void put16(std::string& out, std::uint32_t value) const { put(out, value, 2); }
    void put32(std::string& out, std::uint32_t value) const { put(out, value, 4); }
    std::uint32_t get(std::string_view in, std::size_t at, int size) const
    {
        std::uint32_t value = 0;
        for (int i = 0; i < size; ++i) {
            const auto byte = static_cast<unsigned char>(in[at + (big_ ? i : size - 1 - i)]);
            value = (value << 8) | byte;
        }
        return value;
    }

private:
    void put(std::string& out, std::uint32_t value, int size) const
    {
        for (int i = 0; i < size; ++i) {
            const int shift = 8 * (big_ ? size - 1 - i : i);
            out += static_cast<char>((value >> shift) & 0xff);
        }
    }
    bool big_;
};

Entry new_entry(const Bytes& bytes, std::uint16_t tag, std::uint16_t type, std::uint32_t count,
                std::string data, std::uint32_t inline_short = 0)
{
    Entry entry{tag, type, count, std::nullopt, std::move(data)};
    if (type == kShort) {
        bytes.put16(entry.data, inline_short);
    }
    return entry;
}

std::string rational_bytes(const Bytes& bytes, Rational value)
{
    std::string data;
    bytes.put32(data, value.numerator);
    bytes.put32(data, value.denominator);
    return data;
}

// Replaces, adds or (with no value) removes an entry, keeping the tags in ascending order.
void set_entry(std::vector<Entry>& entries, std::uint16_t tag, std::optional<Entry> entry)
{
    auto at = entries.begin();
    while (at != entries.end() && at->tag < tag) {
        ++at;
    }
    if (at != entries.end() && at->tag == tag) {
        at = entries.erase(at);
    }
    if (entry) {
        entries.insert(at, std::move(*entry));
    }
}

// Sets the entries of the stamp; `mandatory` also gives a new EXIF block the tags every
// first directory carries.
void apply_stamp(const Bytes& bytes, const StampTags& tags, std::vector<Entry>& entries,
                 bool mandatory)
{
    using Resolution = StampTags::Resolution;
    if (tags.resolution == Resolution::Remove) {
        set_entry(entries, kXResolution, std::nullopt);
        set_entry(entries, kYResolution, std::nullopt);
    } else if (tags.resolution == Resolution::Set || mandatory) {
        const Rational value =
            tags.resolution == Resolution::Set ? tags.resolution_value : Rational{72, 1};
        set_entry(entries, kXResolution,
                  new_entry(bytes, kXResolution, kRational, 1, rational_bytes(bytes, value)));
        set_entry(entries, kYResolution,
                  new_entry(bytes, kYResolution, kRational, 1, rational_bytes(bytes, value)));
    }
    if (mandatory) {
        set_entry(entries, kResolutionUnit, new_entry(bytes, kResolutionUnit, kShort, 1, {}, 2));
        set_entry(entries, kYCbCrPositioning,
                  new_entry(bytes, kYCbCrPositioning, kShort, 1, {}, 1));
    }
    if (tags.artist) {
        const std::string value = *tags.artist + '\0';
        set_entry(
            entries, kArtist,
            new_entry(bytes, kArtist, kAscii, static_cast<std::uint32_t>(value.size()), value));
    }
    if (tags.copyright) {
        set_entry(entries, kCopyright,
                  new_entry(bytes, kCopyright, kAscii,
                            static_cast<std::uint32_t>(tags.copyright->size()), *tags.copyright));
    }
}

// A directory placed at `offset`, followed by the values that do not fit in their entries.
std::string directory_bytes(const Bytes& bytes, const std::vector<Entry>& entries,
                            std::uint32_t offset, std::uint32_t next_directory)
{
    std::string directory;
    std::string values;
    const std::size_t values_start = offset + 2 + entries.size() * 12 + 4;
    bytes.put16(directory, static_cast<std::uint32_t>(entries.size()));
    for (const Entry& entry : entries) {
        bytes.put16(directory, entry.tag);
        bytes.put16(directory, entry.type);
        bytes.put32(directory, entry.count);
        if (entry.field) {
            directory += *entry.field;
        } else if (entry.data.size() <= 4) {
            directory += entry.data + std::string(4 - entry.data.size(), '\0');
        } else {
            bytes.put32(directory, static_cast<std::uint32_t>(values_start + values.size()));
            values += entry.data;
            if (values.size() % 2 != 0) {
                values += '\0';
            }
        }
    }
    bytes.put32(directory, next_directory);
    return directory + values;
}

std::optional<std::string> read_whole(const fs::path& file)
{
    std::ifstream in(file, std::ios::binary);
    if (!in) {
        return std::nullopt;
    }
    std::string content((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (in.bad()) {
        return std::nullopt;
    }
    return content;
}

void write_bytes(const fs::path& temp, std::string_view content, const fs::path& target)
{
    std::FILE* out = std::fopen(temp.c_str(), "wb");
    if (out == nullptr) {
        throw engine::Error(engine::ErrorKind::Output, "cannot be written", target);
    }
    const bool written = std::fwrite(content.data(), 1, content.size(), out) == content.size();
    if (std::fclose(out) != 0 || !written) {
        throw engine::Error(engine::ErrorKind::Output, "cannot be written", target);
    }
}

// ---- JPEG

std::string jpeg_segment(std::uint8_t marker, std::string_view payload)
{
    std::string segment = {'\xff', static_cast<char>(marker)};
    Bytes(true).put16(segment, static_cast<std::uint32_t>(payload.size() + 2));
    return segment.append(payload);
}

constexpr std::string_view kExifHeader("Exif\0\0", 6);
constexpr std::string_view kXmpHeader("http://ns.adobe.com/xap/1.0/\0", 29);

std::optional<std::string> stamped_jpeg(const std::string& file, const StampTags& tags)
{
    if (file.size() < 4 || file.compare(0, 2, "\xff\xd8") != 0) {
        return std::nullopt;
    }
    std::string head = file.substr(0, 2);
    std::string kept;
    std::size_t at = 2;
    for (;;) {
        if (at + 4 > file.size() || file[at] != '\xff') {
            return std::nullopt;
        }
        const auto marker = static_cast<std::uint8_t>(file[at + 1]);
        if (marker < 0xe0 || marker > 0xef) {
            break; // the first segment that is not application data
        }
        const std::size_t length = Bytes(true).get(file, at + 2, 2);
        if (length < 2 || at + 2 + length > file.size()) {
            return std::nullopt;
        }
        std::string segment = file.substr(at, 2 + length);
        const std::string_view payload = std::string_view(segment).substr(4);
        if (marker == 0xe0 && at == 2 && payload.size() >= 14 &&
            payload.substr(0, 5) == std::string_view("JFIF\0", 5)) {
            if (tags.jfif_density) {
                std::string density;
                Bytes(true).put16(density, *tags.jfif_density);
                segment.replace(4 + 8, 2, density);
                segment.replace(4 + 10, 2, density);
            }
            head += segment;
        } else if (!(marker == 0xe1 &&
                     (payload.starts_with(kExifHeader) || payload.starts_with(kXmpHeader)))) {
            kept += segment;
        }
        at += 2 + length;
    }
    std::string added;
    if (tags.writes_exif()) {
        const Bytes bytes(true);
        std::vector<Entry> entries;
        apply_stamp(bytes, tags, entries, true);
        std::string exif(kExifHeader);
        exif += "MM";
        bytes.put16(exif, 42);
        bytes.put32(exif, 8);
        exif += directory_bytes(bytes, entries, 8, 0);
        if (exif.size() > 65533) {
            return std::nullopt;
        }
        added += jpeg_segment(0xe1, exif);
    }
    if (!tags.xmp_packet.empty()) {
        const std::string xmp = std::string(kXmpHeader) + tags.xmp_packet;
        if (xmp.size() > 65533) {
            return std::nullopt;
        }
        added += jpeg_segment(0xe1, xmp);
    }
    return head + added + kept + file.substr(at);
}

// ---- TIFF

std::uint64_t type_size(std::uint16_t type)
{
    switch (type) {
    case 3:
    case 8: return 2; // SHORT, SSHORT
    case 4:
    case 9:
    case 11:
    case 13: return 4; // LONG, SLONG, FLOAT, IFD
    case 5:
    case 10:
    case 12: return 8; // RATIONAL, SRATIONAL, DOUBLE
    default: return 1;
    }
}

struct TiffDirectory {
    bool big_endian = false;
    std::uint32_t offset = 0;
    std::uint32_t next = 0;
    std::vector<Entry> entries;
};

std::optional<TiffDirectory> read_first_directory(std::string_view head, std::uint64_t file_size,
                                                  std::ifstream& in)
{
    if (head.size() < 8 || !(head.starts_with("II") || head.starts_with("MM"))) {
        return std::nullopt;
    }
    TiffDirectory directory;
    directory.big_endian = head[0] == 'M';
    const Bytes bytes(directory.big_endian);
    if (bytes.get(head, 2, 2) != 42) {
        return std::nullopt; // BigTIFF and others are not written by this program
    }
    directory.offset = bytes.get(head, 4, 4);
    if (directory.offset < 8 || directory.offset + 2ULL > file_size) {
        return std::nullopt;
    }
    std::string count_bytes(2, '\0');
    in.seekg(directory.offset);
    in.read(count_bytes.data(), 2);
    const std::uint32_t count = bytes.get(count_bytes, 0, 2);
    std::string table(count * 12 + 4, '\0');
    if (!in || directory.offset + 2ULL + table.size() > file_size ||
        !in.read(table.data(), static_cast<std::streamsize>(table.size()))) {
        return std::nullopt;
    }
    for (std::uint32_t i = 0; i < count; ++i) {
        const std::size_t at = i * 12;
        Entry entry{static_cast<std::uint16_t>(bytes.get(table, at, 2)),
                    static_cast<std::uint16_t>(bytes.get(table, at + 2, 2)),
                    bytes.get(table, at + 4, 4),
                    table.substr(at + 8, 4),
                    {}};
        const std::uint64_t size = std::uint64_t{entry.count} * type_size(entry.type);
        if (size > 4 && bytes.get(*entry.field, 0, 4) + size > file_size) {
            return std::nullopt; // a value beyond the end: the file is cut short
        }
        directory.entries.push_back(std::move(entry));
    }
    directory.next = bytes.get(table, count * 12, 4);
    return directory;
}

bool stamp_tiff(const fs::path& file, const StampTags& tags)
{
    std::error_code error;
    const std::uint64_t size = fs::file_size(file, error);
    std::ifstream in(file, std::ios::binary);
    std::string head(8, '\0');
    if (error || !in || !in.read(head.data(), 8)) {
        return false;
    }
    auto directory = read_first_directory(head, size, in);
    in.close();
    if (!directory) {
        return false;
    }
    const Bytes bytes(directory->big_endian);
    apply_stamp(bytes, tags, directory->entries, false);
    if (!tags.xmp_packet.empty()) {
        set_entry(directory->entries, kXmp,
                  Entry{kXmp, kByte, static_cast<std::uint32_t>(tags.xmp_packet.size()),
                        std::nullopt, tags.xmp_packet});
    }
    const std::uint64_t offset = size + size % 2;
    std::string appended(size % 2, '\0');
    appended += directory_bytes(bytes, directory->entries, static_cast<std::uint32_t>(offset),
                                directory->next);
    if (offset + appended.size() > 0xffffffffULL) {
        return false;
    }
    std::string new_offset;
    bytes.put32(new_offset, static_cast<std::uint32_t>(offset));
    engine::write_atomically(file, [&](const fs::path& temp) {
        fs::copy_file(file, temp, fs::copy_options::overwrite_existing);
        std::FILE* out = std::fopen(temp.c_str(), "r+b");
        if (out == nullptr) {
            throw engine::Error(engine::ErrorKind::Output, "cannot be written", file);
        }
        bool written = std::fseek(out, 0, SEEK_END) == 0 &&
                       std::fwrite(appended.data(), 1, appended.size(), out) == appended.size();
        written = written && std::fseek(out, 4, SEEK_SET) == 0 &&
                  std::fwrite(new_offset.data(), 1, 4, out) == 4;
        if (std::fclose(out) != 0 || !written) {
            throw engine::Error(engine::ErrorKind::Output, "cannot be written", file);
        }
    });
    return true;
}

} // namespace

bool stamp_file(const fs::path& file, const engine::StampRequest& request)
{
    try {
        const StampTags tags = stamp_tags(request);
        std::ifstream in(file, std::ios::binary);
        char magic[2] = {};
        if (!in.read(magic, 2)) {
            return false;
        }
        in.close();
        if (magic[0] == '\xff' && magic[1] == '\xd8') {
            const auto content = read_whole(file);
            const auto stamped = content ? stamped_jpeg(*content, tags) : std::nullopt;
            if (!stamped) {
                return false;
            }
            if (*stamped != *content) {
                engine::write_atomically(
                    file, [&](const fs::path& temp) { write_bytes(temp, *stamped, file); });
            }
            return true;
        }
        if (tags.resolution == StampTags::Resolution::Keep && !tags.copyright && !tags.artist) {
            return true; // nothing to change
        }
        return stamp_tiff(file, tags);
    } catch (const std::exception&) {
        return false;
    }
}

void ExifStamper::updatedpinonstore(const fs::path& file, const engine::StampRequest& request)
{
    stamp_file(file, request);
}

std::unique_ptr<engine::Stamper> make_exif_stamper()
{
    return std::make_unique<ExifStamper>();
}

} // namespace qf::writers
