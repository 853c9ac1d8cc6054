// SPDX-License-Identifier: GPL-3.0-or-later
// A progressive Huffman coder that libjpeg drives in place of its own. The library still does
// everything else (colour conversion, DCT, the coefficient buffer, the passes, the markers); it
// calls this coder through the three entry points every entropy coder of the library has, once
// per scan to gather symbol counts and once to write. Each scan's band is tested for non-zero
// coefficients with a few vector instructions, so an empty block costs almost nothing.
#include "writers/jpeg_progressive_coder.h"

#include <array>
#include <bit>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif
#include <jerror.h>

namespace qf::writers {
namespace {

// The three entry points libjpeg calls on an entropy coder, in the order it lays them out.
struct EntropyEntryPoints {
    void (*start_pass)(j_compress_ptr cinfo, boolean gather_statistics);
    boolean (*encode_mcu)(j_compress_ptr cinfo, JBLOCKROW* MCU_data);
    void (*finish_pass)(j_compress_ptr cinfo);
};

// libjpeg's derived coding table: code and length of each symbol (length 0: not in the table).
struct DerivedTable {
    unsigned int ehufco[256];
    char ehufsi[256];
};

} // namespace
} // namespace qf::writers

// Exported by libjpeg for its own coders; the same functions make our tables, so that they
// are the library's to the bit.
extern "C" {
void jpeg_make_c_derived_tbl(j_compress_ptr cinfo, boolean isDC, int tblno, qf::writers::DerivedTable** pdtbl);
void jpeg_gen_optimal_table(j_compress_ptr cinfo, JHUFF_TBL* htbl, long freq[]);
}

namespace qf::writers {
namespace {

constexpr int kMaxCorrectionBits = 1000; // correction bits held back before an EOB run is forced out
constexpr unsigned kMaxEobRun = 0x7FFF;
constexpr int kMaxCoefficientBits = 10;

// Natural (row-major) position of each zigzag index.
constexpr int kNaturalOrder[64] = {
    0,  1,  8,  16, 9,  2,  3,  10, 17, 24, 32, 25, 18, 11, 4,  5,  12, 19, 26, 33, 40, 48,
    41, 34, 27, 20, 13, 6,  7,  14, 21, 28, 35, 42, 49, 56, 57, 50, 43, 36, 29, 22, 15, 23,
    30, 37, 44, 51, 58, 59, 52, 45, 38, 31, 39, 46, 53, 60, 61, 54, 47, 55, 62, 63,
};

// Zigzag index of each natural position.
constexpr auto kZigzagIndex = [] {
    std::array<int, 64> index{};
    for (int k = 0; k < 64; ++k) {
        index[kNaturalOrder[k]] = k;
    }
    return index;
}();

struct Coder {
    EntropyEntryPoints entry; // first: libjpeg sees the coder as these
    j_compress_ptr cinfo;

    // Output: bits wait in `pending` (the newest at the low end) until whole bytes go out.
    JOCTET* next_byte;
    std::size_t free_bytes;
    std::uint64_t pending;
    int pending_bits;

