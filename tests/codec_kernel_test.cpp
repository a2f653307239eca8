// The hex and Base64 kernels of every set this CPU runs: known answers, and
// the scalar set's output on the same inputs.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "every_kernel.h"

namespace {

using Bytes = std::vector<std::uint8_t>;
using Kernels = KT::simd::kernels;

const char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
const char kHexDigits[] = "0123456789ABCDEFabcdef";

Bytes bytesOf(const std::string& text) { return Bytes(text.begin(), text.end()); }

// The bytes that a row writes as hex text; the test's own reading, so that
// the known answers do not depend on the codec under test.
Bytes bytesOfHex(const std::string& hex) {
    Bytes bytes;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 2)
        bytes.push_back(std::uint8_t(std::stoi(hex.substr(i, 2), nullptr, 16)));
    return bytes;
}

// An operation of the codec: writes its output for `n` bytes with a set's
// kernel and returns its length.
struct Op {
    const char* name;
    std::size_t (*write)(const Kernels&, const std::uint8_t* in, std::size_t n, std::uint8_t* out);
};
const Op kHexEncode{"hex_encode",
                    [](const Kernels&set, const std::uint8_t*in, std::size_t n, std::uint8_t*out) {
                        set.hex_encode(in, n, out);
                        return 2 * n;
                    }},
    kHexDecode{"hex_decode",
               [](const Kernels&set, const std::uint8_t*in, std::size_t n, std::uint8_t*out) {
                   set.hex_decode(in, n / 2, out);
                   return n / 2;
               }},
    kBase64Encode{"base64_encode", [](const Kernels&set, const std::uint8_t*in, std::size_t n,
                                      std::uint8_t*out) { return set.base64_encode(in, n, out); }},
    kBase64Decode{"base64_decode", [](const Kernels&set, const std::uint8_t*in, std::size_t n,
                                      std::uint8_t*out) { return set.base64_decode(in, n, out); }};

// Guard bytes after the room an operation may use: a kernel that writes past
// its output changes them.
constexpr std::size_t kGuard = 64;
constexpr std::uint8_t kGuardByte = 0xA5;

// The output of `op` on `input` with `set`, followed by the guard bytes that
// come after it.
Bytes run(const Kernels& set, const Op& op, const Bytes& input) {
    Bytes out(2 * input.size() + 4 + kGuard, kGuardByte);
    out.resize(op.write(set, input.data(), input.size(), out.data()) + kGuard);
    return out;
}

// ---------------------------------------------------------------- known answers

// Exact bytes under every set, the scalar one included, with inputs long
// enough for the vector loops.
class CodecKernelAnswerTest : public kttest::EveryKernel {
  protected:
    // Expects `op` on `input` to give exactly `expected` and to leave the
    // guard bytes after it alone.
    void expectOutput(const Op& op, const Bytes& input, Bytes expected) {
        expected.insert(expected.end(), kGuard, kGuardByte);
        EXPECT_EQ(run(kernels(), op, input), expected) << op.name;
    }
};

TEST_P(CodecKernelAnswerTest, Base64RoundTripsGiveExactBytes) {
    const char* const rows[][2] = {
        {"000102030405060708090A0B0C0D0E0F101112131415161718191A1B1C1D1E1F"
         "202122232425262728292A2B2C2D2E2F303132333435363738393A3B3C3D3E3F"
         "404142434445464748494A4B4C4D4E4F505152535455565758595A5B5C5D5E5F",
         "AAECAwQFBgcICQoLDA0ODxAREhMUFRYXGBkaGxwdHh8gISIjJCUmJygpKissLS4v"
         "MDEyMzQ1Njc4OTo7PD0+P0BBQkNERUZHSElKS0xNTk9QUVJTVFVWV1hZWltcXV5f"},
        // Every sextet once, in order: the whole alphabet.
        {"00108310518720928B30D38F41149351559761969B71D79F8218A39259A7A29AABB2DBAFC31CB3D35DB7"
         "E39EBBF3DFBF",
         kAlphabet},
        {"C8C9CACBCCCDCECFD0D1D2D3D4D5D6D7D8D9DADBDCDDDEDFE0E1E2E3E4E5E6E7E8E9EAEBECEDEEEFF0F1"
         "F2F3F4F5F6F7F8F9FAFBFCFDFE",
         "yMnKy8zNzs/Q0dLT1NXW19jZ2tvc3d7f4OHi4+Tl5ufo6err7O3u7/Dx8vP09fb3+Pn6+/z9/g=="},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row[1]);
        expectOutput(kBase64Encode, bytesOfHex(row[0]), bytesOf(row[1]));
        expectOutput(kBase64Decode, bytesOf(row[1]), bytesOfHex(row[0]));
    }
}

