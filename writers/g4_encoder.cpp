// SPDX-License-Identifier: GPL-3.0-or-later
#include "writers/g4_encoder.h"

#include <array>
#include <bit>
#include <cstring>

namespace qf::writers {
namespace {

struct Code {
    std::uint16_t bits;
    std::uint8_t length;
};

// The T.4 run-length codes: terminating codes for runs of 0 to 63, then make-up codes for
// multiples of 64 up to 1728, which differ by colour, and 1792 to 2560, which both share.
constexpr Code kWhiteTerminating[64] = {
    {0x35, 8}, {0x07, 6}, {0x07, 4}, {0x08, 4}, {0x0B, 4}, {0x0C, 4}, {0x0E, 4}, {0x0F, 4},
    {0x13, 5}, {0x14, 5}, {0x07, 5}, {0x08, 5}, {0x08, 6}, {0x03, 6}, {0x34, 6}, {0x35, 6},
    {0x2A, 6}, {0x2B, 6}, {0x27, 7}, {0x0C, 7}, {0x08, 7}, {0x17, 7}, {0x03, 7}, {0x04, 7},
    {0x28, 7}, {0x2B, 7}, {0x13, 7}, {0x24, 7}, {0x18, 7}, {0x02, 8}, {0x03, 8}, {0x1A, 8},
    {0x1B, 8}, {0x12, 8}, {0x13, 8}, {0x14, 8}, {0x15, 8}, {0x16, 8}, {0x17, 8}, {0x28, 8},
    {0x29, 8}, {0x2A, 8}, {0x2B, 8}, {0x2C, 8}, {0x2D, 8}, {0x04, 8}, {0x05, 8}, {0x0A, 8},
    {0x0B, 8}, {0x52, 8}, {0x53, 8}, {0x54, 8}, {0x55, 8}, {0x24, 8}, {0x25, 8}, {0x58, 8},
    {0x59, 8}, {0x5A, 8}, {0x5B, 8}, {0x4A, 8}, {0x4B, 8}, {0x32, 8}, {0x33, 8}, {0x34, 8},
};
constexpr Code kBlackTerminating[64] = {
    {0x37, 10}, {0x02, 3},  {0x03, 2},  {0x02, 2},  {0x03, 3},  {0x03, 4},  {0x02, 4},
    {0x03, 5},  {0x05, 6},  {0x04, 6},  {0x04, 7},  {0x05, 7},  {0x07, 7},  {0x04, 8},
    {0x07, 8},  {0x18, 9},  {0x17, 10}, {0x18, 10}, {0x08, 10}, {0x67, 11}, {0x68, 11},
    {0x6C, 11}, {0x37, 11}, {0x28, 11}, {0x17, 11}, {0x18, 11}, {0xCA, 12}, {0xCB, 12},
    {0xCC, 12}, {0xCD, 12}, {0x68, 12}, {0x69, 12}, {0x6A, 12}, {0x6B, 12}, {0xD2, 12},
    {0xD3, 12}, {0xD4, 12}, {0xD5, 12}, {0xD6, 12}, {0xD7, 12}, {0x6C, 12}, {0x6D, 12},
    {0xDA, 12}, {0xDB, 12}, {0x54, 12}, {0x55, 12}, {0x56, 12}, {0x57, 12}, {0x64, 12},
    {0x65, 12}, {0x52, 12}, {0x53, 12}, {0x24, 12}, {0x37, 12}, {0x38, 12}, {0x27, 12},
    {0x28, 12}, {0x58, 12}, {0x59, 12}, {0x2B, 12}, {0x2C, 12}, {0x5A, 12}, {0x66, 12},
    {0x67, 12},
};
constexpr Code kWhiteMakeUp[27] = { // 64 to 1728
    {0x1B, 5}, {0x12, 5}, {0x17, 6}, {0x37, 7}, {0x36, 8}, {0x37, 8}, {0x64, 8},
    {0x65, 8}, {0x68, 8}, {0x67, 8}, {0xCC, 9}, {0xCD, 9}, {0xD2, 9}, {0xD3, 9},
    {0xD4, 9}, {0xD5, 9}, {0xD6, 9}, {0xD7, 9}, {0xD8, 9}, {0xD9, 9}, {0xDA, 9},
    {0xDB, 9}, {0x98, 9}, {0x99, 9}, {0x9A, 9}, {0x18, 6}, {0x9B, 9},
};
constexpr Code kBlackMakeUp[27] = { // 64 to 1728
    {0x0F, 10}, {0xC8, 12}, {0xC9, 12}, {0x5B, 12}, {0x33, 12}, {0x34, 12}, {0x35, 12},
    {0x6C, 13}, {0x6D, 13}, {0x4A, 13}, {0x4B, 13}, {0x4C, 13}, {0x4D, 13}, {0x72, 13},
    {0x73, 13}, {0x74, 13}, {0x75, 13}, {0x76, 13}, {0x77, 13}, {0x52, 13}, {0x53, 13},
    {0x54, 13}, {0x55, 13}, {0x5A, 13}, {0x5B, 13}, {0x64, 13}, {0x65, 13},
};
constexpr Code kSharedMakeUp[13] = { // 1792 to 2560
    {0x08, 11}, {0x0C, 11}, {0x0D, 11}, {0x12, 12}, {0x13, 12}, {0x14, 12}, {0x15, 12},
    {0x16, 12}, {0x17, 12}, {0x1C, 12}, {0x1D, 12}, {0x1E, 12}, {0x1F, 12},
};

constexpr int kLongestMakeUp = 2560;

// One colour's codes: terminating[run] for runs below 64, make_up[run / 64] above.
struct RunCodes {
    std::array<Code, 64> terminating{};
    std::array<Code, kLongestMakeUp / 64 + 1> make_up{};
};

constexpr RunCodes run_codes(const Code (&terminating)[64], const Code (&own_make_up)[27])
{
    RunCodes codes;
    for (int i = 0; i < 64; ++i) {
        codes.terminating[i] = terminating[i];
    }
    for (int i = 0; i < 27; ++i) {
        codes.make_up[i + 1] = own_make_up[i];
    }
    for (int i = 0; i < 13; ++i) {
        codes.make_up[i + 28] = kSharedMakeUp[i];
    }
    return codes;
}

constexpr RunCodes kWhiteCodes = run_codes(kWhiteTerminating, kWhiteMakeUp);
constexpr RunCodes kBlackCodes = run_codes(kBlackTerminating, kBlackMakeUp);

// The two-dimensional mode codes; vertical ones indexed by a1 - b1 + 3.
constexpr Code kPass{0x1, 4};
constexpr Code kHorizontal{0x1, 3};
constexpr Code kVertical[7] = {{0x2, 7}, {0x2, 6}, {0x2, 3}, {0x1, 1},
                               {0x3, 3}, {0x3, 6}, {0x3, 7}};
constexpr Code kEndOfLine{0x1, 12};

// Codes gathered most significant bit first in a 64-bit word and flushed 32 bits at a time.
class BitSink {
public:
    explicit BitSink(std::vector<std::uint8_t>& out) : out_(out) { out_.resize(4096); }