    int last_dc[MAX_COMPS_IN_SCAN];
    int ac_table;               // the table of the scan's one component (AC scans)
    std::uint64_t band_natural; // the scan's band, as bits at natural positions
    int band_length;            // Se - Ss + 1
    unsigned eob_run;
    unsigned held_bits;                   // correction bits held back with the EOB run
    char correction[kMaxCorrectionBits];  // one bit a byte
    DerivedTable* derived[NUM_HUFF_TBLS]; // for writing
    long counts[NUM_HUFF_TBLS][257];      // for gathering (the optimiser wants 257)
};

Coder& coder_of(j_compress_ptr cinfo)
{
    return *reinterpret_cast<Coder*>(cinfo->entropy);
}

[[noreturn]] void fail(j_compress_ptr cinfo, int code)
{
    cinfo->err->msg_code = code;
    (*cinfo->err->error_exit)(reinterpret_cast<j_common_ptr>(cinfo));
    std::abort(); // error_exit does not return
}

// Set bits in `bits`. Without the POPCNT instruction in the build, std::popcount is a library
// call that was 4 % of a text run; this takes a dozen plain instructions.
int set_bits(std::uint64_t bits)
{
#if defined(__POPCNT__)
    return std::popcount(bits);
#else
    bits -= (bits >> 1) & 0x5555555555555555ULL;
    bits = (bits & 0x3333333333333333ULL) + ((bits >> 2) & 0x3333333333333333ULL);
    bits = (bits + (bits >> 4)) & 0x0F0F0F0F0F0F0F0FULL;
    return static_cast<int>((bits * 0x0101010101010101ULL) >> 56);
#endif
}

// ---- Output

void take_output(Coder& c)
{
    c.next_byte = c.cinfo->dest->next_output_byte;
    c.free_bytes = c.cinfo->dest->free_in_buffer;
}

void give_output(Coder& c)
{
    c.cinfo->dest->next_output_byte = c.next_byte;
    c.cinfo->dest->free_in_buffer = c.free_bytes;
}

void emit_byte(Coder& c, int byte)
{
    *c.next_byte++ = static_cast<JOCTET>(byte);
    if (--c.free_bytes == 0) {
        if (!(*c.cinfo->dest->empty_output_buffer)(c.cinfo)) {
            fail(c.cinfo, JERR_CANT_SUSPEND);
        }
        take_output(c);
    }
}

void emit_whole_bytes(Coder& c)
{
    while (c.pending_bits >= 8) {
        c.pending_bits -= 8;
        const int byte = static_cast<int>((c.pending >> c.pending_bits) & 0xFF);
        emit_byte(c, byte);
        if (byte == 0xFF) {
            emit_byte(c, 0); // a zero byte stuffed after 0xFF in coded data
        }
    }
}

template <bool Gather>
void emit_bits(Coder& c, unsigned code, int size)
{
    if (size == 0) {
        fail(c.cinfo, JERR_HUFF_MISSING_CODE);
    }
    if constexpr (!Gather) {
        c.pending = (c.pending << size) | (code & ((1U << size) - 1));
        c.pending_bits += size;
        if (c.pending_bits >= 32) {
            emit_whole_bytes(c);
        }
    }
}

template <bool Gather>
void emit_symbol(Coder& c, int table, int symbol)
{
    if constexpr (Gather) {
        ++c.counts[table][symbol];
    } else {
        emit_bits<false>(c, c.derived[table]->ehufco[symbol], c.derived[table]->ehufsi[symbol]);
    }
}

template <bool Gather>
void emit_correction_bits(Coder& c, const char* bits, unsigned count)
{
    if constexpr (!Gather) {
        for (unsigned i = 0; i < count; ++i) {
            emit_bits<false>(c, static_cast<unsigned>(bits[i]), 1);
        }
    }
}

template <bool Gather>
void emit_eob_run(Coder& c)
{
    if (c.eob_run == 0) {
        return;
    }
    const int size = std::bit_width(c.eob_run) - 1;
    emit_symbol<Gather>(c, c.ac_table, size << 4);
    if (size > 0) {
        emit_bits<Gather>(c, c.eob_run, size);
    }
    c.eob_run = 0;
    emit_correction_bits<Gather>(c, c.correction, c.held_bits);
    c.held_bits = 0;
}

// ---- Coefficients

struct BandMasks {
    std::uint64_t nonzero;   // |coefficient| >> Al is not zero
    std::uint64_t above_one; // |coefficient| >> Al is more than one
    std::uint64_t low_bit;   // (|coefficient| >> Al) & 1: a refinement's correction bit
};

// Masks at natural positions over a whole block; with TwoLevels, above_one and low_bit as well.
template <bool TwoLevels>
BandMasks band_masks(const JCOEF* block, int al)
{
    BandMasks masks{0, 0, 0};
#if defined(__SSE2__)
    const __m128i zero = _mm_setzero_si128();
    const __m128i over_zero = _mm_set1_epi16(static_cast<short>((1 << al) - 1));
    const __m128i over_one = _mm_set1_epi16(static_cast<short>((2 << al) - 1));
    const __m128i bit_al = _mm_set1_epi16(static_cast<short>(1 << al));
    for (int row = 0; row < 8; row += 2) {
        __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(block + row * 8));
        __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(block + row * 8 + 8));
        a = _mm_max_epi16(a, _mm_sub_epi16(zero, a));
        b = _mm_max_epi16(b, _mm_sub_epi16(zero, b));
        const auto nonzero = static_cast<std::uint64_t>(static_cast<unsigned>(
            _mm_movemask_epi8(_mm_packs_epi16(_mm_cmpgt_epi16(a, over_zero), _mm_cmpgt_epi16(b, over_zero)))));
        masks.nonzero |= nonzero << (row * 8);
        if constexpr (TwoLevels) {
            const auto above = static_cast<std::uint64_t>(static_cast<unsigned>(
                _mm_movemask_epi8(_mm_packs_epi16(_mm_cmpgt_epi16(a, over_one), _mm_cmpgt_epi16(b, over_one)))));
            masks.above_one |= above << (row * 8);
            const auto low = static_cast<std::uint64_t>(static_cast<unsigned>(
                _mm_movemask_epi8(_mm_packs_epi16(_mm_cmpeq_epi16(_mm_and_si128(a, bit_al), bit_al),
                                                  _mm_cmpeq_epi16(_mm_and_si128(b, bit_al), bit_al)))));
            masks.low_bit |= low << (row * 8);
        }
    }
#else
    for (int position = 0; position < 64; ++position) {
        const int magnitude = (block[position] < 0 ? -block[position] : block[position]) >> al;
        masks.nonzero |= std::uint64_t{magnitude != 0} << position;
        masks.above_one |= std::uint64_t{TwoLevels && magnitude > 1} << position;
        masks.low_bit |= std::uint64_t{TwoLevels && (magnitude & 1) != 0} << position;
    }
#endif
    return masks;
}

