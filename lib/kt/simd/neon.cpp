// The NEON kernels of aarch64: 16 bytes a register. The interleaving loads
// and stores (two, three or four registers at once) split and join the
// groups of the codecs, so that the bytes of a group lie in the same lane of
// different registers; table lookups over up to four registers (64 entries)
// give the value or class of every byte of a register at once.
//
// Like the other vector sets, each kernel handles the regular bulk itself
// and hands tails and irregular blocks to the scalar code.
#include "simd/kernels.h"

#ifdef KT_SIMD_NEON

#include <arm_neon.h>

#include <array>
#include <cstdint>
#include <cstring>

#include "base64_alphabet.h"
#include "hex_digits.h"
#include "simd/scalar.h"
#include "simd/vector_tables.h"
#include "url_delimiters.h"
#include "url_unreserved.h"

namespace KT {
namespace simd {
namespace neon {

using ktbase::url_detail::delimiter_masks;
using ktbase::url_detail::kDelimiterBytes;
using ktbase::url_detail::kDelimiterCount;

namespace {

// ---------------------------------------------------------------- tables

// A table of 64 entries for four-register lookups: the entries of the
// bytes from `first` on, as `entry` gives them.
using table64 = std::array<std::uint8_t, 64>;

template <class Entry>
constexpr table64 entries_from(unsigned first, Entry entry) {
    table64 table{};
    for (unsigned k = 0; k < table.size(); ++k) table[k] = std::uint8_t(entry(first + k));
    return table;
}

// Hex digits from "0": a lookup of c - '0' gives the value of c, or
// kNotHexDigit (from the table or, past "o", from the lookup's default).
constexpr table64 kHexValues = entries_from('0', [](unsigned c) { return kHexDigitValues[c]; });
// The same for the digits of an escape, where a byte that is no digit
// counts as 0: a lookup past the table gives 0 too.
constexpr table64 kEscapeValues =
    entries_from('0', [](unsigned c) { return scalar::kEscapeDigitValues[c]; });

// The Base64 values of the ASCII bytes, 0xFF for those outside the alphabet.
constexpr auto base64_value = [](unsigned c) { return std::uint8_t(kBase64Values[c]); };
constexpr table64 kBase64Low = entries_from(0, base64_value);
constexpr table64 kBase64High = entries_from(64, base64_value);

// 0xFF for the ASCII bytes that percent-encoding keeps, 0 for the others.
constexpr auto unreserved = [](unsigned c) {
    return ktbase::url_detail::is_unreserved(std::uint8_t(c)) ? 0xFF : 0;
};
constexpr table64 kUnreservedLow = entries_from(0, unreserved);
constexpr table64 kUnreservedHigh = entries_from(64, unreserved);

alignas(16) constexpr std::uint8_t kLaneNumbers[16] = {0, 1, 2,  3,  4,  5,  6,  7,
                                                       8, 9, 10, 11, 12, 13, 14, 15};
// A bit per lane, to AND with a mask (0xFF lanes): the sum over a group of
// 8 or 4 lanes is then the group's mask as bits, bit k for its lane k.
alignas(16) constexpr std::uint8_t kBitsOf8[16] = {1, 2, 4, 8, 16, 32, 64, 128,
                                                   1, 2, 4, 8, 16, 32, 64, 128};
alignas(16) constexpr std::uint8_t kBitsOf4[16] = {1, 2, 4, 8, 1, 2, 4, 8, 1, 2, 4, 8, 1, 2, 4, 8};

// ---------------------------------------------------------------- registers

inline uint8x16_t load(const void* p) { return vld1q_u8(static_cast<const std::uint8_t*>(p)); }
inline void store(void* p, uint8x16_t v) { vst1q_u8(static_cast<std::uint8_t*>(p), v); }
inline uint8x16x4_t load_table(const table64& table) { return vld1q_u8_x4(table.data()); }

// The entries of the bytes of `v` in a 128-entry table of the ASCII bytes,
// its halves in `low` and `high`; `outside` for the bytes from 0x80.
inline uint8x16_t ascii_entries(uint8x16_t v, const uint8x16x4_t& low, const uint8x16x4_t& high,
                                uint8x16_t outside) {
    return vqtbx4q_u8(vqtbx4q_u8(outside, low, v), high, vsubq_u8(v, vdupq_n_u8(64)));
}

// The masks (0xFF lanes) of `mask` as bits, 16 of them, bit k for lane k.
inline unsigned bits_of(uint8x16_t mask) {
    uint8x16_t sums = vandq_u8(mask, load(kBitsOf8));
    sums = vpaddq_u8(sums, sums);
    sums = vpaddq_u8(sums, sums);
    sums = vpaddq_u8(sums, sums);
    return vgetq_lane_u16(vreinterpretq_u16_u8(sums), 0);
}

// ---------------------------------------------------------------- codecs

void hex_encode(const std::uint8_t* in, std::size_t n, std::uint8_t* out) {
    const uint8x16_t digits = load(kUpperHexDigits);
    std::size_t i = 0;
    for (; i + 16 <= n; i += 16) {
        const uint8x16_t bytes = load(in + i);
        // Stored interleaved: the high digit of each byte, then its low one.
        uint8x16x2_t pairs;
        pairs.val[0] = vqtbl1q_u8(digits, vshrq_n_u8(bytes, 4));
        pairs.val[1] = vqtbl1q_u8(digits, vandq_u8(bytes, vdupq_n_u8(15)));
        vst2q_u8(out + 2 * i, pairs);
    }
    scalar::hex_encode(in + i, n - i, out + 2 * i);
}

void hex_decode(const std::uint8_t* in, std::size_t pairs, std::uint8_t* out) {
    const uint8x16x4_t values = load_table(kHexValues);
    const uint8x16_t zero = vdupq_n_u8('0'), none = vdupq_n_u8(kNotHexDigit);
    std::size_t i = 0;
    for (; i + 16 <= pairs; i += 16) {
        // The first digits of 16 pairs in one register, the second in another.
        const uint8x16x2_t digits = vld2q_u8(in + 2 * i);
        const uint8x16_t high = vqtbx4q_u8(none, values, vsubq_u8(digits.val[0], zero));
        const uint8x16_t low = vqtbx4q_u8(none, values, vsubq_u8(digits.val[1], zero));
        // The scalar rule as it stands: an invalid first digit (255) leaves
        // 15 in the high half, an invalid second one sets every bit.
        store(out + i, vorrq_u8(vshlq_n_u8(high, 4), low));
    }
    scalar::hex_decode(in + 2 * i, pairs - i, out + i);
}

std::size_t base64_encode(const std::uint8_t* in, std::size_t n, std::uint8_t* out) {
    const uint8x16x4_t alphabet =
        vld1q_u8_x4(reinterpret_cast<const std::uint8_t*>(kBase64Alphabet));
    const uint8x16_t six_bits = vdupq_n_u8(63);
    std::uint8_t* start = out;
    std::size_t i = 0;
    for (; i + 48 <= n; i += 48, out += 64) {
        // Byte k of 16 groups of three in register k; sextet k of each in
        // register k of the result.
        const uint8x16x3_t bytes = vld3q_u8(in + i);
        const uint8x16_t s0 = vshrq_n_u8(bytes.val[0], 2);
        const uint8x16_t s1 =
            vandq_u8(vsliq_n_u8(vshrq_n_u8(bytes.val[1], 4), bytes.val[0], 4), six_bits);
        const uint8x16_t s2 =
            vandq_u8(vsliq_n_u8(vshrq_n_u8(bytes.val[2], 6), bytes.val[1], 2), six_bits);
        const uint8x16_t s3 = vandq_u8(bytes.val[2], six_bits);
        vst4q_u8(out, {vqtbl4q_u8(alphabet, s0), vqtbl4q_u8(alphabet, s1), vqtbl4q_u8(alphabet, s2),
                       vqtbl4q_u8(alphabet, s3)});
    }
    return std::size_t(out - start) + scalar::base64_encode(in + i, n - i, out);
}

std::size_t base64_decode(const std::uint8_t* in, std::size_t n, std::uint8_t* out) {
    const uint8x16x4_t low = load_table(kBase64Low), high = load_table(kBase64High);
    const uint8x16_t invalid = vdupq_n_u8(0xFF);
    std::uint8_t* start = out;
    std::size_t i = 0;
    for (; i + 64 <= n; i += 64) {
        // Character k of 16 groups of four in register k.
        const uint8x16x4_t chars = vld4q_u8(in + i);
        const auto value = [&](uint8x16_t c) { return ascii_entries(c, low, high, invalid); };
        const uint8x16x4_t values = {value(chars.val[0]), value(chars.val[1]), value(chars.val[2]),
                                     value(chars.val[3])};
        // A value above 63 marks "=" or a byte outside the alphabet: the
        // scalar rules decide the block.
        const uint8x16_t any = vorrq_u8(vorrq_u8(values.val[0], values.val[1]),
                                        vorrq_u8(values.val[2], values.val[3]));
        if (vmaxvq_u8(any) > 63) {
            out += scalar::base64_decode(in + i, 64, out);
            continue;
        }
        uint8x16x3_t bytes;
        bytes.val[0] = vsliq_n_u8(vshrq_n_u8(values.val[1], 4), values.val[0], 2);
        bytes.val[1] = vsliq_n_u8(vshrq_n_u8(values.val[2], 2), values.val[1], 4);
        bytes.val[2] = vsliq_n_u8(values.val[3], values.val[2], 6);
        vst3q_u8(out, bytes);
        out += 48;
    }
    return std::size_t(out - start) + scalar::base64_decode(in + i, n - i, out);
}

// ---------------------------------------------------------------- URL

// The bytes of a register that percent-encoding keeps (0xFF lanes).
struct kept_bytes {
    uint8x16x4_t low = load_table(kUnreservedLow);
    uint8x16x4_t high = load_table(kUnreservedHigh);
    // The slashes of the register before (the last lane counts).
    uint8x16_t slashes_before = vdupq_n_u8(0);