    void put(Code code)
    {
        // Fewer than 32 bits are pending and no code is longer than 13, so the word has room.
        pending_ |= static_cast<std::uint64_t>(code.bits) << (64 - used_ - code.length);
        used_ += code.length;
        if (used_ >= 32) {
            reserve(4);
            const auto word = static_cast<std::uint32_t>(pending_ >> 32);
            out_[size_ + 0] = static_cast<std::uint8_t>(word >> 24);
            out_[size_ + 1] = static_cast<std::uint8_t>(word >> 16);
            out_[size_ + 2] = static_cast<std::uint8_t>(word >> 8);
            out_[size_ + 3] = static_cast<std::uint8_t>(word);
            size_ += 4;
            pending_ <<= 32;
            used_ -= 32;
        }
    }

    // A run of one colour: the longest make-up code as often as needed, the make-up code for
    // the rest's multiple of 64, then the terminating code for what remains.
    void put_run(int run, const RunCodes& codes)
    {
        while (run >= kLongestMakeUp + 64) {
            put(codes.make_up[kLongestMakeUp / 64]);
            run -= kLongestMakeUp;
        }
        if (run >= 64) {
            put(codes.make_up[run / 64]);
            run %= 64;
        }
        put(codes.terminating[run]);
    }

    // Writes the pending bits padded with zeros to a byte and trims `out` to the block.
    void finish()
    {
        reserve(4);
        for (; used_ > 0; used_ -= 8) {
            out_[size_++] = static_cast<std::uint8_t>(pending_ >> 56);
            pending_ <<= 8;
        }
        used_ = 0;
        out_.resize(size_);
    }

private:
    void reserve(std::size_t bytes)
    {
        if (size_ + bytes > out_.size()) {
            out_.resize(out_.size() * 2);
        }
    }