// Bits at natural positions to bits at band indices (zigzag index - Ss).
std::uint64_t to_band(std::uint64_t natural, int ss)
{
    std::uint64_t band = 0;
    while (natural != 0) {
        const int position = std::countr_zero(natural);
        natural &= natural - 1;
        band |= std::uint64_t{1} << (kZigzagIndex[static_cast<std::size_t>(position)] - ss);
    }
    return band;
}

// The same for all three masks, walking the non-zero coefficients in `in_band` once.
BandMasks to_band(const BandMasks& natural, std::uint64_t in_band, int ss)
{
    BandMasks band{0, 0, 0};
    while (in_band != 0) {
        const int position = std::countr_zero(in_band);
        in_band &= in_band - 1;
        const int index = kZigzagIndex[static_cast<std::size_t>(position)] - ss;
        band.nonzero |= std::uint64_t{1} << index;
        band.above_one |= ((natural.above_one >> position) & 1) << index;
        band.low_bit |= ((natural.low_bit >> position) & 1) << index;
    }
    return band;
}

// Band indices from `from` up to, not including, `to` (at most 63).
std::uint64_t band_range(int from, int to)
{
    return ((std::uint64_t{1} << to) - 1) & ~((std::uint64_t{1} << from) - 1);
}

// ---- The four kinds of scan

template <bool Gather>
boolean encode_dc_first(j_compress_ptr cinfo, JBLOCKROW* MCU_data)
{
    Coder& c = coder_of(cinfo);
    take_output(c);
    for (int blkn = 0; blkn < cinfo->blocks_in_MCU; ++blkn) {
        const int ci = cinfo->MCU_membership[blkn];
        const int value = MCU_data[blkn][0][0] >> cinfo->Al;
        int diff = value - c.last_dc[ci];
        c.last_dc[ci] = value;
        const int sign = diff >> 31;
        const unsigned magnitude = static_cast<unsigned>((diff ^ sign) - sign);
        const int size = std::bit_width(magnitude);
        if (size > kMaxCoefficientBits + 1) {
            fail(cinfo, JERR_BAD_DCT_COEF);
        }
        emit_symbol<Gather>(c, cinfo->cur_comp_info[ci]->dc_tbl_no, size);
        if (size > 0) {
            emit_bits<Gather>(c, magnitude ^ static_cast<unsigned>(sign), size);
        }
    }
    give_output(c);
    return TRUE;
}

