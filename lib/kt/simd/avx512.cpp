// The AVX-512 kernels, for CPUs with the byte and word instructions (BW),
// the byte permutes (VBMI) and the byte compression (VBMI2): 64 bytes at a
// time, with byte masks. The byte permutes do the table work: a 64-entry
// table fits one register, the 128 ASCII entries of a decoding table two.
#include "simd/avx2.h"

#ifdef KT_SIMD_X86

// GCC 12 takes the undefined pass-through operand of its own unmasked
// AVX-512 intrinsics for an uninitialised variable once they are inlined.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wuninitialized"
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
#include <immintrin.h>
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic pop
#endif

#include <algorithm>
#include <array>

#include "base64_alphabet.h"
#include "hex_digits.h"
#include "simd/scalar.h"
#include "simd/vector_tables.h"
#include "url_delimiters.h"

// Every function carries the target attribute, as in the AVX2 kernels.
#define KT_AVX512                                                                           \
    __attribute__((target("avx512f,avx512bw,avx512vl,avx512vbmi,avx512vbmi2,avx2,bmi,bmi2," \
                          "popcnt")))

namespace KT {
namespace simd {
namespace avx512 {

namespace url = ktbase::url_detail;

namespace {

using Indices = std::array<std::uint8_t, 64>;

// The byte indices index(0) to index(63), for the permutes.
template <class Index>
constexpr Indices indices(Index index) {
    Indices result{};
    for (std::size_t k = 0; k < result.size(); ++k) result[k] = std::uint8_t(index(k));
    return result;
}

KT_AVX512 inline __m512i load(const void* p) { return _mm512_loadu_si512(p); }

KT_AVX512 inline void store(void* p, __m512i v) { _mm512_storeu_si512(p, v); }

// The entries of a 256-entry decoding table for 64 characters, read from its
// first 128 entries in `low` and `high`. Bit 7 of `marks` is set where a
// character is not ASCII or its entry has bit 7 set: not in the alphabet.
KT_AVX512 inline __m512i look_up(__m512i chars, __m512i low, __m512i high, __m512i& marks) {
    __m512i entries = _mm512_permutex2var_epi8(low, chars, high);
    marks = _mm512_or_si512(chars, entries);
    return entries;
}

KT_AVX512 inline bool any_marked(__m512i marks) { return _mm512_movepi8_mask(marks) != 0; }

// ---------------------------------------------------------------- hex

KT_AVX512 void hex_encode(const std::uint8_t* in, std::size_t n, std::uint8_t* out) {
    // The permute reads six index bits: with the 16 digits in every lane, a
    // byte picks the digit of its low nibble whatever its high one.
    const __m512i digits =
        _mm512_broadcast_i32x4(_mm_loadu_si128(reinterpret_cast<const __m128i*>(kUpperHexDigits)));
    // Each quadword gets four source bytes; these bit offsets pick their
    // nibbles high first: 4, 0, 12, 8, 20, 16, 28, 24.
    const __m512i nibbles = _mm512_set1_epi64(0x181C1014080C0004);
    std::size_t i = 0;
    for (; i + 32 <= n; i += 32) {
        __m512i spread =
            _mm512_cvtepu32_epi64(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(in + i)));
        store(out + 2 * i,
              _mm512_permutexvar_epi8(_mm512_multishift_epi64_epi8(nibbles, spread), digits));
    }
    scalar::hex_encode(in + i, n - i, out + 2 * i);
}

KT_AVX512 void hex_decode(const std::uint8_t* in, std::size_t pairs, std::uint8_t* out) {
    const __m512i valuesLow = load(kHexDigitValues.data());
    const __m512i valuesHigh = load(kHexDigitValues.data() + 64);
    // Each 16-bit lane of digit values (first, second) becomes first * 16 +
    // second; the low bytes of two such vectors make 64 bytes.
    const __m512i weights = _mm512_set1_epi16(0x0110);
    static constexpr Indices kLowBytes = indices([](std::size_t k) { return 2 * k; });
    const __m512i lowBytes = load(kLowBytes.data());
    std::size_t i = 0;
    while (i + 64 <= pairs) {
        // A run of regular blocks (no call inside, so the constants stay in
        // registers), then the irregular block that ended it, if any.
        for (; i + 64 <= pairs; i += 64) {
            __m512i marks0, marks1;
            __m512i values0 = look_up(load(in + 2 * i), valuesLow, valuesHigh, marks0);
            __m512i values1 = look_up(load(in + 2 * i + 64), valuesLow, valuesHigh, marks1);
            if (any_marked(_mm512_or_si512(marks0, marks1))) break;
            store(out + i,
                  _mm512_permutex2var_epi8(_mm512_maddubs_epi16(values0, weights), lowBytes,
                                           _mm512_maddubs_epi16(values1, weights)));
        }
        if (i + 64 <= pairs) {
            scalar::hex_decode(in + 2 * i, 64, out + i);
            i += 64;
        }
    }
    scalar::hex_decode(in + 2 * i, pairs - i, out + i);
}

// ---------------------------------------------------------------- Base64

KT_AVX512 std::size_t base64_encode(const std::uint8_t* in, std::size_t n, std::uint8_t* out) {
    // The three bytes b0 b1 b2 of each group go to a 32-bit word as b1 b0 b2
    // b1, which holds the four sextets at bits 10-15, 4-9, 22-27 and 16-21.
    static constexpr Indices kSpread = indices([](std::size_t k) {
        const std::size_t order[] = {1, 0, 2, 1};
        return 3 * (k / 4) + order[k % 4];
    });
    const __m512i spread = load(kSpread.data());
    // Those offsets for the two words of a quadword: 10, 4, 22, 16, 42, 36,
    // 54, 48. The alphabet lookup ignores the two bits above each sextet.
    const __m512i sextets = _mm512_set1_epi64(0x3036242A1016040A);
    const __m512i alphabet = load(kBase64Alphabet);
    std::uint8_t* start = out;
    std::size_t i = 0;
    // Each block loads 64 bytes and uses 48; the loop stops while the load
    // still ends inside the input.
    for (; i + 64 <= n; i += 48, out += 64) {
        __m512i words = _mm512_permutexvar_epi8(spread, load(in + i));
        store(out, _mm512_permutexvar_epi8(_mm512_multishift_epi64_epi8(sextets, words), alphabet));
    }
    return std::size_t(out - start) + scalar::base64_encode(in + i, n - i, out);
}

KT_AVX512 std::size_t base64_decode(const std::uint8_t* in, std::size_t n, std::uint8_t* out) {
    const __m512i valuesLow = load(kBase64Values.data());
    const __m512i valuesHigh = load(kBase64Values.data() + 64);
    // Four sextets v0 v1 v2 v3 become v0 * 64 + v1 and v2 * 64 + v3, then the
    // 24-bit v0 v1 v2 v3; the permute takes its bytes high first, 48 in all.
    const __m512i pairWeights = _mm512_set1_epi32(0x01400140);
    const __m512i wordWeights = _mm512_set1_epi32(0x00011000);
    static constexpr Indices kOrder =
        indices([](std::size_t k) { return k < 48 ? 4 * (k / 3) + 2 - k % 3 : 0; });
    const __m512i order = load(kOrder.data());
    std::uint8_t* start = out;
    std::size_t i = 0;
    while (i + 64 <= n) {
        // A run of regular blocks (no call inside, so the constants stay in
        // registers), then the irregular block that ended it, if any.
        for (; i + 64 <= n; i += 64, out += 48) {
            __m512i marks;
            __m512i values = look_up(load(in + i), valuesLow, valuesHigh, marks);
            if (any_marked(marks)) break;
            __m512i words =
                _mm512_madd_epi16(_mm512_maddubs_epi16(values, pairWeights), wordWeights);
            __m512i decoded = _mm512_permutexvar_epi8(order, words);
            // Every block gives at least 16 bytes: when another follows, it
            // overwrites the spare quarter of a whole-vector store.
            if (i + 128 <= n)
                store(out, decoded);
            else
                _mm512_mask_storeu_epi8(out, (__mmask64(1) << 48) - 1, decoded);
        }
        if (i + 64 <= n) {
            out += scalar::base64_decode(in + i, 64, out);
            i += 64;
        }
    }
    return std::size_t(out - start) + scalar::base64_decode(in + i, n - i, out);
}

// ---------------------------------------------------------------- URL

// The URL kernels: a masked load reads only the bytes its mask selects, so
// the last bytes of a text need no other path, and a compression gathers
// the kept bytes of a block in one instruction. Encoding keeps the AVX2
// kernels.

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
KT_AVX512 std::size_t url_decode(char* out, const char* first, const char* last) {
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
            if (overlapping(candidates)) {
                // The plain rules, from the first position not swallowed up
                // to the block's end (or the text's, when it ends here).
                const char* from = p + _mm_popcnt_u64(swallowed);
                if (left >= 66) {
                    const char* reached = scalar::url_decode_until(o, from, p + 64);
                    swallowed = (std::uint64_t(1) << (reached - (p + 64))) - 1;
                    continue;
                }
                from = scalar::url_decode_until(o, from, last - 2);
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

KT_AVX512 void find_delimiters(const char* text, std::size_t length, url::delimiter_masks& masks) {
    for (std::size_t word = 0; 64 * word < length; ++word) {
        const std::size_t rest = length - 64 * word;
        const __m512i v = load(text + 64 * word, rest < 64 ? rest : 64);
        for (int d = 0; d < url::kDelimiterCount; ++d)
            masks.rows[d][word] = _mm512_cmpeq_epi8_mask(v, bytes(url::kDelimiterBytes[d]));
    }
}

}  // namespace
}  // namespace avx512

const kernels avx512_kernels = {"avx512",
                                avx512::hex_encode,
                                avx512::hex_decode,
                                avx512::base64_encode,
                                avx512::base64_decode,
                                avx2::url_encoded_size,
                                avx2::url_encode,
                                kMaxSlack,
                                avx512::url_decode,
                                0,
                                avx512::find_delimiters};

}  // namespace simd
}  // namespace KT

#endif  // KT_SIMD_X86