    std::vector<std::uint8_t>& out_;
    std::size_t size_ = 0;
    std::uint64_t pending_ = 0;
    int used_ = 0;
};

std::uint64_t big_endian_word(const std::uint8_t* bytes)
{
    std::uint64_t word;
    std::memcpy(&word, bytes, sizeof word);
    if constexpr (std::endian::native == std::endian::little) {
        word = __builtin_bswap64(word);
    }
    return word;
}

// The changing elements of a row: the columns whose pixel differs from the one before it, the
// pixel before column 0 counting as white. Even entries therefore start black runs and odd ones
// white runs. Three entries of `width` follow, so the coder may look up to two past the last.
// `changes` holds at least width + 3 entries.
void find_changes(const std::uint8_t* row, int width, int* changes)
{
    int count = 0;
    std::uint64_t previous_bit = 0; // the last pixel of the previous word, in the top bit
    const auto take = [&](std::uint64_t word) {
        const std::uint64_t changed = word ^ ((word >> 1) | previous_bit);
        previous_bit = word << 63;
        return changed;
    };
    const auto list = [&](std::uint64_t changed, int base) {
        while (changed != 0) {
            const int offset = std::countl_zero(changed);
            changes[count++] = base + offset;
            changed &= ~(std::uint64_t{1} << 63 >> offset);
        }
    };
    const int whole_words = width / 64;
    for (int w = 0; w < whole_words; ++w) {
        list(take(big_endian_word(row + 8 * w)), 64 * w);
    }
    if (const int tail_bits = width % 64; tail_bits != 0) {
        std::uint64_t word = 0;
        const std::uint8_t* tail = row + 8 * whole_words;
        for (int i = 0; i < (tail_bits + 7) / 8; ++i) {
            word |= static_cast<std::uint64_t>(tail[i]) << (56 - 8 * i);
        }
        // Changes past the row's last column, into its padding bits, drop out.
        const std::uint64_t inside = ~std::uint64_t{0} << (64 - tail_bits);
        list(take(word) & inside, 64 * whole_words);
    }
    changes[count] = changes[count + 1] = changes[count + 2] = width;
}

// Codes one row against its reference row, both given as changing elements.
void encode_row(const int* coding, const int* reference, int width, BitSink& sink)
{
    int a0 = -1;        // the imaginary white pixel before the row at the start
    bool black = false; // the colour at a0
    int ia = 0;         // coding[ia] is a1, the first change after a0
    int ib = 0;         // reference[ib] is the first reference change after a0
    while (a0 < width) {
        while (reference[ib] <= a0) {
            ++ib;
        }
        // b1 is the first reference change after a0 to the colour opposite a0's; changes to
        // black sit at even indexes.
        const int b1_index = ib + ((ib & 1) != static_cast<int>(black) ? 1 : 0);
        const int b1 = reference[b1_index];
        const int b2 = reference[b1_index + 1];
        const int a1 = coding[ia];
        if (b2 < a1) {
            sink.put(kPass);
            a0 = b2;
            continue;
        }
        const int offset = a1 - b1;
        if (offset >= -3 && offset <= 3) {
            sink.put(kVertical[offset + 3]);
            a0 = a1;
            black = !black;
            ++ia;
            continue;
        }
        const int a2 = coding[ia + 1];
        sink.put(kHorizontal);
        sink.put_run(a1 - (a0 < 0 ? 0 : a0), black ? kBlackCodes : kWhiteCodes);
        sink.put_run(a2 - a1, black ? kWhiteCodes : kBlackCodes);
        a0 = a2;
        ia += 2;
    }
}

} // namespace

void encode_g4_block(const std::uint8_t* first_row, std::size_t stride, int width, int rows,
                     std::vector<std::uint8_t>& out)
{
    std::vector<int> lists(2 * (static_cast<std::size_t>(width) + 3));
    int* reference = lists.data();
    int* coding = reference + width + 3;
    reference[0] = reference[1] = reference[2] = width; // the all-white line before the first
    BitSink sink(out);
    for (int y = 0; y < rows; ++y) {
        find_changes(first_row + stride * static_cast<std::size_t>(y), width, coding);
        encode_row(coding, reference, width, sink);
        std::swap(coding, reference);
    }
    sink.put(kEndOfLine);
    sink.put(kEndOfLine);
    sink.finish();
}

} // namespace qf::writers