template <bool Gather>
boolean encode_dc_refine(j_compress_ptr cinfo, JBLOCKROW* MCU_data)
{
    Coder& c = coder_of(cinfo);
    take_output(c);
    for (int blkn = 0; blkn < cinfo->blocks_in_MCU; ++blkn) {
        emit_bits<Gather>(c, static_cast<unsigned>(MCU_data[blkn][0][0] >> cinfo->Al), 1);
    }
    give_output(c);
    return TRUE;
}

// One more block ends in the EOB run, with `added` correction bits; the run goes out when its
// count or its bits would overflow.
template <bool Gather>
void count_eob(Coder& c, unsigned added)
{
    c.held_bits += added;
    if (++c.eob_run == kMaxEobRun || c.held_bits > kMaxCorrectionBits - DCTSIZE2 + 1) {
        take_output(c);
        emit_eob_run<Gather>(c);
        give_output(c);
    }
}

template <bool Gather>
boolean encode_ac_first(j_compress_ptr cinfo, JBLOCKROW* MCU_data)
{
    Coder& c = coder_of(cinfo);
    const JCOEF* block = MCU_data[0][0];
    const std::uint64_t natural = band_masks<false>(block, cinfo->Al).nonzero & c.band_natural;
    if (natural == 0) {
        count_eob<Gather>(c, 0);
        return TRUE;
    }
    take_output(c);
    emit_eob_run<Gather>(c);
    std::uint64_t band = to_band(natural, cinfo->Ss);
    int next = 0; // the band index after the last coefficient coded
    while (band != 0) {
        const int k = std::countr_zero(band);
        band &= band - 1;
        int run = k - next;
        next = k + 1;
        while (run > 15) {
            emit_symbol<Gather>(c, c.ac_table, 0xF0);
            run -= 16;
        }
        const int coefficient = block[kNaturalOrder[cinfo->Ss + k]];
        const int sign = coefficient >> 31;
        const unsigned magnitude = static_cast<unsigned>((coefficient ^ sign) - sign) >> cinfo->Al;
        const int size = std::bit_width(magnitude);
        if (size > kMaxCoefficientBits) {
            fail(cinfo, JERR_BAD_DCT_COEF);
        }
        emit_symbol<Gather>(c, c.ac_table, (run << 4) + size);
        emit_bits<Gather>(c, magnitude ^ static_cast<unsigned>(sign), size);
    }
    give_output(c);
    if (next < c.band_length) {
        count_eob<Gather>(c, 0);
    }
    return TRUE;
}

// Emits the correction bits of the coefficients in `earlier` (band indices, in order).
template <bool Gather>
void emit_known_bits(Coder& c, std::uint64_t earlier, std::uint64_t low_bits)
{
    if constexpr (!Gather) {
        unsigned value = 0;
        int count = 0;
        while (earlier != 0) {
            const int k = std::countr_zero(earlier);
            earlier &= earlier - 1;
            value = (value << 1) | static_cast<unsigned>((low_bits >> k) & 1);
            if (++count == 16) {
                emit_bits<false>(c, value, count);
                value = 0;
                count = 0;
            }
        }
        if (count > 0) {
            emit_bits<false>(c, value, count);
        }
    }
}

