// The fast paths of the URL functions against the plain ones: every kernel
// set this machine runs (simd/kernels.h) against the plain byte loops, and
// the splitter on the kernels' delimiter masks against its plain searches, on
// random texts of every length from 0 to a few hundred bytes and on large
// ones, drawn from alphabets rich in the bytes that matter.
#include <gtest/gtest.h>

#include <cstddef>
#include <random>
#include <string>
#include <vector>

#include "every_kernel.h"
#include "kt/url.h"
#include "simd/kernels.h"
#include "url_delimiters.h"
#include "url_internal.h"

namespace {

using namespace ktbase::url_detail;

using Kernels = KT::simd::kernels;
using UrlKernelTest = kttest::EveryKernel;

// Escapes and near-escapes: "%" often, digits ("0" too, which reads as no
// digit), letters that are and are not hex digits, slashes in runs, and
// bytes that are escaped.
const std::string kEscapeRich = std::string("%%%%%0123456789aAfFgGzZ//// +~@") + '\0' + "\xff\x80";
// The delimiters of the URL model, often, among a few other bytes.
const std::string kDelimiterRich = std::string(":/@;?#:/@;?#%20a1 .") + '\0' + "\xff";
// Mostly bytes that stay as they are, so that blocks go through whole.
const std::string kMostlyPlain = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJ0123456789-._%/ ~";

const std::string* const kAlphabets[] = {&kEscapeRich, &kDelimiterRich, &kMostlyPlain};

// Every byte value once: random texts over it are random bytes.
const std::string kEveryByte = [] {
    std::string bytes(256, '\0');
    for (int i = 0; i < 256; ++i) bytes[std::size_t(i)] = char(i);
    return bytes;
}();

std::string randomText(std::mt19937& random, std::size_t n, const std::string& alphabet) {
    std::string result(n, '\0');
    for (char& c : result) c = alphabet[random() % alphabet.size()];
    return result;
}

// Guard bytes after the room a kernel may use: writing past it changes them.
constexpr std::size_t kGuard = 32;
constexpr char kGuardByte = '\xa5';

std::string plainDecoding(const std::string& text) {
    std::string out(text.size(), '\0');
    out.resize(url_decode_range(&out[0], text.data(), text.data() + text.size()));
    return out;
}

// The encoding and decoding of `text` against the plain
// loops, each in a buffer of exactly the room they are promised, with guard
// bytes after it; the input is a copy of exactly the text's size, so that a
// read past it is caught under AddressSanitizer.
void expectCodingAsPlain(const Kernels& kernels, const std::string& text) {
    SCOPED_TRACE(testing::PrintToString(text));
    const std::vector<char> input(text.begin(), text.end());
    const char* first = input.data();
    const char* last = first + input.size();
    ASSERT_LE(kernels.url_encode_slack, KT::simd::kMaxSlack);
    ASSERT_LE(kernels.url_decode_slack, KT::simd::kMaxSlack);
    const auto expectGuarded = [](const std::vector<char>& out, std::size_t room) {
        for (std::size_t i = room; i < out.size(); ++i)
            ASSERT_EQ(out[i], kGuardByte) << "written past the slack";
    };
    for (bool all : {false, true}) {
        SCOPED_TRACE(all ? "every slash escaped" : "single slashes kept");
        std::string expected(3 * text.size(), '\0');
        expected.resize(url_encode_range(&expected[0], first, last, all));
        ASSERT_EQ(kernels.url_encoded_size(first, last, all), expected.size());
        ASSERT_EQ(ktbase::url_encode(text, all), expected);
        if (text.empty()) continue;
        std::vector<char> out(expected.size() + kernels.url_encode_slack + kGuard, kGuardByte);
        ASSERT_EQ(kernels.url_encode(out.data(), first, last, all), expected.size());
        ASSERT_EQ(std::string(out.data(), expected.size()), expected);
        expectGuarded(out, expected.size() + kernels.url_encode_slack);
    }
    const std::string expected = plainDecoding(text);
    ASSERT_EQ(ktbase::url_decode(text), expected);
    if (text.empty()) return;
    std::vector<char> out(text.size() + kernels.url_decode_slack + kGuard, kGuardByte);
    ASSERT_EQ(std::string(out.data(), kernels.url_decode(out.data(), first, last)), expected);
    expectGuarded(out, text.size() + kernels.url_decode_slack);
}

TEST_P(UrlKernelTest, CodingIsThePlainOneAtEveryLength) {
    std::mt19937 random(1);
    for (std::size_t n = 0; n <= 300; ++n) {
        for (const std::string* alphabet : kAlphabets)
            for (int round = 0; round < 3; ++round)
                expectCodingAsPlain(kernels(), randomText(random, n, *alphabet));
        // Encodings too: valid escapes everywhere, as decoding mostly meets them.
        const std::string bytes = randomText(random, n, kEveryByte);
        expectCodingAsPlain(kernels(), bytes);
        expectCodingAsPlain(kernels(), ktbase::url_encode(bytes, n % 2 == 0));
    }
}

// Escapes that swallow the "%" of the next one, at every place in a block.
TEST_P(UrlKernelTest, DecodingOverlappingEscapes) {
    for (const char* piece : {"%%41", "%4%41", "%%%", "%0%41", "%00%", "%%", "%4z", "%z%"})
        for (std::size_t before = 0; before < 70; ++before)
            for (std::size_t after = 0; after < 4; ++after)
                expectCodingAsPlain(kernels(),
                                    std::string(before, 'x') + piece + std::string(after, 'y'));
}

// --- The one-pass splitter ---------------------------------------------------

struct Component {
    const char* name;
    url_range url_parts::*range;
    std::string (*get)(const std::string&, bool);
};

#define KT_PART(x) {#x, &url_parts::x, ktbase::url_##x}
const Component kComponents[] = {
    KT_PART(scheme), KT_PART(authority), KT_PART(path),     KT_PART(params),
    KT_PART(query),  KT_PART(fragment),  KT_PART(domain),   KT_PART(user),
    KT_PART(password), KT_PART(host),    KT_PART(service)};
#undef KT_PART

// Every component's range from split_url is the one its plain searches give,
// and every getter, raw and decoded, returns that range's text.
void expectSplitAsSearch(const std::string& url) {
    SCOPED_TRACE(testing::PrintToString(url));
    const url_parts parts = split_url(url), expected_parts = split_url_by_search(url);
    for (const Component& component : kComponents) {
        SCOPED_TRACE(component.name);
        const url_range expected = expected_parts.*component.range;
        const url_range range = parts.*component.range;
        ASSERT_EQ(range.begin, expected.begin);
        ASSERT_EQ(range.end, expected.end);
        const std::string raw = url.substr(expected.begin, expected.end - expected.begin);
        ASSERT_EQ(component.get(url, false), raw);
        ASSERT_EQ(component.get(url, true), plainDecoding(raw));
    }
}

// At every length the delimiter masks (for texts short enough to have them)
// are those of the plain loop, and the splitter gives what its searches give.
TEST_P(UrlKernelTest, SplitIsTheSearchAtEveryLength) {
    std::mt19937 random(5);
    for (std::size_t n = 0; n <= 400; ++n)
        for (const std::string* alphabet : kAlphabets)
            for (int round = 0; round < 3; ++round) {
                const std::string text = randomText(random, n, *alphabet);
                expectSplitAsSearch(text);
                if (n > delimiter_masks::kMaxLength) continue;
                const std::vector<char> input(text.begin(), text.end());
                delimiter_masks expected, masks;
                scalar().find_delimiters(input.data(), n, expected);
                kernels().find_delimiters(input.data(), n, masks);
                for (int d = 0; d < kDelimiterCount; ++d)
                    for (std::size_t w = 0; w < (n + 63) / 64; ++w)
                        ASSERT_EQ(masks.rows[d][w], expected.rows[d][w])
                            << "length " << n << ", delimiter " << kDelimiterBytes[d] << ", word "
                            << w << ", text " << testing::PrintToString(text);
            }
}

// URLs of the shapes met in practice, each part there or not, with pieces
// of the delimiter-rich alphabet in them, around the masks' length limit.
TEST_P(UrlKernelTest, SplitIsTheSearchOnUrlShapes) {
    std::mt19937 random(6);
    const auto below = [&](std::size_t n) { return std::size_t(random() % n); };
    const auto maybe = [&](const std::string& before, std::size_t size) {
        if (below(3) == 0) return std::string();
        std::string part = before + randomText(random, below(size), kMostlyPlain);
        if (below(4) == 0)
            part.insert(below(part.size() + 1), 1, kDelimiterRich[below(kDelimiterRich.size())]);
        return part;
    };
    for (int round = 0; round < 20000; ++round) {
        std::string url = maybe("", 8);
        if (!url.empty()) url += ':';
        if (below(4) != 0) url += "//";
        const std::string userinfo = maybe("", 6) + maybe(";", 6) + maybe(":", 6);
        if (!userinfo.empty()) url += userinfo + "@";
        url += randomText(random, below(20), kMostlyPlain) + maybe(":", 5);
        url += maybe("/", 100 + below(120)) + maybe(";", 20) + maybe("?", 60) + maybe("#", 30);
        expectSplitAsSearch(url);
    }
}

TEST_P(UrlKernelTest, LargeTexts) {
    std::mt19937 random(3);
    for (std::size_t n : {std::size_t(4096), std::size_t(1) << 16, (std::size_t(1) << 20) + 7}) {
        for (const std::string* alphabet : kAlphabets) {
            const std::string text = randomText(random, n, *alphabet);
            expectCodingAsPlain(kernels(), text);
            expectSplitAsSearch(text);
        }
        const std::string bytes = randomText(random, n, kEveryByte);
        expectCodingAsPlain(kernels(), bytes);
        expectCodingAsPlain(kernels(), ktbase::url_encode(bytes, true));
    }
}

KT_INSTANTIATE_FOR_EVERY_KERNEL(UrlKernelTest);

}  // namespace