    // With slashes kept, the first "/" of a run stays.
    template <bool EscapeAllSlashes>
    uint8x16_t of(uint8x16_t v) {
        uint8x16_t kept = ascii_entries(v, low, high, vdupq_n_u8(0));
        if (!EscapeAllSlashes) {
            const uint8x16_t slashes = vceqq_u8(v, vdupq_n_u8('/'));
            const uint8x16_t after_slash = vextq_u8(slashes_before, slashes, 15);
            kept = vorrq_u8(kept, vbicq_u8(slashes, after_slash));
            slashes_before = slashes;
        }
        return kept;
    }
};

// The last r < 16 bytes of a text at least 16 long that ends at `last`, in
// lanes 0 to r - 1, and zeros above.
inline uint8x16_t load_tail(const char* last, std::size_t r) {
    return vqtbl1q_u8(load(last - 16), load(kEndToFront + 16 - r));
}

template <bool EscapeAllSlashes>
std::size_t encoded_size(const char* first, const char* last) {
    const std::size_t n = std::size_t(last - first);
    if (n < 16) return scalar::url_encoded_size(first, last, EscapeAllSlashes);
    kept_bytes classes;
    std::size_t kept = 0;
    const char* p = first;
    while (last - p >= 16) {
        // Each lane counts its kept bytes (a kept lane is -1) for up to 255
        // registers before the counts are added up.
        uint8x16_t counts = vdupq_n_u8(0);
        for (int k = 0; k < 255 && last - p >= 16; ++k, p += 16)
            counts = vsubq_u8(counts, classes.of<EscapeAllSlashes>(load(p)));
        kept += vaddlvq_u8(counts);
    }
    if (p < last) {
        const std::size_t r = std::size_t(last - p);
        // The last 16 bytes as they lie, so that the byte before each new one
        // is in the register; the first 16 - r were counted.
        const uint8x16_t counted = vcltq_u8(load(kLaneNumbers), vdupq_n_u8(std::uint8_t(16 - r)));
        const uint8x16_t tail = vbicq_u8(classes.of<EscapeAllSlashes>(load(last - 16)), counted);
        kept += vaddvq_u8(vshrq_n_u8(tail, 7));
    }
    return 3 * n - 2 * kept;
}

// Writes the code of the first 4 * groups bytes of `v`, of which `kept`
// stay as they are; returns the end of what it wrote (each group stores 16
// bytes, of which only the first counted ones are the code).
inline char* expand(char* o, uint8x16_t v, uint8x16_t kept, int groups) {
    const uint8x16_t digits = load(kLowerHexDigits);
    const uint32x4_t bytes = vreinterpretq_u32_u8(v);
    const uint32x4_t high = vreinterpretq_u32_u8(vqtbl1q_u8(digits, vshrq_n_u8(v, 4)));
    const uint32x4_t low = vreinterpretq_u32_u8(vqtbl1q_u8(digits, vandq_u8(v, vdupq_n_u8(15))));
    const uint32x4_t percent = vreinterpretq_u32_u8(vdupq_n_u8('%'));
    // A transpose of 4-byte lanes: group g gets its bytes, high digits, low
    // digits and "%" side by side.
    const uint64x2_t t0 = vreinterpretq_u64_u32(vzip1q_u32(bytes, high));
    const uint64x2_t t1 = vreinterpretq_u64_u32(vzip1q_u32(low, percent));
    const uint64x2_t t2 = vreinterpretq_u64_u32(vzip2q_u32(bytes, high));
    const uint64x2_t t3 = vreinterpretq_u64_u32(vzip2q_u32(low, percent));
    const uint8x16_t group[4] = {
        vreinterpretq_u8_u64(vzip1q_u64(t0, t1)), vreinterpretq_u8_u64(vzip2q_u64(t0, t1)),
        vreinterpretq_u8_u64(vzip1q_u64(t2, t3)), vreinterpretq_u8_u64(vzip2q_u64(t2, t3))};
    // The escapes of each group as four bits, a byte per group.
    uint8x16_t masks = vbicq_u8(load(kBitsOf4), kept);
    masks = vpaddq_u8(masks, masks);
    masks = vpaddq_u8(masks, masks);
    const std::uint32_t escaped = vgetq_lane_u32(vreinterpretq_u32_u8(masks), 0);
    for (int g = 0; g < groups; ++g) {
        const unsigned mask = (escaped >> (8 * g)) & 15;
        store(o, vqtbl1q_u8(group[g], load(kExpansion.control[mask])));
        o += kExpansion.length[mask];
    }
    return o;
}

template <bool EscapeAllSlashes>
std::size_t encode(char* out, const char* first, const char* last) {
    if (last - first < 16) return scalar::url_encode(out, first, last, EscapeAllSlashes);
    kept_bytes classes;
    char* o = out;
    const char* p = first;
    for (; last - p >= 16; p += 16) {
        const uint8x16_t v = load(p);
        const uint8x16_t kept = classes.of<EscapeAllSlashes>(v);
        if (vminvq_u8(kept) == 0xFF) {
            store(o, v);
            o += 16;
        } else {
            o = expand(o, v, kept, 4);
        }
    }
    if (p < last) {
        // The last bytes moved to the front: the slashes before them are
        // those of the last register. The zeros above count as kept, and
        // land in the slack after the code.
        const std::size_t r = std::size_t(last - p);
        const uint8x16_t v = load_tail(last, r);
        const uint8x16_t padding = vcgeq_u8(load(kLaneNumbers), vdupq_n_u8(std::uint8_t(r)));
        const int groups = int(r + 3) / 4;
        o = expand(o, v, vorrq_u8(classes.of<EscapeAllSlashes>(v), padding), groups) -
            (4 * std::size_t(groups) - r);
    }
    return std::size_t(o - out);
}

// Writes the bytes of `v` whose bits are set in `keep` (16 bits), in order;
// stores 8 bytes per half.
inline char* compact(char* o, uint8x16_t v, unsigned keep) {
    const unsigned low = keep & 0xFF, high = (keep >> 8) & 0xFF;
    vst1_u8(reinterpret_cast<std::uint8_t*>(o),
            vtbl1_u8(vget_low_u8(v), vcreate_u8(kCompaction[low])));
    o += __builtin_popcount(low);
    vst1_u8(reinterpret_cast<std::uint8_t*>(o),
            vtbl1_u8(vget_high_u8(v), vcreate_u8(kCompaction[high])));
    return o + __builtin_popcount(high);
}

// The escape values of 16 positions whose next two bytes are `first` and
// `second` (see scalar::escape_value()).
inline uint8x16_t escape_values(uint8x16_t first, uint8x16_t second, const uint8x16x4_t& values) {
    const uint8x16_t zero = vdupq_n_u8('0');
    return vsliq_n_u8(vqtbl4q_u8(values, vsubq_u8(second, zero)),
                      vqtbl4q_u8(values, vsubq_u8(first, zero)), 4);
}

std::size_t url_decode(char* out, const char* first, const char* last) {
    const uint8x16x4_t digit_values = load_table(kEscapeValues);
    char* o = out;
    const char* p = first;
    // 16 positions at a time while two bytes follow each of them.
    while (last - p >= 18) {
        const uint8x16_t v0 = load(p);
        const uint8x16_t percents = vceqq_u8(v0, vdupq_n_u8('%'));
        if (vmaxvq_u8(percents) == 0) {
            store(o, v0);
            o += 16;
            p += 16;
            continue;
        }
        const uint8x16_t values = escape_values(load(p + 1), load(p + 2), digit_values);
        const uint8x16_t starts = vandq_u8(percents, vtstq_u8(values, values));
        const unsigned candidates = bits_of(starts);
        if (overlapping(candidates)) {
            p = scalar::url_decode_until(o, p, p + 16);
            continue;
        }
        // Where an escape starts, its value; its two digits are left out.
        const unsigned swallowed = (candidates << 1) | (candidates << 2);
        o = compact(o, vbslq_u8(starts, values, v0), ~swallowed & 0xFFFF);
        p += 16 + __builtin_popcount(swallowed >> 16);
    }
    // What is left decodes on its own: the rules look only forward.
    return std::size_t(o - out) + scalar::url_decode(o, p, last);
}

// Bit k set where byte k of 64 equals `c`, the bytes split by vld4q_u8.
inline std::uint64_t bits_equal(const uint8x16x4_t& bytes, std::uint8_t c) {
    const uint8x16_t wanted = vdupq_n_u8(c);
    // Each step shifts a mask right and inserts it under the top bits of
    // the next, until lane j holds bytes 4j to 4j + 3 in each half; the
    // narrowing shift then joins the halves of neighbouring lanes.
    const uint8x16_t m01 =
        vsriq_n_u8(vceqq_u8(bytes.val[1], wanted), vceqq_u8(bytes.val[0], wanted), 1);
    const uint8x16_t m23 =
        vsriq_n_u8(vceqq_u8(bytes.val[3], wanted), vceqq_u8(bytes.val[2], wanted), 1);
    const uint8x16_t m0123 = vsriq_n_u8(m23, m01, 2);
    const uint8x16_t halves = vsriq_n_u8(m0123, m0123, 4);
    return vget_lane_u64(vreinterpret_u64_u8(vshrn_n_u16(vreinterpretq_u16_u8(halves), 4)), 0);
}

// Sets word `word` of each row for the 64 bytes at `p`, of which the first
// `skipped` lie before the word's bytes.
inline void mark_delimiters(const std::uint8_t* p, std::size_t word, delimiter_masks& masks,
                            unsigned skipped = 0) {
    const uint8x16x4_t bytes = vld4q_u8(p);
    for (int d = 0; d < kDelimiterCount; ++d)
        masks.rows[d][word] = bits_equal(bytes, std::uint8_t(kDelimiterBytes[d])) >> skipped;
}

void find_delimiters(const char* text, std::size_t length, delimiter_masks& masks) {
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(text);
    if (length < 64) {
        // Zeros, which are no delimiter, after the text.
        std::uint8_t padded[64] = {};
        std::memcpy(padded, bytes, length);
        if (length > 0) mark_delimiters(padded, 0, masks);
        return;
    }
    std::size_t word = 0;
    for (; 64 * (word + 1) <= length; ++word) mark_delimiters(bytes + 64 * word, word, masks);
    const std::size_t rest = length - 64 * word;
    // The last 64 bytes, of which the first 64 - rest were marked already.
    if (rest > 0) mark_delimiters(bytes + length - 64, word, masks, unsigned(64 - rest));
}

std::size_t url_encoded_size(const char* first, const char* last, bool escape_all_slashes) {
    return escape_all_slashes ? encoded_size<true>(first, last) : encoded_size<false>(first, last);
}

std::size_t url_encode(char* out, const char* first, const char* last, bool escape_all_slashes) {
    return escape_all_slashes ? encode<true>(out, first, last) : encode<false>(out, first, last);
}

}  // namespace
}  // namespace neon

const kernels neon_kernels = {"neon",
                              neon::hex_encode,
                              neon::hex_decode,
                              neon::base64_encode,
                              neon::base64_decode,
                              neon::url_encoded_size,
                              neon::url_encode,
                              kMaxSlack,
                              neon::url_decode,
                              0,
                              neon::find_delimiters};

}  // namespace simd
}  // namespace KT

#endif  // KT_SIMD_NEON