// Codes the band indices from `from` to the newly non-zero coefficient at `fresh`, one by one,
// where a zero run past 15 needs ZRL codes in between.
template <bool Gather>
void encode_refine_stretch(Coder& c, const JCOEF* block, const BandMasks& band, int from, int fresh)
{
    j_compress_ptr cinfo = c.cinfo;
    // Correction bits gathered here follow those held back with the EOB run.
    char* added = c.correction + c.held_bits;
    unsigned added_count = 0;
    int run = 0;
    int next = from;
    std::uint64_t nonzero = band.nonzero & band_range(from, fresh + 1);
    while (nonzero != 0) {
        const int k = std::countr_zero(nonzero);
        nonzero &= nonzero - 1;
        run += k - next;
        next = k + 1;
        while (run > 15) {
            emit_eob_run<Gather>(c);
            emit_symbol<Gather>(c, c.ac_table, 0xF0);
            run -= 16;
            emit_correction_bits<Gather>(c, added, added_count);
            added = c.correction;
            added_count = 0;
        }
        if (k != fresh) {
            added[added_count++] = static_cast<char>((band.low_bit >> k) & 1);
            continue;
        }
        emit_eob_run<Gather>(c);
        emit_symbol<Gather>(c, c.ac_table, (run << 4) + 1);
        emit_bits<Gather>(c, block[kNaturalOrder[cinfo->Ss + k]] < 0 ? 0U : 1U, 1);
        emit_correction_bits<Gather>(c, added, added_count);
    }
}

template <bool Gather>
boolean encode_ac_refine(j_compress_ptr cinfo, JBLOCKROW* MCU_data)
{
    Coder& c = coder_of(cinfo);
    const JCOEF* block = MCU_data[0][0];
    const BandMasks natural = band_masks<true>(block, cinfo->Al);
    const std::uint64_t in_band = natural.nonzero & c.band_natural;
    if (in_band == 0) {
        count_eob<Gather>(c, 0);
        return TRUE;
    }
    const BandMasks band = to_band(natural, in_band, cinfo->Ss);
    // Coefficients coded before (above one) take a correction bit each; those now one are
    // coded, each after the zero run before it and followed by the correction bits since.
    take_output(c);
    std::uint64_t fresh = band.nonzero & ~band.above_one;
    int from = 0;
    while (fresh != 0) {
        const int k = std::countr_zero(fresh);
        fresh &= fresh - 1;
        const std::uint64_t earlier = band.above_one & band_range(from, k);
        const int run = k - from - set_bits(earlier);
        if (run > 15) {
            encode_refine_stretch<Gather>(c, block, band, from, k);
        } else {
            emit_eob_run<Gather>(c);
            emit_symbol<Gather>(c, c.ac_table, (run << 4) + 1);
            emit_bits<Gather>(c, block[kNaturalOrder[cinfo->Ss + k]] < 0 ? 0U : 1U, 1);
            emit_known_bits<Gather>(c, earlier, band.low_bit);
        }
        from = k + 1;
    }
    give_output(c);
    if (from == c.band_length) {
        return TRUE;
    }
    // The rest of the band goes into the EOB run, with the correction bits of its coefficients.
    std::uint64_t earlier = band.above_one & band_range(from, c.band_length);
    const auto count = static_cast<unsigned>(set_bits(earlier));
    if constexpr (!Gather) {
        char* added = c.correction + c.held_bits;
        while (earlier != 0) {
            const int k = std::countr_zero(earlier);
            earlier &= earlier - 1;
            *added++ = static_cast<char>((band.low_bit >> k) & 1);
        }
    }
    count_eob<Gather>(c, count);
    return TRUE;
}

// ---- Passes

void finish_output(j_compress_ptr cinfo)
{
    Coder& c = coder_of(cinfo);
    take_output(c);
    emit_eob_run<false>(c);
    emit_whole_bytes(c);
    if (c.pending_bits > 0) {
        // The last byte is filled up with ones.
        const int fill = 8 - c.pending_bits;
        c.pending = (c.pending << fill) | ((1U << fill) - 1);
        c.pending_bits = 8;
        emit_whole_bytes(c);
    }
    c.pending = 0;
    give_output(c);
}