TEST_P(CodecKernelAnswerTest, DecodingCountsPadsAndInvalidCharacters) {
    struct Row {
        const Op& op;
        const char* text;
        const char* decodedHex;
    };
    const Row rows[] = {
        // A padded group in the middle gives one byte; decoding goes on.
        {kBase64Decode, "TWFuTQ==TWFuTWFuTWFuTWFuTWFuTWFu",
         "4D616E4D4D616E4D616E4D616E4D616E4D616E4D616E"},
        // An invalid character counts as a pad and takes part as 255.
        {kBase64Decode, "TWFuTWFuTWFuTWFuTWFuTWFuTWFuTW*u",
         "4D616E4D616E4D616E4D616E4D616E4D616E4D616E4D6F"},
        // A stray "=" shifts the groups after it; the partial tail is dropped.
        {kBase64Decode, "TWFuTWFuTWFuTWFuTWFuTWFuTWFuTWFu=TWFuTWFu",
         "4D616E4D616E4D616E4D616E4D616E4D616E4D616E4D616EFD35B93585"},
        {kBase64Decode, "TWFuTWFuTWFuTWFuTWFuTWFuTWFuTWFuTW=uT=F=====TWFu!WFuTWFuTWFuTWFuTWFuTWF",
         "4D616E4D616E4D616E4D616E4D616E4D616E4D616E4D616E4D6F4FFFFFFF4D616EFD614D616E4D616E4D61"
         "6E4D616E"},
        // "zz" gives FF, "z0" F0; the blocks around them decode as usual.
        {kHexDecode,
         "000102030405060708090A0B0c0D0E0f101112131415161718191A1b1C1D1e1F"
         "202122232425262728292a2B2C2d2E2F303132333435363738393A3B3c3D3E3f"
         "zzz0AbcDeF404142434445464748494A4B4c4D4E4f505152535455565758595A5b5C5D5e5F",
         "000102030405060708090A0B0C0D0E0F101112131415161718191A1B1C1D1E1F"
         "202122232425262728292A2B2C2D2E2F303132333435363738393A3B3C3D3E3F"
         "FFF0ABCDEF404142434445464748494A4B4C4D4E4F505152535455565758595A5B5C5D5E5F"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.text);
        expectOutput(row.op, bytesOf(row.text), bytesOfHex(row.decodedHex));
    }
}

TEST_P(CodecKernelAnswerTest, HexEncodesEveryByte) {
    Bytes all(256);
    std::string digits;
    for (int i = 0; i < 256; ++i) {
        all[std::size_t(i)] = std::uint8_t(i);
        digits += std::string(1, kHexDigits[i >> 4]) + kHexDigits[i & 15];
    }
    expectOutput(kHexEncode, all, bytesOf(digits));
}

KT_INSTANTIATE_FOR_EVERY_KERNEL(CodecKernelAnswerTest);

// ---------------------------------------------------------------- same as scalar

// Every vector set against the scalar one, on the same inputs.
class CodecKernelSameTest : public kttest::EveryKernel {
  protected:
    // Expects the set under test to give the scalar set's output (and length)
    // for `op` on `input`.
    void expectSame(const Op& op, const Bytes& input) {
        EXPECT_TRUE(run(kernels(), op, input) == run(scalar(), op, input))
            << op.name << " of " << input.size() << " bytes";
    }

