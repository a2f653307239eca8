// The AVX2 kernel set. Every function carries the target attribute instead
// of the file being built with -mavx2: the rest of the library, and any
// inline function this file shares with it, stays runnable on every x86-64.
#include "KTCodecKernels.h"

#ifdef KT_CODEC_X86

#include <immintrin.h>

#define KT_AVX2 __attribute__((target("avx2")))

namespace KT {
namespace codec {

namespace {
namespace avx2 {

KT_AVX2 inline __m256i load(const std::uint8_t* p) {
    return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
}

KT_AVX2 inline void store(std::uint8_t* p, __m256i v) {
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(p), v);
}

KT_AVX2 inline __m256i bytes(char c) { return _mm256_set1_epi8(c); }

// The 16 entries at `entries` repeated in both lanes, for _mm256_shuffle_epi8.
KT_AVX2 inline __m256i table(const char* entries) {
    __m128i half = _mm_loadu_si128(reinterpret_cast<const __m128i*>(entries));
    return _mm256_broadcastsi128_si256(half);
}

// ---------------------------------------------------------------- hex

// The digit values of 32 hex characters; `valid` gets 0xFF where a
// character is a digit and 0 where it is not.
KT_AVX2 inline __m256i hexValues(__m256i chars, __m256i& valid) {
    __m256i digit = _mm256_sub_epi8(chars, bytes('0'));
    __m256i isDigit = _mm256_cmpeq_epi8(_mm256_min_epu8(digit, bytes(9)), digit);
    // Setting bit 5 folds "A" to "F" onto "a" to "f" and nothing else onto them.
    __m256i letter = _mm256_sub_epi8(_mm256_or_si256(chars, bytes(0x20)), bytes('a'));
    __m256i isLetter = _mm256_cmpeq_epi8(_mm256_min_epu8(letter, bytes(5)), letter);
    valid = _mm256_or_si256(isDigit, isLetter);
    return _mm256_blendv_epi8(_mm256_add_epi8(letter, bytes(10)), digit, isDigit);
}

// The digit values of the 64 characters at `in`, in `first` and `second`;
// false when one of them is not a digit.
KT_AVX2 inline bool hexValues(const std::uint8_t* in, __m256i& first, __m256i& second) {
    __m256i valid0, valid1;
    first = hexValues(load(in), valid0);
    second = hexValues(load(in + 32), valid1);
    return _mm256_movemask_epi8(_mm256_and_si256(valid0, valid1)) == -1;
}

KT_AVX2 void hexEncode(const std::uint8_t* in, std::size_t n, std::uint8_t* out) {
    const __m256i digits = table(kHexDigits);
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
    kScalarKernels.hexEncode(in + i, n - i, out + 2 * i);
}

KT_AVX2 void hexDecode(const std::uint8_t* in, std::size_t pairs, std::uint8_t* out) {
    // Each 16-bit lane of digit values (first, second) becomes first * 16 + second.
    const __m256i weights = _mm256_set1_epi16(0x0110);
    std::size_t i = 0;
    while (i + 32 <= pairs) {
        // A run of regular blocks (no call inside, so the constants stay in
        // registers), then the irregular block that ended it, if any.
        __m256i values0, values1;
        for (; i + 32 <= pairs && hexValues(in + 2 * i, values0, values1); i += 32) {
            __m256i packed = _mm256_packus_epi16(_mm256_maddubs_epi16(values0, weights),
                                                 _mm256_maddubs_epi16(values1, weights));
            // The pack works per lane: quadwords 0 2 1 3 restore the byte order.
            store(out + i, _mm256_permute4x64_epi64(packed, 0xD8));
        }
        if (i + 32 <= pairs) {
            kScalarKernels.hexDecode(in + 2 * i, 32, out + i);
            i += 32;
        }
    }
    kScalarKernels.hexDecode(in + 2 * i, pairs - i, out + i);
}

// ---------------------------------------------------------------- Base64

// The alphabet characters for 32 six-bit values. The values fall into
// runs whose characters differ from them by one offset each: A-Z, a-z, each
// digit, "+" and "/"; a run number picks the offset from a table.
KT_AVX2 inline __m256i base64Chars(__m256i sextets) {
    static constexpr char kOffsets[16] = {'A', 'a' - 26, '0' - 52, '0' - 52, '0' - 52,
                                          '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52,
                                          '0' - 52, '0' - 52, '+' - 62, '/' - 63, 0, 0};
    // 0 for A-Z; 1 for a-z; 2 to 11 for the digits; 12 and 13 for "+" and "/".
    __m256i run = _mm256_subs_epu8(sextets, bytes(51));
    run = _mm256_sub_epi8(run, _mm256_cmpgt_epi8(sextets, bytes(25)));
    return _mm256_add_epi8(sextets, _mm256_shuffle_epi8(table(kOffsets), run));
}

// The six-bit values of 32 Base64 characters, in `values`; false when one
// of them is "=" or outside the alphabet.
KT_AVX2 inline bool base64Values(__m256i chars, __m256i& values) {
    // A character is in the alphabet when its high nibble is among those
    // allowed for its low nibble: one bit per high nibble 0 to 7 (bytes from
    // 0x80 have none: the shuffle gives 0 for them).
    static constexpr char kHighNibblesByLow[16] = {
        char(0xA8), char(0xF8), char(0xF8), char(0xF8), char(0xF8), char(0xF8),
        char(0xF8), char(0xF8), char(0xF8), char(0xF8), char(0xF0), char(0x54),
        char(0x50), char(0x50), char(0x50), char(0x54)};
    static constexpr char kHighNibbleBit[16] = {1, 2, 4, 8, 16, 32, 64, char(128),
                                                0, 0, 0, 0, 0, 0, 0,  0};
    // Value minus character, by high nibble; "/" borrows the unused slot 1.
    static constexpr char kOffsets[16] = {0,        63 - '/', 62 - '+', 52 - '0', -'A', -'A',
                                          26 - 'a', 26 - 'a', 0,        0,        0,    0,
                                          0,        0,        0,        0};
    __m256i high = _mm256_and_si256(_mm256_srli_epi16(chars, 4), bytes(15));
    __m256i allowed = _mm256_and_si256(_mm256_shuffle_epi8(table(kHighNibblesByLow), chars),
                                       _mm256_shuffle_epi8(table(kHighNibbleBit), high));
    if (_mm256_movemask_epi8(_mm256_cmpeq_epi8(allowed, _mm256_setzero_si256())) != 0)
        return false;
    __m256i slot = _mm256_add_epi8(high, _mm256_cmpeq_epi8(chars, bytes('/')));
    values = _mm256_add_epi8(chars, _mm256_shuffle_epi8(table(kOffsets), slot));
    return true;
}

KT_AVX2 std::size_t base64Encode(const std::uint8_t* in, std::size_t n, std::uint8_t* out) {
    // Per lane, the three bytes b0 b1 b2 of each group go to a 32-bit word as
    // b1 b0 b2 b1: its low half then holds the first two sextets at bits
    // 10-15 and 4-9, its high half the last two at bits 6-11 and 0-5.
    const __m256i spread = _mm256_setr_epi8(1, 0, 2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10,
                                            1, 0, 2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10);
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
        store(out, base64Chars(_mm256_or_si256(right, left)));
    }
    return std::size_t(out - start) + kScalarKernels.base64Encode(in + i, n - i, out);
}

KT_AVX2 std::size_t base64Decode(const std::uint8_t* in, std::size_t n, std::uint8_t* out) {
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
        for (; i + 32 <= n && base64Values(load(in + i), values); i += 32, out += 24) {
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
            out += kScalarKernels.base64Decode(in + i, 32, out);
            i += 32;
        }
    }
    return std::size_t(out - start) + kScalarKernels.base64Decode(in + i, n - i, out);
}

}  // namespace avx2
}  // namespace

const KernelSet kAvx2Kernels = {Kernel::Avx2, avx2::hexEncode, avx2::hexDecode,
                                avx2::base64Encode, avx2::base64Decode};

}  // namespace codec
}  // namespace KT

#endif  // KT_CODEC_X86