void finish_gathering(j_compress_ptr cinfo)
{
    Coder& c = coder_of(cinfo);
    emit_eob_run<true>(c);
    const bool dc = cinfo->Ss == 0;
    bool done[NUM_HUFF_TBLS] = {};
    for (int ci = 0; ci < cinfo->comps_in_scan; ++ci) {
        if (dc && cinfo->Ah != 0) {
            continue;
        }
        const jpeg_component_info* component = cinfo->cur_comp_info[ci];
        const int table = dc ? component->dc_tbl_no : component->ac_tbl_no;
        if (done[table]) {
            continue;
        }
        JHUFF_TBL*& huffman = dc ? cinfo->dc_huff_tbl_ptrs[table] : cinfo->ac_huff_tbl_ptrs[table];
        if (huffman == nullptr) {
            huffman = jpeg_alloc_huff_table(reinterpret_cast<j_common_ptr>(cinfo));
        }
        jpeg_gen_optimal_table(cinfo, huffman, c.counts[table]);
        done[table] = true;
    }
}

void start_pass(j_compress_ptr cinfo, boolean gather_statistics)
{
    Coder& c = coder_of(cinfo);
    const bool gather = gather_statistics != 0;
    const bool dc = cinfo->Ss == 0;
    if (cinfo->Ah == 0) {
        if (dc) {
            c.entry.encode_mcu = gather ? encode_dc_first<true> : encode_dc_first<false>;
        } else {
            c.entry.encode_mcu = gather ? encode_ac_first<true> : encode_ac_first<false>;
        }
    } else {
        if (dc) {
            c.entry.encode_mcu = gather ? encode_dc_refine<true> : encode_dc_refine<false>;
        } else {
            c.entry.encode_mcu = gather ? encode_ac_refine<true> : encode_ac_refine<false>;
        }
    }
    c.entry.finish_pass = gather ? finish_gathering : finish_output;
    for (int ci = 0; ci < cinfo->comps_in_scan; ++ci) {
        const jpeg_component_info* component = cinfo->cur_comp_info[ci];
        c.last_dc[ci] = 0;
        if (dc && cinfo->Ah != 0) {
            continue;
        }
        const int table = dc ? component->dc_tbl_no : component->ac_tbl_no;
        if (table < 0 || table >= NUM_HUFF_TBLS) {
            cinfo->err->msg_parm.i[0] = table;
            fail(cinfo, JERR_NO_HUFF_TABLE);
        }
        if (!dc) {
            c.ac_table = table;
        }
        if (gather) {
            std::memset(c.counts[table], 0, sizeof c.counts[table]);
        } else {
            jpeg_make_c_derived_tbl(cinfo, dc ? TRUE : FALSE, table, &c.derived[table]);
        }
    }
    c.band_natural = 0;
    for (int k = cinfo->Ss; k <= cinfo->Se; ++k) {
        c.band_natural |= std::uint64_t{1} << kNaturalOrder[k];
    }
    c.band_length = cinfo->Se - cinfo->Ss + 1;
    c.eob_run = 0;
    c.held_bits = 0;
    c.pending = 0;
    c.pending_bits = 0;
}

} // namespace

bool use_fast_progressive_coder(jpeg_compress_struct& cinfo)
{
    if (!cinfo.progressive_mode || cinfo.arith_code || !cinfo.optimize_coding || cinfo.restart_interval != 0 ||
        cinfo.restart_in_rows != 0 || cinfo.data_precision != 8 || cinfo.next_scanline != 0) {
        return false;
    }
    void* memory = (*cinfo.mem->alloc_small)(reinterpret_cast<j_common_ptr>(&cinfo), JPOOL_IMAGE, sizeof(Coder));
    auto* coder = new (memory) Coder{};
    coder->entry.start_pass = start_pass;
    coder->cinfo = &cinfo;
    cinfo.entropy = reinterpret_cast<jpeg_entropy_encoder*>(coder);
    // jpeg_start_compress has begun the first scan's pass on libjpeg's coder; ours begins it
    // anew, before any block is coded.
    start_pass(&cinfo, cinfo.optimize_coding);
    return true;
}

} // namespace qf::writers