    // Deterministic test data: a byte, a number below n, n bytes of any value
    // or n characters drawn from `set`.
    std::uint8_t byte() { return std::uint8_t(random_() >> 24); }
    std::size_t below(std::size_t n) { return std::size_t(random_() % n); }
    Bytes bytes(std::size_t n, const char* set = nullptr) {
        Bytes result(n);
        for (auto& b : result) b = set ? std::uint8_t(set[below(std::strlen(set))]) : byte();
        return result;
    }

    // A text and the operation that decodes it.
    struct Text {
        const Op& op;
        Bytes bytes;
    };

  private:
    std::mt19937 random_{20240601};
};

TEST_P(CodecKernelSameTest, RandomBytesAndValidTextOfEveryLength) {
    for (std::size_t n = 0; n <= 400; ++n) {
        Bytes input = bytes(n);
        for (const Op* op : {&kHexEncode, &kHexDecode, &kBase64Encode, &kBase64Decode})
            expectSame(*op, input);
        expectSame(kBase64Decode, bytes(n, kAlphabet));
        expectSame(kHexDecode, bytes(n, kHexDigits));
    }
}

// Every byte value at every position of two blocks of the widest set: the
// vector classification of characters must agree with the scalar tables.
TEST_P(CodecKernelSameTest, EveryByteAtEveryPosition) {
    const Text rows[] = {{kBase64Decode, bytes(128, kAlphabet)},
                         {kHexDecode, bytes(256, kHexDigits)}};
    for (const Text& row : rows) {
        for (int value = 0; value < 256; ++value) {
            for (std::size_t at = 0; at < row.bytes.size(); ++at) {
                Bytes text = row.bytes;
                text[at] = std::uint8_t(value);
                expectSame(row.op, text);
            }
        }
    }
}

// Pads and invalid characters at every position of texts of every length up
// to four blocks of the widest set, and at random positions of longer ones.
TEST_P(CodecKernelSameTest, PadsAndInvalidCharactersAnywhere) {
    const char odd[] = "=\0 \n-_.@[`{:*\x80\xff";
    for (std::size_t n = 1; n <= 400; ++n) {
        Bytes text = bytes(n, kAlphabet);
        std::size_t positions = n <= 256 ? n : 8;
        for (std::size_t k = 0; k < positions; ++k) {
            std::size_t at = n <= 256 ? k : below(n);
            Bytes changed = text;
            changed[at] = std::uint8_t(odd[below(sizeof odd - 1)]);
            expectSame(kBase64Decode, changed);
            // A complete padded tail, then more text after it.
            changed[at] = '=';
            if (at + 1 < n) changed[at + 1] = '=';
            expectSame(kBase64Decode, changed);
        }
    }
}

TEST_P(CodecKernelSameTest, LargeInputs) {
    const std::size_t size = 1 << 20;
    Bytes plain = bytes(size);
    expectSame(kHexEncode, plain);
    expectSame(kBase64Encode, plain);

    // Valid text, then the same with an odd character every few hundred bytes.
    Bytes base64 = run(kernels(), kBase64Encode, plain);
    base64.resize(base64.size() - kGuard);
    Text rows[] = {{kBase64Decode, base64}, {kHexDecode, bytes(2 * size, kHexDigits)}};
    for (Text& row : rows) {
        expectSame(row.op, row.bytes);
        for (std::size_t at = below(500); at < row.bytes.size(); at += 1 + below(500))
            row.bytes[at] = byte();
        expectSame(row.op, row.bytes);
    }
}

INSTANTIATE_TEST_SUITE_P(Kernels, CodecKernelSameTest, testing::ValuesIn(kttest::vectorKernels()),
                         kttest::kernelName);

// The scalar set comes first, and the library uses the fastest set the CPU
// runs: the last.
TEST(KernelChoiceTest, ScalarFirstFastestInUse) {
    const std::vector<const Kernels*>& sets = KT::simd::supported();
    EXPECT_STREQ(sets.front()->name, "scalar");
    EXPECT_EQ(&KT::simd::active(), sets.back());
#ifdef KT_SIMD_X86
    __builtin_cpu_init();
    const bool avx2 = __builtin_cpu_supports("avx2") && __builtin_cpu_supports("bmi");
    EXPECT_EQ(sets.size() > 1 && std::strcmp(sets[1]->name, "avx2") == 0, avx2);
#endif
}

}  // namespace
