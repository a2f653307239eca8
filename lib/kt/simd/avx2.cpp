// The AVX2 kernels: 32 bytes at a time, with 16-byte steps (SSE
// instructions) for the tails and short texts.
//
// Each URL kernel gives the scalar results by construction: it classifies
// a block of bytes at once, writes a block that needs no change as one copy,
// applies the scalar rules to the bytes of a block in vector form (the last
// bytes of a text padded with zeros that count as nothing), and hands the
// one case its block logic does not cover, an escape that may swallow the
// "%" of the next, to the scalar loop.
#include "simd/avx2.h"

#ifdef KT_SIMD_X86

#include <immintrin.h>

#include <array>
#include <cstdint>
#include <cstring>

#include "hex_digits.h"
#include "simd/scalar.h"
#include "simd/vector_tables.h"
#include "url_delimiters.h"
#include "url_unreserved.h"

namespace KT {
namespace simd {
namespace avx2 {

using ktbase::url_detail::delimiter_masks;
using ktbase::url_detail::is_unreserved;
using ktbase::url_detail::kDelimiterBytes;
using ktbase::url_detail::kDelimiterCount;

namespace {

// ---------------------------------------------------------------- URL tables

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

// ---------------------------------------------------------------- 32 bytes

KT_AVX2 inline __m256i load(const void* p) {
    return _mm256_loadu_si256(static_cast<const __m256i*>(p));
}
KT_AVX2 inline void store(void* p, __m256i v) { _mm256_storeu_si256(static_cast<__m256i*>(p), v); }
KT_AVX2 inline __m256i bytes(char c) { return _mm256_set1_epi8(c); }
KT_AVX2 inline std::uint32_t mask_of(__m256i v) { return std::uint32_t(_mm256_movemask_epi8(v)); }
KT_AVX2 inline __m256i table(const void* p) {
    return _mm256_broadcastsi128_si256(_mm_loadu_si128(static_cast<const __m128i*>(p)));
}
KT_AVX2 inline __m128i low_half(__m256i v) { return _mm256_castsi256_si128(v); }
KT_AVX2 inline __m128i high_half(__m256i v) { return _mm256_extracti128_si256(v, 1); }

// The digit values of 32 characters, 0 for those that are not hex digits;
// `valid` gets 0xFF where a character is a digit and 0 where it is not.
KT_AVX2 inline __m256i hex_digit_values(__m256i chars, __m256i& valid) {
    const __m256i digit = _mm256_sub_epi8(chars, bytes('0'));
    const __m256i is_digit = _mm256_cmpeq_epi8(_mm256_min_epu8(digit, bytes(9)), digit);
    // Setting bit 5 folds "A" to "F" onto "a" to "f" and nothing else onto them.
    const __m256i letter = _mm256_sub_epi8(_mm256_or_si256(chars, bytes(0x20)), bytes('a'));
    const __m256i is_letter = _mm256_cmpeq_epi8(_mm256_min_epu8(letter, bytes(5)), letter);
    valid = _mm256_or_si256(is_digit, is_letter);
    return _mm256_or_si256(_mm256_and_si256(is_digit, digit),
                           _mm256_and_si256(is_letter, _mm256_add_epi8(letter, bytes(10))));
}

// The escape values of the positions whose next two bytes are v1 and v2:
// digit values * 16 + digit values, where a byte that is no digit counts as
// 0 (see scalar::kEscapeDigitValues).
KT_AVX2 inline __m256i escape_values(__m256i v1, __m256i v2) {
    __m256i valid;  // unused: a byte that is no digit counts as 0
    // Each digit value is below 16, so the 16-bit shift keeps to its byte.
    return _mm256_or_si256(_mm256_slli_epi16(hex_digit_values(v1, valid), 4),
                           hex_digit_values(v2, valid));
}

// ---------------------------------------------------------------- 16 bytes

namespace sse {

KT_AVX2 inline __m128i load(const void* p) {
    return _mm_loadu_si128(static_cast<const __m128i*>(p));
}
KT_AVX2 inline void store(void* p, __m128i v) { _mm_storeu_si128(static_cast<__m128i*>(p), v); }
KT_AVX2 inline __m128i bytes(char c) { return _mm_set1_epi8(c); }
KT_AVX2 inline unsigned mask_of(__m128i v) { return unsigned(_mm_movemask_epi8(v)); }

// The r < 16 bytes at p in lanes 0 to r - 1, zeros above; reads no byte
// outside them. Short texts only: longer ones use load_tail().
KT_AVX2 inline __m128i load_short(const char* p, std::size_t r) {
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
KT_AVX2 inline __m128i load_tail(const char* p, std::size_t r, const char* first) {
    if (std::size_t(p + r - first) >= 16)
        return _mm_shuffle_epi8(load(p + r - 16), load(kEndToFront + 16 - r));
    return load_short(p, r);
}

// Bit k set where byte k of `v` is escaped. `carry` says whether the byte
// before the block was "/", and is set to whether its last byte is: with
// slashes kept, the first "/" of a run stays.
template <bool EscapeAllSlashes>
KT_AVX2 inline unsigned escapes(__m128i v, unsigned& carry) {
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
KT_AVX2 inline char* expand(char* o, __m128i v, unsigned escaped, int groups) {
    const __m128i digits = load(kLowerHexDigits);
    const __m128i low = _mm_shuffle_epi8(digits, _mm_and_si128(v, bytes(15)));
    const __m128i high = _mm_shuffle_epi8(digits, _mm_and_si128(_mm_srli_epi16(v, 4), bytes(15)));
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
KT_AVX2 inline char* encode_block(char* o, __m128i v, unsigned escaped) {
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
KT_AVX2 inline char* encode_tail(char* o, const char* p, std::size_t count, unsigned carry,
                                 const char* first) {
    const __m128i v = load_tail(p, count, first);
    // The padding counts as kept: its bytes land after the code, in the slack.
    const unsigned escaped = escapes<EscapeAllSlashes>(v, carry) & ((1u << count) - 1);
    expand(o, v, escaped, int(count + 3) / 4);
    return o + count + 2 * std::size_t(_mm_popcnt_u32(escaped));
}

// The escape values of 16 positions, as avx2::escape_values() gives them.
KT_AVX2 inline __m128i escape_values(__m128i v1, __m128i v2) {
    return low_half(avx2::escape_values(_mm256_castsi128_si256(v1), _mm256_castsi128_si256(v2)));
}

// Writes the bytes of `v` whose bits are set in `keep` (16 bits), in order;
// stores 8 bytes per half.
KT_AVX2 inline char* compact(char* o, __m128i v, unsigned keep) {
    const unsigned low = keep & 0xFF, high = (keep >> 8) & 0xFF;
    _mm_storel_epi64(reinterpret_cast<__m128i*>(o),
                     _mm_shuffle_epi8(v, _mm_cvtsi64_si128(std::int64_t(kCompaction[low]))));
    o += _mm_popcnt_u32(low);
    _mm_storel_epi64(
        reinterpret_cast<__m128i*>(o),
        _mm_shuffle_epi8(_mm_srli_si128(v, 8), _mm_cvtsi64_si128(std::int64_t(kCompaction[high]))));
    return o + _mm_popcnt_u32(high);
}

// Decodes the 16 positions whose bytes are v0 (the next two bytes of each
// are v1 and v2) when `candidates` (the positions that hold "%" with a
// non-zero value, among those allowed to start an escape) do not overlap.
// Keeps the positions in `present` that no escape swallows; returns the
// number of positions after the block that the last escape swallowed.
KT_AVX2 inline std::size_t decode_block(char*& o, __m128i v0, __m128i values, unsigned candidates,
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
KT_AVX2 inline void decode_tail(char*& o, const char* p, const char* last, const char* first) {
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
        p = scalar::url_decode_until(o, p, last - 2);
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
        const unsigned value = scalar::escape_value(p + at + 1);
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

// Decodes the 16 positions at p, with 18 bytes readable there; returns the
// position after what they took. It runs only on the last 18 to 33 bytes of
// a text, too few for decode_sparse().
KT_AVX2 inline const char* decode_16(char*& o, const char* p) {
    const __m128i v0 = load(p);
    const unsigned percents = mask_of(_mm_cmpeq_epi8(v0, bytes('%')));
    if (percents == 0) {
        store(o, v0);
        o += 16;
        return p + 16;
    }
    const __m128i values = escape_values(load(p + 1), load(p + 2));
    const unsigned candidates = percents & ~mask_of(_mm_cmpeq_epi8(values, _mm_setzero_si128()));
    if (overlapping(candidates)) return scalar::url_decode_until(o, p, p + 16);
    return p + 16 + decode_block(o, v0, values, candidates, 0xFFFF);
}

// of each row's word; the first `skipped` lanes of `v` hold bytes before the
// chunk, and are left out.
KT_AVX2 inline void mark_delimiters(__m128i v, std::size_t chunk, delimiter_masks& masks,
                                    unsigned skipped = 0) {
    const std::size_t word = chunk / 4;
    const int shift = int(chunk % 4) * 16;
    for (int d = 0; d < kDelimiterCount; ++d) {
        const std::uint64_t bits = mask_of(_mm_cmpeq_epi8(v, bytes(kDelimiterBytes[d]))) >> skipped;
        if (shift == 0)
            masks.rows[d][word] = bits;
        else
            masks.rows[d][word] |= bits << shift;
    }
}

KT_AVX2 void find_delimiters(const char* text, std::size_t length, delimiter_masks& masks) {
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

// ---------------------------------------------------------------- codecs

// The digit values of the 64 characters at `in`, in `first` and `second`;
// false when one of them is not a digit.
KT_AVX2 inline bool hex_digit_values(const std::uint8_t* in, __m256i& first, __m256i& second) {
    __m256i valid0, valid1;
    first = hex_digit_values(load(in), valid0);
    second = hex_digit_values(load(in + 32), valid1);
    return _mm256_movemask_epi8(_mm256_and_si256(valid0, valid1)) == -1;
}

KT_AVX2 void hex_encode(const std::uint8_t* in, std::size_t n, std::uint8_t* out) {
    const __m256i digits = table(kUpperHexDigits);
    std::size_t i = 0;
    for (; i + 32 <= n; i += 32) {
        // Quadwords in the order 0 2 1 3: the in-lane interleave below then
        // writes the digits of bytes 0-15, and of 16-31, contiguously.
        __m256i in32 = _mm256_permute4x64_epi64(load(in + i), 0xD8);
        __m256i high = _mm256_and_si256(_mm256_srli_epi16(in32, 4), bytes(15));
        __m256i low = _mm256_and_si256(in32, bytes(15));
        high = _mm256_shuffle_epi8(digits, high);
        low = _mm256_shuffle_epi8(digits, low);
        store(out + 2 * i, _mm256_unpacklo_epi8(high, low));
        store(out + 2 * i + 32, _mm256_unpackhi_epi8(high, low));
    }
    scalar::hex_encode(in + i, n - i, out + 2 * i);
}

KT_AVX2 void hex_decode(const std::uint8_t* in, std::size_t pairs, std::uint8_t* out) {
    // Each 16-bit lane of digit values (first, second) becomes first * 16 + second.
    const __m256i weights = _mm256_set1_epi16(0x0110);
    std::size_t i = 0;
    while (i + 32 <= pairs) {
        // A run of regular blocks (no call inside, so the constants stay in
        // registers), then the irregular block that ended it, if any.
        __m256i values0, values1;
        for (; i + 32 <= pairs && hex_digit_values(in + 2 * i, values0, values1); i += 32) {
            __m256i packed = _mm256_packus_epi16(_mm256_maddubs_epi16(values0, weights),
                                                 _mm256_maddubs_epi16(values1, weights));
            // The pack works per lane: quadwords 0 2 1 3 restore the byte order.
            store(out + i, _mm256_permute4x64_epi64(packed, 0xD8));
        }
        if (i + 32 <= pairs) {
            scalar::hex_decode(in + 2 * i, 32, out + i);
            i += 32;
        }
    }
    scalar::hex_decode(in + 2 * i, pairs - i, out + i);
}

// ---------------------------------------------------------------- Base64

// The alphabet characters for 32 six-bit values. The values fall into
// runs whose characters differ from them by one offset each: A-Z, a-z, each
// digit, "+" and "/"; a run number picks the offset from a table.
KT_AVX2 inline __m256i base64_chars(__m256i sextets) {
    static constexpr char kOffsets[16] = {
        'A',      'a' - 26, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52,
        '0' - 52, '0' - 52, '0' - 52, '0' - 52, '+' - 62, '/' - 63, 0,        0};
    // 0 for A-Z; 1 for a-z; 2 to 11 for the digits; 12 and 13 for "+" and "/".
    __m256i run = _mm256_subs_epu8(sextets, bytes(51));
    run = _mm256_sub_epi8(run, _mm256_cmpgt_epi8(sextets, bytes(25)));
    return _mm256_add_epi8(sextets, _mm256_shuffle_epi8(table(kOffsets), run));
}

// The six-bit values of 32 Base64 characters, in `values`; false when one
// of them is "=" or outside the alphabet.
KT_AVX2 inline bool base64_values(__m256i chars, __m256i& values) {
    // A character is in the alphabet when its high nibble is among those
    // allowed for its low nibble: one bit per high nibble 0 to 7 (bytes from
    // 0x80 have none: the shuffle gives 0 for them).
    static constexpr char kHighNibblesByLow[16] = {char(0xA8), char(0xF8), char(0xF8), char(0xF8),
                                                   char(0xF8), char(0xF8), char(0xF8), char(0xF8),
                                                   char(0xF8), char(0xF8), char(0xF0), char(0x54),
                                                   char(0x50), char(0x50), char(0x50), char(0x54)};
    static constexpr char kHighNibbleBit[16] = {1, 2, 4, 8, 16, 32, 64, char(128),
                                                0, 0, 0, 0, 0,  0,  0,  0};
    // Value minus character, by high nibble; "/" borrows the unused slot 1.
    static constexpr char kOffsets[16] = {
        0, 63 - '/', 62 - '+', 52 - '0', -'A', -'A', 26 - 'a', 26 - 'a', 0, 0, 0, 0, 0, 0, 0, 0};
    __m256i high = _mm256_and_si256(_mm256_srli_epi16(chars, 4), bytes(15));
    __m256i allowed = _mm256_and_si256(_mm256_shuffle_epi8(table(kHighNibblesByLow), chars),
                                       _mm256_shuffle_epi8(table(kHighNibbleBit), high));
    if (_mm256_movemask_epi8(_mm256_cmpeq_epi8(allowed, _mm256_setzero_si256())) != 0) return false;
    __m256i slot = _mm256_add_epi8(high, _mm256_cmpeq_epi8(chars, bytes('/')));
    values = _mm256_add_epi8(chars, _mm256_shuffle_epi8(table(kOffsets), slot));
    return true;
}

KT_AVX2 std::size_t base64_encode(const std::uint8_t* in, std::size_t n, std::uint8_t* out) {
    // Per lane, the three bytes b0 b1 b2 of each group go to a 32-bit word as
    // b1 b0 b2 b1: its low half then holds the first two sextets at bits
    // 10-15 and 4-9, its high half the last two at bits 6-11 and 0-5.
    const __m256i spread = _mm256_setr_epi8(1, 0, 2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10, 1, 0,
                                            2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10);
    std::uint8_t* start = out;
    std::size_t i = 0;
    // Each lane loads 16 bytes and uses 12; the loop stops while the load
    // of the second lane still ends inside the input.
    for (; i + 28 <= n; i += 24, out += 32) {
        __m256i in24 = _mm256_inserti128_si256(
            _mm256_castsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(in + i))),
            _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + i + 12)), 1);
        __m256i words = _mm256_shuffle_epi8(in24, spread);
        // Shift each sextet to the bottom of its byte: right by 10 and 6 as
        // the high half of a product, left by 4 and 8 as the low half.
        __m256i right = _mm256_mulhi_epu16(_mm256_and_si256(words, _mm256_set1_epi32(0x0FC0FC00)),
                                           _mm256_set1_epi32(0x04000040));
        __m256i left = _mm256_mullo_epi16(_mm256_and_si256(words, _mm256_set1_epi32(0x003F03F0)),
                                          _mm256_set1_epi32(0x01000010));
        store(out, base64_chars(_mm256_or_si256(right, left)));
    }
    return std::size_t(out - start) + scalar::base64_encode(in + i, n - i, out);
}

KT_AVX2 std::size_t base64_decode(const std::uint8_t* in, std::size_t n, std::uint8_t* out) {
    // Four sextets v0 v1 v2 v3 become v0 * 64 + v1 and v2 * 64 + v3, then the
    // 24-bit v0 v1 v2 v3; the shuffle takes its bytes high first, 12 per lane.
    const __m256i pairWeights = _mm256_set1_epi32(0x01400140);
    const __m256i wordWeights = _mm256_set1_epi32(0x00011000);
    const __m256i order = _mm256_setr_epi8(2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1,
                                           2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1);
    const __m256i joinLanes = _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 3, 7);
    std::uint8_t* start = out;
    std::size_t i = 0;
    while (i + 32 <= n) {
        // A run of regular blocks (no call inside, so the constants stay in
        // registers), then the irregular block that ended it, if any.
        __m256i values;
        for (; i + 32 <= n && base64_values(load(in + i), values); i += 32, out += 24) {
            __m256i words = _mm256_maddubs_epi16(values, pairWeights);
            words = _mm256_madd_epi16(words, wordWeights);
            __m256i decoded =
                _mm256_permutevar8x32_epi32(_mm256_shuffle_epi8(words, order), joinLanes);
            // Every block gives at least 8 bytes: when another follows, it
            // overwrites the spare quarter of a whole-vector store.
            if (i + 64 <= n) {
                store(out, decoded);
            } else {
                _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm256_castsi256_si128(decoded));
                _mm_storel_epi64(reinterpret_cast<__m128i*>(out + 16),
                                 _mm256_extracti128_si256(decoded, 1));
            }
        }
        if (i + 32 <= n) {
            out += scalar::base64_decode(in + i, 32, out);
            i += 32;
        }
    }
    return std::size_t(out - start) + scalar::base64_decode(in + i, n - i, out);
}

// ---------------------------------------------------------------- URL

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
        size +=
            2 * std::size_t(_mm_popcnt_u32(sse::escapes<EscapeAllSlashes>(sse::load(p), carry)));
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
    if (_mm_popcnt_u32(percents) <= 2 && room >= 66) return sse::decode_sparse<32>(o, p, percents);
    const __m256i values = escape_values(load(p + 1), load(p + 2));
    const std::uint32_t candidates =
        percents & ~mask_of(_mm256_cmpeq_epi8(values, _mm256_setzero_si256()));
    if (overlapping(candidates)) return scalar::url_decode_until(o, p, p + 32);
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

KT_AVX2 std::size_t url_decode(char* out, const char* first, const char* last) {
    char* o = out;
    const char* p = first;
    while (last - p >= 34) p = decode_32(o, p, std::size_t(last - p));
    while (last - p >= 18) p = sse::decode_16(o, p);
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

KT_AVX2 void find_delimiters(const char* text, std::size_t length, delimiter_masks& masks) {
    if (length < 32) {
        sse::find_delimiters(text, length, masks);
        return;
    }
    std::size_t chunk = 0;
    for (; 32 * (chunk + 1) <= length; ++chunk)
        mark_delimiters(load(text + 32 * chunk), chunk, masks);
    const std::size_t rest = length - 32 * chunk;
    if (rest > 0) mark_delimiters(load(text + length - 32), chunk, masks, unsigned(32 - rest));
}

}  // namespace

KT_AVX2 std::size_t url_encoded_size(const char* first, const char* last, bool escape_all_slashes) {
    return escape_all_slashes ? encoded_size<true>(first, last) : encoded_size<false>(first, last);
}

KT_AVX2 std::size_t url_encode(char* out, const char* first, const char* last,
                               bool escape_all_slashes) {
    return escape_all_slashes ? encode<true>(out, first, last) : encode<false>(out, first, last);
}
}  // namespace avx2

const kernels avx2_kernels = {"avx2",
                              avx2::hex_encode,
                              avx2::hex_decode,
                              avx2::base64_encode,
                              avx2::base64_decode,
                              avx2::url_encoded_size,
                              avx2::url_encode,
                              kMaxSlack,
                              avx2::url_decode,
                              kMaxSlack,
                              avx2::find_delimiters};

}  // namespace simd
}  // namespace KT

#endif  // KT_SIMD_X86
