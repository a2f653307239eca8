// The x86-64 vector kernel sets of the URL functions: SSSE3 (16 bytes at a
// time), AVX2 (32) and AVX-512 (64, for decoding and the delimiter masks).
// Every function carries its target attribute instead of the file being
// built with -mavx2, so the rest of the library runs on every x86-64; the
// SSSE3 helpers are inlined into the wider kernels too.
//
// Each kernel gives the plain set's results by construction: it classifies
// a block of bytes at once, writes a block that needs no change as one copy,
// applies the plain rules to the bytes of a block in vector form (the last
// bytes of a text padded with zeros that count as nothing), and hands the
// one case its block logic does not cover, an escape that may swallow the
// "%" of the next, to the plain loop.
#include "url_kernels.h"

#ifdef KT_URL_X86

#include <immintrin.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>

#define KT_SSE __attribute__((target("ssse3,popcnt")))
#define KT_AVX2 __attribute__((target("avx2,bmi,popcnt")))
#define KT_AVX512 \
    __attribute__((target("avx512f,avx512bw,avx512vl,avx512vbmi2,avx2,bmi,bmi2,popcnt")))

namespace ktbase {
namespace url_detail {

namespace {

// ---------------------------------------------------------------- tables

constexpr bool is_unreserved(int c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
           c == '!' || c == '\'' || c == '(' || c == ')' || c == '*' || c == '-' || c == '.' ||
           c == '_';
}

// The unreserved set as two nibble tables: a byte is unreserved when the
// entry of its low nibble and the entry of its high nibble share a bit. Each
// bit stands for one pattern of low nibbles that a row (high nibble) admits.
struct nibble_tables {
    alignas(16) std::uint8_t low[16];
    alignas(16) std::uint8_t high[16];
};

constexpr nibble_tables kUnreserved = [] {
    nibble_tables tables{};
    std::uint16_t patterns[16] = {};  // the distinct rows' sets of low nibbles
    int count = 0;
    for (int high = 0; high < 16; ++high) {
        std::uint16_t row = 0;
        for (int low = 0; low < 16; ++low)
            if (is_unreserved(high * 16 + low)) row = std::uint16_t(row | (1u << low));
        if (row == 0) continue;
        int bit = 0;
        while (bit < count && patterns[bit] != row) ++bit;
        if (bit == count) patterns[count++] = row;
        tables.high[high] = std::uint8_t(tables.high[high] | (1u << bit));
        for (int low = 0; low < 16; ++low)
            if (row & (1u << low)) tables.low[low] = std::uint8_t(tables.low[low] | (1u << bit));
    }
    return tables;
}();

constexpr bool tables_match_the_set() {
    for (int c = 0; c < 256; ++c)
        if (((kUnreserved.low[c & 15] & kUnreserved.high[c >> 4]) != 0) != is_unreserved(c))
            return false;
    return true;
}
static_assert(tables_match_the_set(), "the nibble tables give the unreserved set");

alignas(16) constexpr char kHexDigits[16] = {'0', '1', '2', '3', '4', '5', '6', '7',
                                             '8', '9', 'a', 'b', 'c', 'd', 'e', 'f'};

// How four source bytes are written, by which of them are escaped (bit k
// for byte k): shuffle controls that pick from a register holding the four
// bytes, their high digits, their low digits and four "%" (at 0, 4, 8 and
// 12), and the number of bytes written.
struct expansion {
    alignas(16) std::uint8_t control[16][16];
    std::uint8_t length[16];
};

constexpr expansion kExpansion = [] {
    expansion table{};
    for (int mask = 0; mask < 16; ++mask) {
        int at = 0;
        for (int k = 0; k < 4; ++k) {
            if (mask & (1 << k)) {
                table.control[mask][at++] = 12;
                table.control[mask][at++] = std::uint8_t(4 + k);
                table.control[mask][at++] = std::uint8_t(8 + k);
            } else {
                table.control[mask][at++] = std::uint8_t(k);
            }
        }
        table.length[mask] = std::uint8_t(at);
        while (at < 16) table.control[mask][at++] = 0x80;
    }
    return table;
}();

// Shuffle controls that gather the bytes of an 8-byte group whose bits are
// set in the index, in order, to the front.
constexpr std::array<std::uint64_t, 256> kCompaction = [] {
    std::array<std::uint64_t, 256> table{};
    for (int mask = 0; mask < 256; ++mask) {
        std::uint64_t control = 0;
        int at = 0;
        for (int k = 0; k < 8; ++k)
            if (mask & (1 << k)) control |= std::uint64_t(k) << (8 * at++);
        for (; at < 8; ++at) control |= std::uint64_t(0x80) << (8 * at);
        table[mask] = control;
    }
    return table;
}();

// Shuffle controls that move the last r bytes of a 16-byte load to the
// front and clear the rest: 16 bytes from kEndToFront + 16 - r.
alignas(16) constexpr std::uint8_t kEndToFront[32] = {
    0,    1,    2,    3,    4,    5,    6,    7,    8,    9,    10,   11,   12,   13,   14,   15,
    0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80};

// Shuffle controls that put the r < 16 bytes of a short text, loaded as two
// overlapping pieces (see load_short()), in order and clear the rest.
struct piece_controls {
    alignas(16) std::uint8_t control[16][16];
};

constexpr piece_controls kPieces = [] {
    piece_controls table{};
    for (int r = 0; r < 16; ++r) {
        // The second piece sits in lanes `half` on and holds the text's last
        // `half` bytes; the first holds its first bytes.
        const int half = r >= 8 ? 8 : r >= 4 ? 4 : 0;
        for (int k = 0; k < 16; ++k) {
            int lane = 0x80;
            if (k < r) lane = half == 0 || k < half ? k : k + 2 * half - r;
            table.control[r][k] = std::uint8_t(lane);
        }
    }
    return table;
}();

// ---------------------------------------------------------------- SSSE3

namespace sse {

KT_SSE inline __m128i load(const void* p) {
    return _mm_loadu_si128(static_cast<const __m128i*>(p));
}
KT_SSE inline void store(void* p, __m128i v) { _mm_storeu_si128(static_cast<__m128i*>(p), v); }
KT_SSE inline __m128i bytes(char c) { return _mm_set1_epi8(c); }
KT_SSE inline unsigned mask_of(__m128i v) { return unsigned(_mm_movemask_epi8(v)); }

// The r < 16 bytes at p in lanes 0 to r - 1, zeros above; reads no byte
// outside them. Short texts only: longer ones use load_tail().
KT_SSE inline __m128i load_short(const char* p, std::size_t r) {
    __m128i pieces;
    if (r >= 8) {
        std::uint64_t first, last;
        std::memcpy(&first, p, 8);
        std::memcpy(&last, p + r - 8, 8);
        pieces = _mm_set_epi64x(std::int64_t(last), std::int64_t(first));
    } else if (r >= 4) {
        std::uint32_t first, last;
        std::memcpy(&first, p, 4);
        std::memcpy(&last, p + r - 4, 4);
        pieces = _mm_set_epi32(0, 0, int(last), int(first));
    } else if (r > 0) {
        const auto byte = [p](std::size_t i) { return std::uint32_t(std::uint8_t(p[i])); };
        pieces = _mm_cvtsi32_si128(int(byte(0) | byte(r / 2) << 8 | byte(r - 1) << 16));
    } else {
        return _mm_setzero_si128();
    }
    return _mm_shuffle_epi8(pieces, load(kPieces.control[r]));
}

// The r < 16 bytes at p in lanes 0 to r - 1, zeros above, where the text
// starts at `first`: loaded from memory as it is (a copy through a buffer
// would stall the load that reads it back).
KT_SSE inline __m128i load_tail(const char* p, std::size_t r, const char* first) {
    if (std::size_t(p + r - first) >= 16)
        return _mm_shuffle_epi8(load(p + r - 16), load(kEndToFront + 16 - r));
    return load_short(p, r);
}

// Bit k set where byte k of `v` is escaped. `carry` says whether the byte
// before the block was "/", and is set to whether its last byte is: with
// slashes kept, the first "/" of a run stays.
template <bool EscapeAllSlashes>
KT_SSE inline unsigned escapes(__m128i v, unsigned& carry) {
    const __m128i low = _mm_and_si128(v, bytes(15));
    const __m128i high = _mm_and_si128(_mm_srli_epi16(v, 4), bytes(15));
    const __m128i classes = _mm_and_si128(_mm_shuffle_epi8(load(kUnreserved.low), low),
                                          _mm_shuffle_epi8(load(kUnreserved.high), high));
    unsigned escaped = mask_of(_mm_cmpeq_epi8(classes, _mm_setzero_si128()));
    if (!EscapeAllSlashes) {
        const unsigned slashes = mask_of(_mm_cmpeq_epi8(v, bytes('/')));
        escaped &= ~(slashes & ~((slashes << 1) | carry));
        carry = slashes >> 15;
    }
    return escaped;
}

// Writes the code of the first 4 * groups bytes of `v`, whose escapes are
// `escaped`; returns the end of what it wrote (each group stores 16 bytes,
// of which only the first counted ones are the code).
KT_SSE inline char* expand(char* o, __m128i v, unsigned escaped, int groups) {
    const __m128i digits = load(kHexDigits);
    const __m128i low = _mm_shuffle_epi8(digits, _mm_and_si128(v, bytes(15)));
    const __m128i high =
        _mm_shuffle_epi8(digits, _mm_and_si128(_mm_srli_epi16(v, 4), bytes(15)));
    const __m128i percent = bytes('%');
    // A transpose of 4-byte lanes: group g gets its bytes, high digits, low
    // digits and "%" side by side.
    const __m128i t0 = _mm_unpacklo_epi32(v, high);
    const __m128i t1 = _mm_unpacklo_epi32(low, percent);
    const __m128i t2 = _mm_unpackhi_epi32(v, high);
    const __m128i t3 = _mm_unpackhi_epi32(low, percent);
    const __m128i group[4] = {_mm_unpacklo_epi64(t0, t1), _mm_unpackhi_epi64(t0, t1),
                              _mm_unpacklo_epi64(t2, t3), _mm_unpackhi_epi64(t2, t3)};
    for (int g = 0; g < groups; ++g) {
        const unsigned mask = (escaped >> (4 * g)) & 15;
        store(o, _mm_shuffle_epi8(group[g], load(kExpansion.control[mask])));
        o += kExpansion.length[mask];
    }
    return o;
}

// Encodes one block of 16 bytes.
KT_SSE inline char* encode_block(char* o, __m128i v, unsigned escaped) {
    if (escaped == 0) {
        store(o, v);
        return o + 16;
    }
    return expand(o, v, escaped, 4);
}

// The last `count` bytes (fewer than 16) at `p`, of a text that starts at
// `first`, padded with zeros; returns the end of the code, not of what was
// stored.
template <bool EscapeAllSlashes>
KT_SSE inline char* encode_tail(char* o, const char* p, std::size_t count, unsigned carry,
                                const char* first) {
    const __m128i v = load_tail(p, count, first);
    // The padding counts as kept: its bytes land after the code, in the slack.
    const unsigned escaped = escapes<EscapeAllSlashes>(v, carry) & ((1u << count) - 1);
    expand(o, v, escaped, int(count + 3) / 4);
    return o + count + 2 * std::size_t(_mm_popcnt_u32(escaped));
}

template <bool EscapeAllSlashes>
KT_SSE std::size_t encoded_size(const char* first, const char* last) {
    std::size_t size = std::size_t(last - first);
    unsigned carry = 0;
    const char* p = first;
    for (; last - p >= 16; p += 16)
        size += 2 * std::size_t(_mm_popcnt_u32(escapes<EscapeAllSlashes>(load(p), carry)));
    if (p < last) {
        const std::size_t count = std::size_t(last - p);
        const unsigned escaped = escapes<EscapeAllSlashes>(load_tail(p, count, first), carry);
        size += 2 * std::size_t(_mm_popcnt_u32(escaped & ((1u << count) - 1)));
    }
    return size;
}

template <bool EscapeAllSlashes>
KT_SSE std::size_t encode(char* out, const char* first, const char* last) {
    char* o = out;
    unsigned carry = 0;
    const char* p = first;
    for (; last - p >= 16; p += 16) {
        const __m128i v = load(p);
        o = encode_block(o, v, escapes<EscapeAllSlashes>(v, carry));
    }
    if (p < last) o = encode_tail<EscapeAllSlashes>(o, p, std::size_t(last - p), carry, first);
    return std::size_t(o - out);
}

KT_SSE std::size_t encoded_size_kernel(const char* first, const char* last, bool all) {
    return all ? encoded_size<true>(first, last) : encoded_size<false>(first, last);
}

KT_SSE std::size_t encode_kernel(char* out, const char* first, const char* last, bool all) {
    return all ? encode<true>(out, first, last) : encode<false>(out, first, last);
}

// The decoder's digit values of 16 bytes (see kHexValues).
KT_SSE inline __m128i hex_values(__m128i c) {
    const __m128i digit = _mm_sub_epi8(c, bytes('0'));
    const __m128i is_digit = _mm_cmpeq_epi8(_mm_min_epu8(digit, bytes(9)), digit);
    // Setting bit 5 folds "A" to "F" onto "a" to "f" and nothing else onto them.
    const __m128i letter = _mm_sub_epi8(_mm_or_si128(c, bytes(0x20)), bytes('a'));
    const __m128i is_letter = _mm_cmpeq_epi8(_mm_min_epu8(letter, bytes(5)), letter);
    return _mm_or_si128(_mm_and_si128(is_digit, digit),
                        _mm_and_si128(is_letter, _mm_add_epi8(letter, bytes(10))));
}

// The escape values of the 16 positions whose bytes are v0 and whose next
// two bytes are v1 and v2: digit values * 16 + digit values, 0 for none.
KT_SSE inline __m128i escape_values(__m128i v1, __m128i v2) {
    // Each digit value is below 16, so the 16-bit shift keeps to its byte.
    return _mm_or_si128(_mm_slli_epi16(hex_values(v1), 4), hex_values(v2));
}

// Writes the bytes of `v` whose bits are set in `keep` (16 bits), in order;
// stores 8 bytes per half.
KT_SSE inline char* compact(char* o, __m128i v, unsigned keep) {
    const unsigned low = keep & 0xFF, high = (keep >> 8) & 0xFF;
    _mm_storel_epi64(reinterpret_cast<__m128i*>(o),
                     _mm_shuffle_epi8(v, _mm_cvtsi64_si128(std::int64_t(kCompaction[low]))));
    o += _mm_popcnt_u32(low);
    _mm_storel_epi64(
        reinterpret_cast<__m128i*>(o),
        _mm_shuffle_epi8(_mm_srli_si128(v, 8), _mm_cvtsi64_si128(std::int64_t(kCompaction[high]))));
    return o + _mm_popcnt_u32(high);
}

// Whether two candidate escapes lie within two bytes of each other: then the
// first may swallow the second, and only the plain rules can tell.
inline bool overlapping(std::uint64_t candidates) {
    return (candidates & ((candidates << 1) | (candidates << 2))) != 0;
}

// Decodes the 16 positions whose bytes are v0 (the next two bytes of each
// are v1 and v2) when `candidates` (the positions that hold "%" with a
// non-zero value, among those allowed to start an escape) do not overlap.
// Keeps the positions in `present` that no escape swallows; returns the
// number of positions after the block that the last escape swallowed.
KT_SSE inline std::size_t decode_block(char*& o, __m128i v0, __m128i values, unsigned candidates,
                                       unsigned present) {
    const __m128i starts = _mm_andnot_si128(_mm_cmpeq_epi8(values, _mm_setzero_si128()),
                                            _mm_cmpeq_epi8(v0, bytes('%')));
    // Where an escape starts, its value; elsewhere the byte.
    const __m128i result =
        _mm_or_si128(_mm_and_si128(starts, values), _mm_andnot_si128(starts, v0));
    const unsigned swallowed = (candidates << 1) | (candidates << 2);
    o = compact(o, result, ~swallowed & present);
    return std::size_t(_mm_popcnt_u32(swallowed >> 16));
}

// The bytes from `p` to `last`, fewer than 18, of a text that starts at
// `first`.
KT_SSE inline void decode_tail(char*& o, const char* p, const char* last, const char* first) {
    const std::size_t count = std::size_t(last - p);
    __m128i v0, v1, v2;
    if (count >= 16) {
        // The bytes after the block: one, or none.
        const __m128i after = _mm_cvtsi32_si128(count > 16 ? std::uint8_t(p[16]) : 0);
        v0 = load(p);
        v1 = _mm_alignr_epi8(after, v0, 1);
        v2 = _mm_alignr_epi8(after, v0, 2);
    } else {
        v0 = load_tail(p, count, first);
        v1 = _mm_srli_si128(v0, 1);
        v2 = _mm_srli_si128(v0, 2);
    }
    // Only a position with two bytes after it in the text starts an escape:
    // the values of the others are cleared.
    const __m128i positions = _mm_setr_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
    const __m128i allowed = _mm_cmplt_epi8(positions, bytes(char(count > 2 ? count - 2 : 0)));
    const __m128i values = _mm_and_si128(allowed, escape_values(v1, v2));
    const unsigned candidates = mask_of(_mm_cmpeq_epi8(v0, bytes('%'))) &
                                ~mask_of(_mm_cmpeq_epi8(values, _mm_setzero_si128()));
    if (overlapping(candidates)) {
        p = decode_scalar_until(o, p, last - 2);
    } else {
        const std::size_t in_block = count < 16 ? count : 16;
        p += in_block + decode_block(o, v0, values, candidates, (1u << in_block) - 1);
    }
    // What is left cannot start an escape: it is copied.
    while (p < last) *o++ = *p++;
}

// Decodes a block of Width positions at p whose "%" are the bits of
// `percents` by the plain rules, one "%" at a time, where escapes are few:
// each run between them is copied by one move of Width bytes (in the
// registers of the kernel it is inlined into) instead of the whole block
// being compacted. Needs 2 * Width + 2 bytes readable at p; returns the
// position after the block and what its last escape took.
template <std::size_t Width>
inline const char* decode_sparse(char*& o, const char* p, std::uint32_t percents) {
    const auto copy = [](char* to, const char* from) { std::memcpy(to, from, Width); };
    char* out = o;
    std::size_t run = 0;  // where the run being copied starts, from p
    copy(out, p);
    do {
        const std::size_t at = std::size_t(__builtin_ctz(percents));
        percents &= percents - 1;
        if (at < run) continue;  // a digit of the escape before
        out += at - run;
        const unsigned value = kHexValues[static_cast<unsigned char>(p[at + 1])] * 16u +
                               kHexValues[static_cast<unsigned char>(p[at + 2])];
        // A "%" worth 0 is kept, and the bytes after it are read as text.
        *out++ = char(value != 0 ? value : '%');
        run = at + (value != 0 ? 3 : 1);
        copy(out, p + run);
    } while (percents != 0);
    if (run > Width) {
        o = out;
        return p + run;
    }
    o = out + (Width - run);
    return p + Width;
}

// Decodes the 16 positions at p, with 18 bytes readable there (`room` in
// all); returns the position after what they took.
KT_SSE inline const char* decode_16(char*& o, const char* p, std::size_t room) {
    const __m128i v0 = load(p);
    const unsigned percents = mask_of(_mm_cmpeq_epi8(v0, bytes('%')));
    if (percents == 0) {
        store(o, v0);
        o += 16;
        return p + 16;
    }
    if ((percents & (percents - 1)) == 0 && room >= 34)
        return decode_sparse<16>(o, p, percents);
    const __m128i values = escape_values(load(p + 1), load(p + 2));
    const unsigned candidates =
        percents & ~mask_of(_mm_cmpeq_epi8(values, _mm_setzero_si128()));
    if (overlapping(candidates)) return decode_scalar_until(o, p, p + 16);
    return p + 16 + decode_block(o, v0, values, candidates, 0xFFFF);
}

KT_SSE std::size_t decode_kernel(char* out, const char* first, const char* last) {
    char* o = out;
    const char* p = first;
    while (last - p >= 18) p = decode_16(o, p, std::size_t(last - p));
    if (p < last) decode_tail(o, p, last, first);
    return std::size_t(o - out);
}

// The delimiter bits of the 16 bytes of chunk `chunk`, into their quarter
// of each row's word; the first `skipped` lanes of `v` hold bytes before the
// chunk, and are left out.
KT_SSE inline void mark_delimiters(__m128i v, std::size_t chunk, delimiter_masks& masks,
                                   unsigned skipped = 0) {
    const std::size_t word = chunk / 4;
    const int shift = int(chunk % 4) * 16;
    for (int d = 0; d < kDelimiterCount; ++d) {
        const std::uint64_t bits =
            mask_of(_mm_cmpeq_epi8(v, bytes(kDelimiterBytes[d]))) >> skipped;
        if (shift == 0)
            masks.rows[d][word] = bits;
        else
            masks.rows[d][word] |= bits << shift;
    }
}

KT_SSE void find_delimiters_kernel(const char* text, std::size_t length,
                                   delimiter_masks& masks) {
    if (length < 16) {
        mark_delimiters(load_short(text, length), 0, masks);
        return;
    }
    std::size_t chunk = 0;
    for (; 16 * (chunk + 1) <= length; ++chunk)
        mark_delimiters(load(text + 16 * chunk), chunk, masks);
    const std::size_t rest = length - 16 * chunk;
    // The last 16 bytes, of which the first 16 - rest were marked already.
    if (rest > 0) mark_delimiters(load(text + length - 16), chunk, masks, 16 - rest);
}

}  // namespace sse

// ---------------------------------------------------------------- AVX2

namespace avx2 {

KT_AVX2 inline __m256i load(const void* p) {
    return _mm256_loadu_si256(static_cast<const __m256i*>(p));
}
KT_AVX2 inline void store(void* p, __m256i v) {
    _mm256_storeu_si256(static_cast<__m256i*>(p), v);
}
KT_AVX2 inline __m256i bytes(char c) { return _mm256_set1_epi8(c); }
KT_AVX2 inline std::uint32_t mask_of(__m256i v) { return std::uint32_t(_mm256_movemask_epi8(v)); }
KT_AVX2 inline __m256i table(const void* p) {
    return _mm256_broadcastsi128_si256(_mm_loadu_si128(static_cast<const __m128i*>(p)));
}
KT_AVX2 inline __m128i low_half(__m256i v) { return _mm256_castsi256_si128(v); }
KT_AVX2 inline __m128i high_half(__m256i v) { return _mm256_extracti128_si256(v, 1); }

template <bool EscapeAllSlashes>
KT_AVX2 inline std::uint32_t escapes(__m256i v, unsigned& carry) {
    const __m256i low = _mm256_and_si256(v, bytes(15));
    const __m256i high = _mm256_and_si256(_mm256_srli_epi16(v, 4), bytes(15));
    const __m256i classes = _mm256_and_si256(_mm256_shuffle_epi8(table(kUnreserved.low), low),
                                             _mm256_shuffle_epi8(table(kUnreserved.high), high));
    std::uint32_t escaped = mask_of(_mm256_cmpeq_epi8(classes, _mm256_setzero_si256()));
    if (!EscapeAllSlashes) {
        const std::uint32_t slashes = mask_of(_mm256_cmpeq_epi8(v, bytes('/')));
        escaped &= ~(slashes & ~((slashes << 1) | carry));
        carry = slashes >> 31;
    }
    return escaped;
}

template <bool EscapeAllSlashes>
KT_AVX2 std::size_t encoded_size(const char* first, const char* last) {
    std::size_t size = std::size_t(last - first);
    unsigned carry = 0;
    const char* p = first;
    for (; last - p >= 32; p += 32)
        size += 2 * std::size_t(_mm_popcnt_u32(escapes<EscapeAllSlashes>(load(p), carry)));
    for (; last - p >= 16; p += 16)
        size += 2 * std::size_t(
                        _mm_popcnt_u32(sse::escapes<EscapeAllSlashes>(sse::load(p), carry)));
    if (p < last) {
        const std::size_t count = std::size_t(last - p);
        const unsigned escaped =
            sse::escapes<EscapeAllSlashes>(sse::load_tail(p, count, first), carry);
        size += 2 * std::size_t(_mm_popcnt_u32(escaped & ((1u << count) - 1)));
    }
    return size;
}

template <bool EscapeAllSlashes>
KT_AVX2 std::size_t encode(char* out, const char* first, const char* last) {
    char* o = out;
    unsigned carry = 0;
    const char* p = first;
    for (; last - p >= 32; p += 32) {
        const __m256i v = load(p);
        const std::uint32_t escaped = escapes<EscapeAllSlashes>(v, carry);
        if (escaped == 0) {
            store(o, v);
            o += 32;
        } else {
            o = sse::encode_block(o, low_half(v), escaped & 0xFFFF);
            o = sse::encode_block(o, high_half(v), escaped >> 16);
        }
    }
    for (; last - p >= 16; p += 16) {
        const __m128i v = sse::load(p);
        o = sse::encode_block(o, v, sse::escapes<EscapeAllSlashes>(v, carry));
    }
    if (p < last) o = sse::encode_tail<EscapeAllSlashes>(o, p, std::size_t(last - p), carry, first);
    return std::size_t(o - out);
}

KT_AVX2 std::size_t encoded_size_kernel(const char* first, const char* last, bool all) {
    return all ? encoded_size<true>(first, last) : encoded_size<false>(first, last);
}

KT_AVX2 std::size_t encode_kernel(char* out, const char* first, const char* last, bool all) {
    return all ? encode<true>(out, first, last) : encode<false>(out, first, last);
}

KT_AVX2 inline __m256i hex_values(__m256i c) {
    const __m256i digit = _mm256_sub_epi8(c, bytes('0'));
    const __m256i is_digit = _mm256_cmpeq_epi8(_mm256_min_epu8(digit, bytes(9)), digit);
    const __m256i letter = _mm256_sub_epi8(_mm256_or_si256(c, bytes(0x20)), bytes('a'));
    const __m256i is_letter = _mm256_cmpeq_epi8(_mm256_min_epu8(letter, bytes(5)), letter);
    return _mm256_or_si256(_mm256_and_si256(is_digit, digit),
                           _mm256_and_si256(is_letter, _mm256_add_epi8(letter, bytes(10))));
}

// Decodes the 32 positions at p, with 34 bytes readable there; returns the
// position after what they took.
KT_AVX2 inline const char* decode_32(char*& o, const char* p, std::size_t room) {
    const __m256i v0 = load(p);
    const std::uint32_t percents = mask_of(_mm256_cmpeq_epi8(v0, bytes('%')));
    if (percents == 0) {
        store(o, v0);
        o += 32;
        return p + 32;
    }
    if (_mm_popcnt_u32(percents) <= 2 && room >= 66)
        return sse::decode_sparse<32>(o, p, percents);
    const __m256i values = _mm256_or_si256(_mm256_slli_epi16(hex_values(load(p + 1)), 4),
                                           hex_values(load(p + 2)));
    const std::uint32_t candidates =
        percents & ~mask_of(_mm256_cmpeq_epi8(values, _mm256_setzero_si256()));
    if (sse::overlapping(candidates)) return decode_scalar_until(o, p, p + 32);
    const __m256i starts = _mm256_andnot_si256(_mm256_cmpeq_epi8(values, _mm256_setzero_si256()),
                                               _mm256_cmpeq_epi8(v0, bytes('%')));
    const __m256i result =
        _mm256_or_si256(_mm256_and_si256(starts, values), _mm256_andnot_si256(starts, v0));
    const std::uint64_t swallowed =
        (std::uint64_t(candidates) << 1) | (std::uint64_t(candidates) << 2);
    const std::uint32_t keep = ~std::uint32_t(swallowed);
    o = sse::compact(o, low_half(result), keep & 0xFFFF);
    o = sse::compact(o, high_half(result), keep >> 16);
    return p + 32 + std::size_t(_mm_popcnt_u64(swallowed >> 32));
}

KT_AVX2 std::size_t decode_kernel(char* out, const char* first, const char* last) {
    char* o = out;
    const char* p = first;
    while (last - p >= 34) p = decode_32(o, p, std::size_t(last - p));
    while (last - p >= 18) p = sse::decode_16(o, p, std::size_t(last - p));
    if (p < last) sse::decode_tail(o, p, last, first);
    return std::size_t(o - out);
}

KT_AVX2 inline void mark_delimiters(__m256i v, std::size_t chunk, delimiter_masks& masks,
                                    unsigned skipped = 0) {
    const std::size_t word = chunk / 2;
    const bool high = chunk % 2 != 0;
    for (int d = 0; d < kDelimiterCount; ++d) {
        const std::uint64_t bits =
            mask_of(_mm256_cmpeq_epi8(v, bytes(kDelimiterBytes[d]))) >> skipped;
        if (high)
            masks.rows[d][word] |= bits << 32;
        else
            masks.rows[d][word] = bits;
    }
}

KT_AVX2 void find_delimiters_kernel(const char* text, std::size_t length,
                                    delimiter_masks& masks) {
    if (length < 32) {
        sse::find_delimiters_kernel(text, length, masks);
        return;
    }
    std::size_t chunk = 0;
    for (; 32 * (chunk + 1) <= length; ++chunk)
        mark_delimiters(load(text + 32 * chunk), chunk, masks);
    const std::size_t rest = length - 32 * chunk;
    if (rest > 0) mark_delimiters(load(text + length - 32), chunk, masks, unsigned(32 - rest));
}

}  // namespace avx2

// ---------------------------------------------------------------- AVX-512

// AVX-512 BW and VBMI2: 64 bytes at a time, with byte masks. A masked load
// reads only the bytes its mask selects, so the last bytes of a text need no
// other path, and a compression gathers the kept bytes of a block in one
// instruction. Encoding keeps the AVX2 kernels.
namespace avx512 {

KT_AVX512 inline __m512i bytes(char c) { return _mm512_set1_epi8(c); }

// A mask of the first `count` lanes, count <= 64.
KT_AVX512 inline __mmask64 first_lanes(std::size_t count) {
    return __mmask64(_bzhi_u64(~std::uint64_t(0), unsigned(count)));
}

// The `count` <= 64 bytes at p, zeros after them.
KT_AVX512 inline __m512i load(const char* p, std::size_t count) {
    return _mm512_maskz_loadu_epi8(first_lanes(count), p);
}

KT_AVX512 inline __m512i hex_values(__m512i c) {
    const __m512i digit = _mm512_sub_epi8(c, bytes('0'));
    const __mmask64 is_digit = _mm512_cmple_epu8_mask(digit, bytes(9));
    const __m512i letter = _mm512_sub_epi8(_mm512_or_si512(c, bytes(0x20)), bytes('a'));
    const __mmask64 is_letter = _mm512_cmple_epu8_mask(letter, bytes(5));
    return _mm512_mask_add_epi8(_mm512_maskz_mov_epi8(is_digit, digit), is_letter, letter,
                                bytes(10));
}

// The blocks lie 64 bytes apart whatever their escapes do, so that the
// loads and digit values of one block do not wait for the block before it:
// the positions at the start of a block that the last escape of the block
// before swallowed are carried over as a mask. The last block is stored
// through a mask: this kernel writes no byte past its result.
KT_AVX512 std::size_t decode_kernel(char* out, const char* first, const char* last) {
    char* o = out;
    std::uint64_t swallowed = 0;  // by the block before, at the start of this one
    for (const char* p = first; p < last; p += 64) {
        const std::size_t left = std::size_t(last - p);
        const std::size_t count = left < 64 ? left : 64;
        const __m512i v0 = load(p, count);
        const std::uint64_t percents = _mm512_cmpeq_epi8_mask(v0, bytes('%')) & ~swallowed;
        std::uint64_t candidates = 0;
        __m512i values = _mm512_setzero_si512();
        if (percents != 0) {
            // Only a position with two bytes after it in the text starts an
            // escape.
            const std::size_t starts = std::min<std::size_t>(left > 2 ? left - 2 : 0, 64);
            const __m512i high = hex_values(load(p + 1, std::min<std::size_t>(left - 1, 64)));
            values = _mm512_or_si512(_mm512_slli_epi16(high, 4), hex_values(load(p + 2, starts)));
            candidates = percents & _mm512_test_epi8_mask(values, values) & first_lanes(starts);
            if (sse::overlapping(candidates)) {
                // The plain rules, from the first position not swallowed up
                // to the block's end (or the text's, when it ends here).
                const char* from = p + _mm_popcnt_u64(swallowed);
                if (left >= 66) {
                    const char* reached = decode_scalar_until(o, from, p + 64);
                    swallowed = (std::uint64_t(1) << (reached - (p + 64))) - 1;
                    continue;
                }
                from = decode_scalar_until(o, from, last - 2);
                while (from < last) *o++ = *from++;
                break;
            }
        }
        const std::uint64_t keep =
            first_lanes(count) & ~swallowed & ~((candidates << 1) | (candidates << 2));
        const __m512i kept =
            _mm512_maskz_compress_epi8(keep, _mm512_mask_mov_epi8(v0, candidates, values));
        const std::size_t written = std::size_t(_mm_popcnt_u64(keep));
        if (count == 64)
            _mm512_storeu_si512(o, kept);
        else
            _mm512_mask_storeu_epi8(o, first_lanes(written), kept);
        o += written;
        // The last escape swallows 1 (bit 62) or 2 (bit 63) positions of the
        // next block: candidates do not overlap, so not both bits are set.
        swallowed = (std::uint64_t(1) << (candidates >> 62)) - 1;
    }
    return std::size_t(o - out);
}

KT_AVX512 void find_delimiters_kernel(const char* text, std::size_t length,
                                      delimiter_masks& masks) {
    for (std::size_t word = 0; 64 * word < length; ++word) {
        const std::size_t rest = length - 64 * word;
        const __m512i v = load(text + 64 * word, rest < 64 ? rest : 64);
        for (int d = 0; d < kDelimiterCount; ++d)
            masks.rows[d][word] = _mm512_cmpeq_epi8_mask(v, bytes(kDelimiterBytes[d]));
    }
}

}  // namespace avx512

}  // namespace

const kernel_set kSseKernels = {url_kernel::sse,     sse::encoded_size_kernel,
                                sse::encode_kernel,  kKernelSlack,
                                sse::decode_kernel,  kKernelSlack,
                                sse::find_delimiters_kernel};

const kernel_set kAvx2Kernels = {url_kernel::avx2,    avx2::encoded_size_kernel,
                                 avx2::encode_kernel, kKernelSlack,
                                 avx2::decode_kernel, kKernelSlack,
                                 avx2::find_delimiters_kernel};

const kernel_set kAvx512Kernels = {url_kernel::avx512,    avx2::encoded_size_kernel,
                                   avx2::encode_kernel,   kKernelSlack,
                                   avx512::decode_kernel, 0,
                                   avx512::find_delimiters_kernel};

}  // namespace url_detail
}  // namespace ktbase

#endif  // KT_URL_X86
