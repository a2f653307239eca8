// The AVX-512 kernel set, for CPUs with the byte and word instructions (BW)
// and the byte permutes (VBMI). As in the AVX2 set, every function carries
// the target attribute, so that the rest of the library runs on any x86-64.
//
// The byte permutes do the table work: a 64-entry table fits one register,
// the 128 ASCII entries of a decoding table two.
#include "KTCodecKernels.h"

#ifdef KT_CODEC_X86

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

#include <array>

#define KT_AVX512 __attribute__((target("avx512f,avx512bw,avx512vbmi")))

namespace KT {
namespace codec {

namespace {
namespace avx512 {

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
KT_AVX512 inline __m512i lookUp(__m512i chars, __m512i low, __m512i high, __m512i& marks) {
    __m512i entries = _mm512_permutex2var_epi8(low, chars, high);
    marks = _mm512_or_si512(chars, entries);
    return entries;
}

KT_AVX512 inline bool anyMarked(__m512i marks) { return _mm512_movepi8_mask(marks) != 0; }

// ---------------------------------------------------------------- hex

KT_AVX512 void hexEncode(const std::uint8_t* in, std::size_t n, std::uint8_t* out) {
    // The permute reads six index bits: with the 16 digits in every lane, a
    // byte picks the digit of its low nibble whatever its high one.
    const __m512i digits =
        _mm512_broadcast_i32x4(_mm_loadu_si128(reinterpret_cast<const __m128i*>(kHexDigits)));
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
    kScalarKernels.hexEncode(in + i, n - i, out + 2 * i);
}

KT_AVX512 void hexDecode(const std::uint8_t* in, std::size_t pairs, std::uint8_t* out) {
    const __m512i valuesLow = load(kHexValues.data());
    const __m512i valuesHigh = load(kHexValues.data() + 64);
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
            __m512i values0 = lookUp(load(in + 2 * i), valuesLow, valuesHigh, marks0);
            __m512i values1 = lookUp(load(in + 2 * i + 64), valuesLow, valuesHigh, marks1);
            if (anyMarked(_mm512_or_si512(marks0, marks1))) break;
            store(out + i, _mm512_permutex2var_epi8(_mm512_maddubs_epi16(values0, weights),
                                                    lowBytes,
                                                    _mm512_maddubs_epi16(values1, weights)));
        }
        if (i + 64 <= pairs) {
            kScalarKernels.hexDecode(in + 2 * i, 64, out + i);
            i += 64;
        }
    }
    kScalarKernels.hexDecode(in + 2 * i, pairs - i, out + i);
}

// ---------------------------------------------------------------- Base64

KT_AVX512 std::size_t base64Encode(const std::uint8_t* in, std::size_t n, std::uint8_t* out) {
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
    return std::size_t(out - start) + kScalarKernels.base64Encode(in + i, n - i, out);
}

KT_AVX512 std::size_t base64Decode(const std::uint8_t* in, std::size_t n, std::uint8_t* out) {
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
            __m512i values = lookUp(load(in + i), valuesLow, valuesHigh, marks);
            if (anyMarked(marks)) break;
            __m512i words = _mm512_madd_epi16(_mm512_maddubs_epi16(values, pairWeights), wordWeights);
            __m512i decoded = _mm512_permutexvar_epi8(order, words);
            // Every block gives at least 16 bytes: when another follows, it
            // overwrites the spare quarter of a whole-vector store.
            if (i + 128 <= n)
                store(out, decoded);
            else
                _mm512_mask_storeu_epi8(out, (__mmask64(1) << 48) - 1, decoded);
        }
        if (i + 64 <= n) {
            out += kScalarKernels.base64Decode(in + i, 64, out);
            i += 64;
        }
    }
    return std::size_t(out - start) + kScalarKernels.base64Decode(in + i, n - i, out);
}

}  // namespace avx512
}  // namespace

const KernelSet kAvx512Kernels = {Kernel::Avx512, avx512::hexEncode, avx512::hexDecode,
                                  avx512::base64Encode, avx512::base64Decode};

}  // namespace codec
}  // namespace KT

#endif  // KT_CODEC_X86
