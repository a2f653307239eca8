// The fast paths of the URL functions against the plain ones: every kernel
// set this machine runs (url_kernels.h) against the plain byte loops, and
// the one-pass splitter behind the getters against the splitting steps, on
// random texts of every length from 0 to a few hundred bytes and on large
// ones, drawn from alphabets rich in the bytes that matter.
#include "url_kernels.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "kt/url.h"
#include "url_internal.h"

namespace {

using namespace ktbase::url_detail;

std::string kernelName(url_kernel kernel) {
    switch (kernel) {
        case url_kernel::scalar: return "Scalar";
        case url_kernel::sse: return "Sse";
        case url_kernel::avx2: return "Avx2";
        case url_kernel::avx512: return "Avx512";
    }
    return "Unknown";
}

// Runs each test with the kernel set it is given (skipped where the CPU
// lacks it), then restores the set that was active.
class UrlKernelTest : public testing::TestWithParam<url_kernel> {
protected:
    void SetUp() override {
        if (!select_kernel(GetParam())) GTEST_SKIP() << "the CPU lacks this set";
    }
    void TearDown() override { select_kernel(saved_); }

private:
    url_kernel saved_ = active_kernel();
};

// Escapes and near-escapes: "%" often, digits ("0" too, which reads as no
// digit), letters that are and are not hex digits, slashes in runs, and
// bytes that are escaped.
const std::string kEscapeRich = std::string("%%%%%0123456789aAfFgGzZ//// +~@") + '\0' + "\xff\x80";
// The delimiters of the URL model, often, among a few other bytes.
const std::string kDelimiterRich = std::string(":/@;?#:/@;?#%20a1 .") + '\0' + "\xff";
// Mostly bytes that stay as they are, so that blocks go through whole.
const std::string kMostlyPlain = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJ0123456789-._%/ ~";

const std::string* const kAlphabets[] = {&kEscapeRich, &kDelimiterRich, &kMostlyPlain};

class Generator {
public:
    explicit Generator(std::uint32_t seed) : random_(seed) {}
    std::string text(std::size_t n, const std::string& alphabet) {
        std::string result(n, '\0');
        for (char& c : result) c = alphabet[random_() % alphabet.size()];
        return result;
    }
    std::string bytes(std::size_t n) {
        std::string result(n, '\0');
        for (char& c : result) c = char(random_() >> 24);
        return result;
    }
    std::size_t below(std::size_t n) { return std::size_t(random_() % n); }

private:
    std::mt19937 random_;
};

// Guard bytes after the room a kernel may use: writing past it changes them.
constexpr std::size_t kGuard = 32;
constexpr char kGuardByte = '\xa5';

std::string plainEncoding(const std::string& text, bool all) {
    std::string out(3 * text.size(), '\0');
    out.resize(url_encode_range(&out[0], text.data(), text.data() + text.size(), all));
    return out;
}

std::string plainDecoding(const std::string& text) {
    std::string out(text.size(), '\0');
    out.resize(url_decode_range(&out[0], text.data(), text.data() + text.size()));
    return out;
}

// The active kernels' encoding of `text`, in a buffer of exactly the room
// they are promised, with guard bytes after it.
void expectEncodingAsPlain(const std::string& text) {
    // A copy of exactly the text's size, so that a read past it is caught
    // under AddressSanitizer.
    const std::vector<char> input(text.begin(), text.end());
    const char* first = input.data();
    const char* last = first + input.size();
    const kernel_set& kernels = active_kernels();
    ASSERT_LE(kernels.encode_slack, kKernelSlack);
    for (bool all : {false, true}) {
        const std::string expected = plainEncoding(text, all);
        ASSERT_EQ(kernels.encoded_size(first, last, all), expected.size()) << "all " << all;
        if (text.empty()) continue;
        std::vector<char> out(expected.size() + kernels.encode_slack + kGuard, kGuardByte);
        ASSERT_EQ(kernels.encode(out.data(), first, last, all), expected.size()) << "all " << all;
        ASSERT_EQ(std::string(out.data(), expected.size()), expected) << "all " << all;
        for (std::size_t i = expected.size() + kernels.encode_slack; i < out.size(); ++i)
            ASSERT_EQ(out[i], kGuardByte) << "written past the slack, all " << all;
        ASSERT_EQ(ktbase::url_encode(text, all), expected);
    }
}

void expectDecodingAsPlain(const std::string& text) {
    const std::string expected = plainDecoding(text);
    ASSERT_EQ(ktbase::url_decode(text), expected);
    if (text.empty()) return;
    const std::vector<char> input(text.begin(), text.end());
    const kernel_set& kernels = active_kernels();
    ASSERT_LE(kernels.decode_slack, kKernelSlack);
    std::vector<char> out(text.size() + kernels.decode_slack + kGuard, kGuardByte);
    const std::size_t size = kernels.decode(out.data(), input.data(), input.data() + input.size());
    ASSERT_EQ(std::string(out.data(), size), expected);
    for (std::size_t i = text.size() + kernels.decode_slack; i < out.size(); ++i)
        ASSERT_EQ(out[i], kGuardByte) << "written past the slack";
}

TEST_P(UrlKernelTest, EncodingIsThePlainOneAtEveryLength) {
    Generator generate(1);
    for (std::size_t n = 0; n <= 300; ++n) {
        for (const std::string* alphabet : kAlphabets)
            for (int round = 0; round < 3; ++round) {
                const std::string text = generate.text(n, *alphabet);
                SCOPED_TRACE(testing::PrintToString(text));
                expectEncodingAsPlain(text);
            }
        const std::string bytes = generate.bytes(n);
        SCOPED_TRACE(testing::PrintToString(bytes));
        expectEncodingAsPlain(bytes);
    }
}

TEST_P(UrlKernelTest, DecodingIsThePlainOneAtEveryLength) {
    Generator generate(2);
    for (std::size_t n = 0; n <= 300; ++n) {
        for (const std::string* alphabet : kAlphabets)
            for (int round = 0; round < 3; ++round) {
                const std::string text = generate.text(n, *alphabet);
                SCOPED_TRACE(testing::PrintToString(text));
                expectDecodingAsPlain(text);
            }
        // Encodings: valid escapes everywhere, as decoding mostly meets them.
        const std::string encoded = ktbase::url_encode(generate.bytes(n), n % 2 == 0);
        SCOPED_TRACE(testing::PrintToString(encoded));
        expectDecodingAsPlain(encoded);
    }
}

// Escapes that swallow the "%" of the next one, at every place in a block.
TEST_P(UrlKernelTest, DecodingOverlappingEscapes) {
    const char* pieces[] = {"%%41", "%4%41", "%%%", "%0%41", "%00%", "%%", "%4z", "%z%"};
    for (const char* piece : pieces)
        for (std::size_t before = 0; before < 70; ++before)
            for (std::size_t after = 0; after < 4; ++after) {
                const std::string text = std::string(before, 'x') + piece + std::string(after, 'y');
                SCOPED_TRACE(text);
                expectDecodingAsPlain(text);
            }
}

TEST_P(UrlKernelTest, LargeTexts) {
    Generator generate(3);
    for (std::size_t n : {std::size_t(1) << 16, (std::size_t(1) << 20) + 7}) {
        for (const std::string* alphabet : kAlphabets) {
            const std::string text = generate.text(n, *alphabet);
            expectEncodingAsPlain(text);
            expectDecodingAsPlain(text);
        }
        const std::string bytes = generate.bytes(n);
        expectEncodingAsPlain(bytes);
        expectDecodingAsPlain(ktbase::url_encode(bytes, true));
    }
}

TEST_P(UrlKernelTest, DelimiterMasksAreThePlainOnes) {
    Generator generate(4);
    for (std::size_t n = 0; n <= delimiter_masks::kMaxLength; ++n) {
        for (const std::string* alphabet : kAlphabets) {
            const std::string text = generate.text(n, *alphabet);
            const std::vector<char> input(text.begin(), text.end());
            delimiter_masks expected, masks;
            kScalarKernels.find_delimiters(input.data(), n, expected);
            active_kernels().find_delimiters(input.data(), n, masks);
            for (int d = 0; d < kDelimiterCount; ++d)
                for (std::size_t w = 0; w < (n + 63) / 64; ++w)
                    ASSERT_EQ(masks.rows[d][w], expected.rows[d][w])
                        << "length " << n << ", delimiter " << kDelimiterBytes[d] << ", word " << w
                        << ", text " << testing::PrintToString(text);
        }
    }
}

// --- The one-pass splitter ---------------------------------------------------

struct Component {
    const char* name;
    url_step step;
    bool in_authority;
    url_range url_parts::*range;
    std::string (*get)(const std::string&, bool);
};

const Component kComponents[] = {
    {"scheme", split_scheme, false, &url_parts::scheme, ktbase::url_scheme},
    {"authority", split_authority, false, &url_parts::authority, ktbase::url_authority},
    {"path", split_path, false, &url_parts::path, ktbase::url_path},
    {"params", split_params, false, &url_parts::params, ktbase::url_params},
    {"query", split_query, false, &url_parts::query, ktbase::url_query},
    {"fragment", split_fragment, false, &url_parts::fragment, ktbase::url_fragment},
    {"domain", split_domain, true, &url_parts::domain, ktbase::url_domain},
    {"user", split_user, true, &url_parts::user, ktbase::url_user},
    {"password", split_password, true, &url_parts::password, ktbase::url_password},
    {"host", split_host, true, &url_parts::host, ktbase::url_host},
    {"service", split_service, true, &url_parts::service, ktbase::url_service},
};

// The range that the splitting steps give.
url_range stepRange(const std::string& url, const Component& component) {
    return component.in_authority ? locate_in_authority(url, component.step).part
                                  : locate(url, component.step);
}

std::string plainText(const std::string& url, url_range range, bool decode) {
    const std::string raw = url.substr(range.begin, range.end - range.begin);
    return decode ? plainDecoding(raw) : raw;
}

void expectSplitAsSteps(const std::string& url) {
    SCOPED_TRACE(testing::PrintToString(url));
    const url_parts parts = split_url(url);
    for (const Component& component : kComponents) {
        SCOPED_TRACE(component.name);
        const url_range expected = stepRange(url, component);
        const url_range range = parts.*component.range;
        ASSERT_EQ(range.begin, expected.begin);
        ASSERT_EQ(range.end, expected.end);
        for (bool decode : {false, true})
            ASSERT_EQ(component.get(url, decode), plainText(url, expected, decode))
                << "decode " << decode;
    }
}

TEST_P(UrlKernelTest, SplitIsTheStepsAtEveryLength) {
    Generator generate(5);
    for (std::size_t n = 0; n <= 400; ++n)
        for (const std::string* alphabet : kAlphabets)
            for (int round = 0; round < 3; ++round) expectSplitAsSteps(generate.text(n, *alphabet));
}

// URLs of the shapes met in practice, each part there or not, with pieces
// of the delimiter-rich alphabet in them, around the masks' length limit.
TEST_P(UrlKernelTest, SplitIsTheStepsOnUrlShapes) {
    Generator generate(6);
    const auto maybe = [&](const std::string& before, std::size_t size) {
        if (generate.below(3) == 0) return std::string();
        std::string part = before + generate.text(generate.below(size), kMostlyPlain);
        if (generate.below(4) == 0)
            part.insert(generate.below(part.size() + 1), 1,
                        kDelimiterRich[generate.below(kDelimiterRich.size())]);
        return part;
    };
    for (int round = 0; round < 20000; ++round) {
        std::string url = maybe("", 8);
        if (!url.empty()) url += ':';
        if (generate.below(4) != 0) url += "//";
        const std::string userinfo = maybe("", 6) + maybe(";", 6) + maybe(":", 6);
        if (!userinfo.empty()) url += userinfo + "@";
        url += generate.text(generate.below(20), kMostlyPlain) + maybe(":", 5);
        url += maybe("/", 100 + generate.below(120)) + maybe(";", 20) + maybe("?", 60) +
               maybe("#", 30);
        expectSplitAsSteps(url);
    }
}

TEST_P(UrlKernelTest, SplitLargeTexts) {
    Generator generate(7);
    for (std::size_t n : {std::size_t(4096), std::size_t(1) << 16})
        for (const std::string* alphabet : kAlphabets)
            expectSplitAsSteps(generate.text(n, *alphabet));
}

INSTANTIATE_TEST_SUITE_P(Kernels, UrlKernelTest,
                         testing::Values(url_kernel::scalar, url_kernel::sse, url_kernel::avx2,
                                         url_kernel::avx512),
                         [](const testing::TestParamInfo<url_kernel>& info) {
                             return kernelName(info.param);
                         });

// The set in use after a fresh start is the fastest the CPU runs, and
// selecting one that the build or CPU lacks changes nothing.
TEST(UrlKernelChoiceTest, SelectReportsWhatItCanRun) {
    const url_kernel active = active_kernel();
    EXPECT_TRUE(select_kernel(url_kernel::scalar));
    EXPECT_EQ(active_kernel(), url_kernel::scalar);
    EXPECT_TRUE(select_kernel(active));
    EXPECT_EQ(active_kernel(), active);
}

}  // namespace
