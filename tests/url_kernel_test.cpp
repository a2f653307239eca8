// The fast paths of the URL functions against the plain ones: every kernel
// set this machine runs (simd/kernels.h) against the plain byte loops, and
// the splitter on the kernels' delimiter masks against its plain searches,
// on random texts of every length from 0 to a few hundred bytes and on large
// ones, drawn from alphabets rich in the bytes that matter.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "every_kernel.h"
#include "kt/url.h"
#include "url_delimiters.h"
#include "url_internal.h"

namespace {

using namespace ktbase::url_detail;
using UrlKernelTest = kttest::EveryKernel;

// Random texts over each are drawn a byte, or a piece, at a time; over the
// empty one they are random bytes.
// clang-format off
const std::vector<std::string> kAlphabets[] = {
    // Escapes and near-escapes: "%" often, digits ("0" too, which reads as no
    // digit), letters that are and are not hex digits, slashes in runs, and
    // bytes that are escaped.
    {"%", "%", "%", "0", "1", "9", "a", "A", "f", "F", "g", "z", "/", "/", " ", "+", "~", "@",
     std::string(1, '\0'), "\xff", "\x80"},
    // The delimiters of the URL model, often, among a few other bytes.
    {":", "/", "@", ";", "?", "#", ":", "/", "@", ";", "?", "#", "%20", "a", "1", " ", ".",
     std::string(1, '\0'), "\xff"},
    // Pieces of URLs of the shapes met in practice.
    {"http:", "//", "/", "user", ";dom", ":pw", "@", "host", ":80", "/path", ";p=1", "?q=2&r",
     "#frag", "%2f", "abcdefghijklmnopqrstuvwxyz0123456789-._~"},
    {}};
// clang-format on

std::string randomText(std::mt19937& random, std::size_t n,
                       const std::vector<std::string>& alphabet) {
    std::string text;
    while (text.size() < n)
        text += alphabet.empty() ? std::string(1, char(random()))
                                 : alphabet[random() % alphabet.size()];
    return text.substr(0, n);
}

// Guard bytes after the room a kernel may use: writing past it changes them.
constexpr std::size_t kGuard = 32;
constexpr char kGuardByte = '\xa5';

std::string plainDecoding(const std::string& text) {
    std::string out(text.size(), '\0');
    out.resize(url_decode_range(&out[0], text.data(), text.data() + text.size()));
    return out;
}

// The encoding and decoding of `text` against the plain loops, each in a
// buffer of exactly the room they are promised, with guard bytes after it;
// the input is a copy of exactly the text's size, so that a read past it is
// caught under AddressSanitizer.
void expectCodingAsPlain(const KT::simd::kernels& kernels, const std::string& text) {
    SCOPED_TRACE(testing::PrintToString(text));
    const std::vector<char> input(text.begin(), text.end());
    const char* first = input.data();
    const char* last = first + input.size();
    const auto expectGuarded = [&](std::size_t size, std::size_t slack, auto code) {
        EXPECT_LE(slack, KT::simd::kMaxSlack);
        std::vector<char> out(size + slack + kGuard, kGuardByte);
        const std::string written(out.data(), code(out.data()));
        EXPECT_EQ(std::string(out.end() - kGuard, out.end()), std::string(kGuard, kGuardByte))
            << "written past the slack";
        return written;
    };
    for (bool all : {false, true}) {
        SCOPED_TRACE(all ? "every slash escaped" : "single slashes kept");
        std::string expected(3 * text.size(), '\0');
        expected.resize(url_encode_range(&expected[0], first, last, all));
        ASSERT_EQ(kernels.url_encoded_size(first, last, all), expected.size());
        ASSERT_EQ(ktbase::url_encode(text, all), expected);
        if (text.empty()) continue;
        ASSERT_EQ(
            expectGuarded(expected.size(), kernels.url_encode_slack,
                          [&](char* out) { return kernels.url_encode(out, first, last, all); }),
            expected);
    }
    const std::string expected = plainDecoding(text);
    ASSERT_EQ(ktbase::url_decode(text), expected);
    if (text.empty()) return;
    ASSERT_EQ(expectGuarded(text.size(), kernels.url_decode_slack,
                            [&](char* out) { return kernels.url_decode(out, first, last); }),
              expected);
}

TEST_P(UrlKernelTest, CodingIsThePlainOne) {
    std::mt19937 random(1);
    std::vector<std::size_t> lengths = {4096, (std::size_t(1) << 16) + 7};
    for (std::size_t n = 0; n <= 300; ++n) lengths.push_back(n);
    for (std::size_t n : lengths)
        for (const auto& alphabet : kAlphabets) {
            const std::string text = randomText(random, n, alphabet);
            expectCodingAsPlain(kernels(), text);
            // Encodings too: valid escapes everywhere, as decoding mostly meets them.
            expectCodingAsPlain(kernels(), ktbase::url_encode(text, n % 2 == 0));
        }
    // Escapes that swallow the "%" of the next one, at every place in a block.
    for (const char* piece : {"%%41", "%4%41", "%%%", "%0%41", "%00%", "%%", "%4z", "%z%"})
        for (std::size_t before = 0; before < 70; ++before)
            for (std::size_t after = 0; after < 4; ++after)
                expectCodingAsPlain(kernels(),
                                    std::string(before, 'x') + piece + std::string(after, 'y'));
}

// Every component's range from split_url is the one its plain searches give,
// and every getter, raw and decoded, returns that range's text.
void expectSplitAsSearch(const std::string& url) {
    const url_parts parts = split_url(url), expected = split_url_by_search(url);
#define KT_PART(x)                                                         \
    ASSERT_EQ(parts.x.begin, expected.x.begin) << #x;                      \
    ASSERT_EQ(parts.x.end, expected.x.end) << #x;                          \
    raw = url.substr(expected.x.begin, expected.x.end - expected.x.begin); \
    ASSERT_EQ(ktbase::url_##x(url, false), raw) << #x;                     \
    ASSERT_EQ(ktbase::url_##x(url, true), plainDecoding(raw)) << #x;
    std::string raw;
    // clang-format off
    KT_PART(scheme) KT_PART(authority) KT_PART(path) KT_PART(params) KT_PART(query)
    KT_PART(fragment) KT_PART(domain) KT_PART(user) KT_PART(password) KT_PART(host)
    KT_PART(service)
    // clang-format on
#undef KT_PART
}

// At every length the delimiter masks (for texts short enough to have them)
// are those of the plain loop, and the splitter gives what its searches give.
TEST_P(UrlKernelTest, SplitIsTheSearch) {
    std::mt19937 random(5);
    for (std::size_t n = 0; n <= 400; ++n)
        for (const auto& alphabet : kAlphabets)
            for (int round = 0; round < 6; ++round) {
                const std::string text = randomText(random, n, alphabet);
                SCOPED_TRACE(testing::PrintToString(text));
                expectSplitAsSearch(text);
                if (n > delimiter_masks::kMaxLength) continue;
                const std::vector<char> input(text.begin(), text.end());
                delimiter_masks expected, masks;
                scalar().find_delimiters(input.data(), n, expected);
                kernels().find_delimiters(input.data(), n, masks);
                for (int d = 0; d < kDelimiterCount; ++d)
                    ASSERT_EQ(std::vector(masks.rows[d], masks.rows[d] + (n + 63) / 64),
                              std::vector(expected.rows[d], expected.rows[d] + (n + 63) / 64))
                        << "delimiter " << kDelimiterBytes[d];
            }
}

KT_INSTANTIATE_FOR_EVERY_KERNEL(UrlKernelTest);

}  // namespace
