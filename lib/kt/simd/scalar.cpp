// The scalar kernels: portable C++ that runs on every CPU, and the reference
// every vector kernel must match. Speed comes from larger tables (a load per
// pair of bytes or per three bytes of Base64), from reading a machine word
// at a time where the bytes looked for are rare, and from doing without
// branches on the data.
#include "simd/scalar.h"

#include <algorithm>
#include <cstring>

#include "base64_alphabet.h"
#include "simd/kernels.h"
#include "url_delimiters.h"
#include "url_unreserved.h"

namespace KT {
namespace simd {
namespace scalar {

// ---------------------------------------------------------------- words

namespace {

// Eight bytes at a time in a std::uint64_t, loaded with memcpy (any
// alignment). Which end of the word holds the first byte depends on the
// CPU's byte order: only first_marked() needs to know.
using word = std::uint64_t;
constexpr word kEveryByte = 0x0101010101010101;
constexpr word kHighBits = 0x8080808080808080;

inline word load_word(const void* p) {
    word w;
    std::memcpy(&w, p, sizeof w);
    return w;
}

// The eight bytes at `p` as a number whose highest byte is the first, and
// back: the order in which the codecs' bit groups run.
inline word load_big_endian(const std::uint8_t* p) {
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
    return load_word(p);
#else
    return __builtin_bswap64(load_word(p));
#endif
}

inline void store_big_endian(std::uint8_t* p, word w) {
#if !defined(__BYTE_ORDER__) || __BYTE_ORDER__ != __ORDER_BIG_ENDIAN__
    w = __builtin_bswap64(w);
#endif
    std::memcpy(p, &w, sizeof w);
}

// The top bit of each byte of `w` that equals `byte`, and no other bit: the
// low seven bits are added within each byte, so no carry reaches a
// neighbour and the answer holds for every byte in either byte order.
inline word bytes_equal(word w, unsigned char byte) {
    const word x = w ^ (kEveryByte * byte);
    return ~(((x & ~kHighBits) + ~kHighBits) | x) & kHighBits;
}

// The place in memory of the first byte whose top bit `marks` sets (not 0).
inline std::size_t first_marked(word marks) {
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
    return std::size_t(__builtin_clzll(marks)) / 8;
#else
    return std::size_t(__builtin_ctzll(marks)) / 8;
#endif
}

// How many bytes `marks` marks.
inline std::size_t marked_count(word marks) { return ((marks >> 7) * kEveryByte) >> 56; }

}  // namespace

// ---------------------------------------------------------------- codecs

// Four bytes a round, for fewer loop tests per byte.
void hex_encode(const std::uint8_t* in, std::size_t n, std::uint8_t* out) {
    std::size_t i = 0;
    for (; i + 4 <= n; i += 4)
        for (std::size_t j = i; j < i + 4; ++j) std::memcpy(out + 2 * j, kUpperHexPairs[in[j]].data(), 2);
    for (; i < n; ++i) std::memcpy(out + 2 * i, kUpperHexPairs[in[i]].data(), 2);
}

namespace {

inline std::uint8_t hex_pair_value(const std::uint8_t* digits) {
    std::uint16_t pair;
    std::memcpy(&pair, digits, sizeof pair);
    return kHexPairValues[pair];
}

}  // namespace

void hex_decode(const std::uint8_t* in, std::size_t pairs, std::uint8_t* out) {
    std::size_t i = 0;
    for (; i + 4 <= pairs; i += 4)
        for (std::size_t j = i; j < i + 4; ++j) out[j] = hex_pair_value(in + 2 * j);
    for (; i < pairs; ++i) out[i] = hex_pair_value(in + 2 * i);
}

std::size_t base64_encode(const std::uint8_t* in, std::size_t n, std::uint8_t* out) {
    std::uint8_t* start = out;
    std::size_t i = 0;
    // Six bytes a round from one load, while eight can be read.
    for (; i + 8 <= n; i += 6, out += 8) {
        const word bits = load_big_endian(in + i);
        std::memcpy(out, kBase64Pairs[bits >> 52].data(), 2);
        std::memcpy(out + 2, kBase64Pairs[(bits >> 40) & 4095].data(), 2);
        std::memcpy(out + 4, kBase64Pairs[(bits >> 28) & 4095].data(), 2);
        std::memcpy(out + 6, kBase64Pairs[(bits >> 16) & 4095].data(), 2);
    }
    for (; i + 3 <= n; i += 3, out += 4) {
        const unsigned bits = unsigned(in[i]) << 16 | unsigned(in[i + 1]) << 8 | in[i + 2];
        std::memcpy(out, kBase64Pairs[bits >> 12].data(), 2);
        std::memcpy(out + 2, kBase64Pairs[bits & 4095].data(), 2);
    }
    if (n - i == 1) {
        unsigned b0 = in[i];
        *out++ = std::uint8_t(kBase64Alphabet[b0 >> 2]);
        *out++ = std::uint8_t(kBase64Alphabet[(b0 << 4) & 48]);
        *out++ = '=';
        *out++ = '=';
    } else if (n - i == 2) {
        unsigned b0 = in[i], b1 = in[i + 1];
        *out++ = std::uint8_t(kBase64Alphabet[b0 >> 2]);
        *out++ = std::uint8_t(kBase64Alphabet[((b0 << 4) & 48) | (b1 >> 4)]);
        *out++ = std::uint8_t(kBase64Alphabet[(b1 << 2) & 60]);
        *out++ = '=';
    }
    return std::size_t(out - start);
}

namespace {

// Decodes a group of four holding "=" or invalid characters; returns the
// bytes written. A negative value takes part as its low eight bits.
std::size_t base64_decode_irregular(const std::uint8_t* in, std::uint8_t* out) {
    int x0 = kBase64Values[in[0]], x1 = kBase64Values[in[1]];
    int x2 = kBase64Values[in[2]], x3 = kBase64Values[in[3]];
    int pads = (x0 < 0) + (x1 < 0) + (x2 < 0) + (x3 < 0);
    unsigned v0 = std::uint8_t(x0), v1 = std::uint8_t(x1);
    unsigned v2 = std::uint8_t(x2), v3 = std::uint8_t(x3);
    out[0] = std::uint8_t((v0 << 2) | ((v1 >> 4) & 3));
    if (pads == 2) return 1;
    out[1] = std::uint8_t(((v1 << 4) & 240) | ((v2 >> 2) & 15));
    if (pads == 1) return 2;
    out[2] = std::uint8_t(((v2 << 6) & 192) | (v3 & 63));
    return 3;
}

}  // namespace

namespace {

// The bits of the group of four at `in`, with kNotBase64 set when it holds
// "=" or an invalid character.
inline std::uint32_t base64_group_bits(const std::uint8_t* in) {
    return kBase64Placed[0][in[0]] | kBase64Placed[1][in[1]] | kBase64Placed[2][in[2]] |
           kBase64Placed[3][in[3]];
}

}  // namespace

std::size_t base64_decode(const std::uint8_t* in, std::size_t n, std::uint8_t* out) {
    std::uint8_t* start = out;
    std::size_t i = 0;
    while (i + 4 <= n) {
        // Two regular groups at once, written with one eight-byte store while
        // two more groups follow: each writes one byte at least, over the two
        // extra ones.
        if (i + 16 <= n) {
            const std::uint32_t first = base64_group_bits(in + i);
            const std::uint32_t second = base64_group_bits(in + i + 4);
            if (((first | second) & kNotBase64) == 0) {
                store_big_endian(out, (word(first) << 24 | second) << 16);
                i += 8;
                out += 6;
                continue;
            }
        }
        const std::uint32_t bits = base64_group_bits(in + i);
        if (bits & kNotBase64) {
            out += base64_decode_irregular(in + i, out);
        } else {
            out[0] = std::uint8_t(bits >> 16);
            out[1] = std::uint8_t(bits >> 8);
            out[2] = std::uint8_t(bits);
            out += 3;
        }
        i += 4;
    }
    return std::size_t(out - start);
}

// ---------------------------------------------------------------- URL

namespace {

using ktbase::url_detail::delimiter_masks;

// What the encoder writes for each byte: the byte itself or "%" and two
// lower-case hex digits, then in the fourth byte how many of the first three
// count. A byte then costs one table load and one store, with no branch to
// mispredict in mixed text. kCodes[1] differs from kCodes[0] only in
// escaping "/".
using code = std::array<char, 4>;
constexpr std::array<std::array<code, 256>, 2> kCodes = [] {
    std::array<std::array<code, 256>, 2> tables{};
    for (int c = 0; c < 256; ++c) {
        const bool unreserved = ktbase::url_detail::is_unreserved(std::uint8_t(c));
        const code escaped = {'%', kLowerHexDigits[c >> 4], kLowerHexDigits[c & 15], 3};
        const code kept = {char(c), '\0', '\0', 1};
        tables[0][c] = unreserved || c == '/' ? kept : escaped;
        tables[1][c] = unreserved ? kept : escaped;
    }
    return tables;
}();

inline std::size_t width(const code& written) { return std::size_t(written[3]); }

// How many bytes of (first, last) are a "/" right after another.
std::size_t slashes_after_slash(const char* first, const char* last) {
    std::size_t count = 0;
    const char* p = first + 1;
    for (; last - p >= 8; p += 8)
        count += marked_count(bytes_equal(load_word(p - 1), '/') & bytes_equal(load_word(p), '/'));
    for (; p < last; ++p) count += (p[-1] == '/') & (p[0] == '/');
    return count;
}

}  // namespace

std::size_t url_encoded_size(const char* first, const char* last, bool escape_all_slashes) {
    if (last <= first) return 0;
    // Every byte as if after a byte other than "/", then the slashes that
    // follow one, when they differ. Four bytes a step: the additions do not
    // wait on each other.
    const std::array<code, 256>& codes = kCodes[escape_all_slashes];
    const auto width_at = [&codes](const char* p) {
        return width(codes[static_cast<unsigned char>(*p)]);
    };
    std::size_t size = 0;
    const char* p = first;
    for (; last - p >= 4; p += 4)
        size += (width_at(p) + width_at(p + 1)) + (width_at(p + 2) + width_at(p + 3));
    for (; p < last; ++p) size += width_at(p);
    if (!escape_all_slashes) size += 2 * slashes_after_slash(first, last);
    return size;
}

namespace {

// The encoder for one choice of slash rule, so that the loop for every "/"
// escaped does not track the byte before.
template <bool kEscapeAllSlashes>
std::size_t encode_with(char* out, const char* first, const char* last) {
    char* o = out;
    // The codes for the next byte: after a "/", those that escape "/".
    // Keeping the first slash of a run lets a path keep its shape, while "//"
    // can no longer be read back as the start of an authority.
    const std::array<code, 256>* codes = &kCodes[kEscapeAllSlashes];
    const auto write = [&o, &codes](unsigned char c, bool whole) {
        const code& written = (*codes)[c];
        std::memcpy(o, written.data(), whole ? sizeof(code) : width(written));
        o += width(written);
        if (!kEscapeAllSlashes) codes = &kCodes[c == '/'];
    };
    const char* p = first;
    // While three more source bytes follow, each written as one byte at
    // least, the output has room for the whole code: storing all four bytes
    // avoids a branch on the width.
    for (const char* stop = last - std::min<std::ptrdiff_t>(last - first, 3); p < stop; ++p)
        write(static_cast<unsigned char>(*p), true);
    for (; p < last; ++p) write(static_cast<unsigned char>(*p), false);
    return std::size_t(o - out);
}

}  // namespace

std::size_t url_encode(char* out, const char* first, const char* last, bool escape_all_slashes) {
    return escape_all_slashes ? encode_with<true>(out, first, last)
                              : encode_with<false>(out, first, last);
}

std::size_t url_decode(char* out, const char* first, const char* last) {
    if (last <= first) return 0;
    char* o = out;
    const char* p = first;
    // A word at a time, while a word and the two digits of an escape at its
    // end are there: the word is copied whole, then the output resumes at
    // its first "%", if any. Decoding never lengthens the text, so the
    // output always has room for the eight bytes.
    while (last - p >= 10) {
        const word w = load_word(p);
        std::memcpy(o, &w, sizeof w);
        const word percents = bytes_equal(w, '%');
        if (percents == 0) {
            p += sizeof w;
            o += sizeof w;
            continue;
        }
        const std::size_t at = first_marked(percents);
        p += at;
        o += at;
        // A "%" worth 0 is not an escape: it is kept and the bytes after it
        // are read as text. Branching on that keeps the next position off
        // the table loads: escapes are almost always valid.
        const unsigned value = escape_value(p + 1);
        if (__builtin_expect(value != 0, 1)) {
            *o++ = char(value);
            p += 3;
        } else {
            *o++ = '%';
            p += 1;
        }
    }
    // An escape needs two bytes after its "%": the last two bytes are copied.
    if (last - p > 2) p = url_decode_until(o, p, last - 2);
    if (p < last) {
        std::memcpy(o, p, std::size_t(last - p));
        o += last - p;
    }
    return std::size_t(o - out);
}

namespace {

// Byte d of the result: where delimiter d lies among the eight bytes at `p`,
// bit j for byte j.
inline std::uint64_t delimiter_lanes(const unsigned char* p) {
    std::uint64_t lanes = 0;
    for (int j = 0; j < 8; ++j) lanes |= ktbase::url_detail::kDelimiterLanes[j][p[j]];
    return lanes;
}

// Transposes the 8 x 8 matrix of bytes in `rows`: byte j of rows[i] goes to
// byte i of rows[j]. Three rounds swap the off-diagonal blocks of four, two
// and one bytes.
inline void transpose_bytes(std::uint64_t (&rows)[8]) {
    constexpr std::uint64_t kLowBlocks[] = {0x00000000FFFFFFFF, 0x0000FFFF0000FFFF,
                                            0x00FF00FF00FF00FF};
    for (int round = 0; round < 3; ++round) {
        const int distance = 4 >> round, shift = 8 * distance;
        for (int i = 0; i < 8; ++i) {
            if (i & distance) continue;
            const std::uint64_t swapped =
                ((rows[i] >> shift) ^ rows[i + distance]) & kLowBlocks[round];
            rows[i] ^= swapped << shift;
            rows[i + distance] ^= swapped;
        }
    }
}

// The last `count` (1 to 7) bytes of the text, followed by zeros (which are
// no delimiter): a text of eight bytes or more is read by the word that ends
// at its end, shifted; a shorter one is copied.
void copy_last_bytes(unsigned char (&bytes)[8], std::size_t count, const char* text,
                     std::size_t length) {
    if (length < 8) {
        std::memcpy(bytes, text + length - count, count);
        return;
    }
    const unsigned dropped = unsigned(8 * (8 - count));
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
    const word w = load_word(text + length - 8) << dropped;
#else
    const word w = load_word(text + length - 8) >> dropped;
#endif
    std::memcpy(bytes, &w, sizeof w);
}

}  // namespace

// A block of up to 64 bytes gives eight words of lanes, one per group of
// eight bytes; transposed, word d holds the 64 bits of delimiter d's row.
// Every group is read, from the text, from a copy of its last bytes or from
// zeros: choosing the source costs no branch, and the lanes stay in
// registers.
void find_delimiters(const char* text, std::size_t length, delimiter_masks& masks) {
    static const unsigned char kZeros[8] = {};
    for (std::size_t start = 0; start < length; start += 64) {
        const auto* block = reinterpret_cast<const unsigned char*>(text) + start;
        const std::size_t n = std::min<std::size_t>(length - start, 64);
        unsigned char last[8] = {};
        if (n % 8 != 0) copy_last_bytes(last, n % 8, text, length);
        std::uint64_t lanes[8];
        for (std::size_t group = 0, at = 0; group < 8; ++group, at += 8)
            lanes[group] = delimiter_lanes(at + 8 <= n ? block + at : at < n ? last : kZeros);
        transpose_bytes(lanes);
        for (int d = 0; d < ktbase::url_detail::kDelimiterCount; ++d)
            masks.rows[d][start / 64] = lanes[d];
    }
}

}  // namespace scalar

const kernels scalar_kernels = {"scalar",
                                scalar::hex_encode,
                                scalar::hex_decode,
                                scalar::base64_encode,
                                scalar::base64_decode,
                                scalar::url_encoded_size,
                                scalar::url_encode,
                                0,
                                scalar::url_decode,
                                0,
                                scalar::find_delimiters};

}  // namespace simd
}  // namespace KT
