// The fast paths of the URL functions against the plain ones: every kernel
// set this machine runs (simd/kernels.h) against the plain byte loops, and
// the splitter on the kernels' delimiter masks against its plain searches,
// on random texts of every length from 0 to a few hundred bytes and on large
// ones, drawn from alphabets rich in the bytes that matter; and the setters,
// which edit at the places the splitter finds, on the shorter of them.
#include "every_kernel.h"
#include "kt/url.h"
#include "support.h"
#include "url_delimiters.h"
#include "url_internal.h"

namespace {

using namespace ktbase::url_detail;
using UrlKernelTest = kttest::EveryKernel;

// A text of `n` bytes drawn a piece of `alphabet` at a time, or of random
// bytes when it has no pieces.
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
    const char *first = input.data(), *last = first + input.size();
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

// Every component's range from split_url is the one its plain searches give,
// and no setter edits outside the text it scans, whatever the value; for a
// text short enough to have them, the delimiter masks are those of the plain
// loop.
void expectSplitAsPlain(const KT::simd::kernels& kernels, const std::string& url) {
    SCOPED_TRACE(testing::PrintToString(url));
    const url_parts parts = split_url(url), expected = split_url_by_search(url);
    const auto range = [](url_range r) { return std::pair(r.begin, r.end); };
    // (The map forms place their text through the same code as these.)
    const std::string value = url.substr(0, url.size() % 5);
    const bool set = url.size() <= delimiter_masks::kMaxLength, encode = url.size() % 2 == 0;
// (A setter that edits out of range throws, and the test fails.)
#define KT_PART(x)                                      \
    ASSERT_EQ(range(parts.x), range(expected.x)) << #x; \
    if (set) ktbase::url_new_##x(url, value, encode);
    // clang-format off
    KT_PART(scheme) KT_PART(authority) KT_PART(path) KT_PART(params) KT_PART(query)
    KT_PART(fragment) KT_PART(domain) KT_PART(user) KT_PART(password) KT_PART(host)
    KT_PART(service)
    // clang-format on
#undef KT_PART
    const std::size_t n = url.size();
    if (n > delimiter_masks::kMaxLength) return;
    const std::vector<char> input(url.begin(), url.end());
    delimiter_masks plain, masks;
    KT::simd::scalar_kernels.find_delimiters(input.data(), n, plain);
    kernels.find_delimiters(input.data(), n, masks);
    for (int d = 0; d < kDelimiterCount; ++d)
        ASSERT_EQ(std::vector(masks.rows[d], masks.rows[d] + (n + 63) / 64),
                  std::vector(plain.rows[d], plain.rows[d] + (n + 63) / 64))
            << "delimiter " << kDelimiterBytes[d];
}

// Random texts of every length up to a few hundred bytes, of random lengths
// past those, and large ones.
TEST_P(UrlKernelTest, AsThePlainCode) {
    std::mt19937 random(5);
    const std::vector<kttest::Case> alphabets = kttest::casesOf("url_alphabets.txt");
    std::vector<std::size_t> lengths = {4096, (std::size_t(1) << 16) + 7};
    for (std::size_t n = 0; n <= 400; ++n) lengths.push_back(n);
    for (int round = 0; round < 8; ++round) lengths.push_back(401 + random() % 3000);
    for (std::size_t n : lengths)
        for (const kttest::Case& alphabet : alphabets)
            for (int round = 0; round < 6; ++round) {
                const std::string text = randomText(random, n, alphabet.arguments);
                expectSplitAsPlain(kernels(), text);
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

KT_INSTANTIATE_FOR_EVERY_KERNEL(UrlKernelTest);

}  // namespace
