// The hex and Base64 forms of buffers and strings, and the kernels of every
// set this CPU runs beneath them: the cases of data/codec_cases.txt, then the
// scalar set's output on random and damaged inputs.
#include <regex>
#include <sstream>

#include "allocation_faults.h"
#include "every_kernel.h"
#include "support.h"

namespace {

using Codec = void (KT::CBuffer::*)(const KT::CBuffer&, int);
const std::map<std::string, Codec> kCodecs = {{"encodeHex", &KT::CBuffer::encodeHex},
                                              {"decodeHex", &KT::CBuffer::decodeHex},
                                              {"encodeBase64", &KT::CBuffer::encodeBase64},
                                              {"decodeBase64", &KT::CBuffer::decodeBase64}};

// Written after a kernel's room: a kernel that writes past its output changes them.
const std::string kGuard(64, '\xA5');

// What `codec`'s kernel in `set` writes for `input`, then the guard bytes.
std::string viaKernel(const KT::simd::kernels& set, const std::string& codec,
                      const std::string& input) {
    std::string out(2 * input.size() + 4 + kGuard.size(), kGuard[0]);
    const auto* in = reinterpret_cast<const std::uint8_t*>(input.data());
    auto* o = reinterpret_cast<std::uint8_t*>(&out[0]);
    std::size_t n = input.size();
    if (codec == "encodeHex")
        set.hex_encode(in, n, o), n *= 2;
    else if (codec == "decodeHex")
        set.hex_decode(in, n / 2, o), n /= 2;
    else
        n = (codec == "encodeBase64" ? set.base64_encode : set.base64_decode)(in, n, o);
    out.resize(n + kGuard.size());
    return out;
}

// The bytes of a table field (\xNN and c{N} as in every table), "-" for none,
// and a last "*N" repeating all before it N times.
std::string bytesIn(const std::string& field) {
    static const std::regex kRepeated(R"((.+)\*(\d+))");
    std::smatch repeated;
    if (!std::regex_match(field, repeated, kRepeated)) return field == "-" ? "" : kttest::unescaped(field);
    std::string bytes;
    for (int n = std::stoi(repeated[2]); n > 0; --n) bytes += bytesIn(repeated[1]);
    return bytes;
}

// A buffer or string in the empty state ("-"), or whose storage holds exactly
// the bytes of `field`, its length counting those before a "|".
std::unique_ptr<KT::CBuffer> made(const std::string& kind, const std::string& field) {
    std::unique_ptr<KT::CBuffer> made(kind == "string" ? new KT::CString : new KT::CBuffer);
    const std::string used = bytesIn(field.substr(0, field.find('|')));
    const std::string all = bytesIn(std::regex_replace(field, std::regex("[|]"), ""));
    if (all.empty()) return made;
    auto* storage = static_cast<KT::UInt8*>(std::malloc(all.size()));
    std::memcpy(storage, all.data(), all.size());
    made->set(int(all.size()), storage, KT::ConstructionFlags(0));
    made->length = int(used.size());
    return made;
}

using CodecTest = kttest::EveryKernel;

TEST_P(CodecTest, CasesOfTheTable) {
    std::ifstream file(KT_TEST_DATA_DIR "/codec_cases.txt");
    ASSERT_TRUE(file.is_open());
    std::string line, codec, kind, before, input, memory;
    int adjustment, length;
    for (int number = 1; std::getline(file, line); ++number) {
        if (line.empty() || line[0] == '#') continue;
        SCOPED_TRACE("codec_cases.txt:" + std::to_string(number));
        std::istringstream row(line);
        ASSERT_TRUE(row >> codec >> adjustment >> kind >> before >> input >> memory >> length);
        std::vector<unsigned> sites{std::istream_iterator<unsigned>(row), {}};
        std::unique_ptr<KT::CBuffer> source, target;
        const auto code = [&] {
            source = made(kind, input);
            target = before == "=" ? nullptr : made(kind, before);
            ((target ? *target : *source).*kCodecs.at(codec))(*source, adjustment);
        };
        kttest::expectFailures({{"", code, sites}});
        const std::string expected = bytesIn(memory);
        EXPECT_EQ(kttest::memoryOf(target ? *target : *source, int(expected.size())), expected);
        EXPECT_EQ((target ? *target : *source).length, length);
        // A plain case: straight through the kernels too.
        if (kind == "buffer" && before == "-" && adjustment == 0 && input.find('|') == input.npos) {
            EXPECT_EQ(viaKernel(kernels(), codec, bytesIn(input)),
                      expected.substr(0, size_t(length)) + kGuard);
        }
    }
}

// Random bytes and texts of every length up to four blocks of the widest set,
// with odd characters at every position (every byte value when two blocks
// long), then of random lengths, then large ones, valid and with a random
// byte every few hundred.
TEST_P(CodecTest, SameAsTheScalarSet) {
    if (&kernels() == &scalar()) GTEST_SKIP() << "the reference itself";
    std::mt19937 random(20240601);
    const auto text = [&](std::size_t n, const char* from) {
        std::string text(n, '\0');
        for (char& c : text) c = from ? from[random() % std::strlen(from)] : char(random());
        return text;
    };
    const auto expectSame = [&](const std::string& codec, const std::string& input) {
        EXPECT_TRUE(viaKernel(kernels(), codec, input) == viaKernel(scalar(), codec, input))
            << codec << " of " << input.size() << " bytes";
    };
    const char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    const char hexDigits[] = "0123456789ABCDEFabcdef", odd[] = "= \n-_.@[`{:*\x80\xff";
    for (std::size_t n = 0; n <= 400; ++n) {
        const std::string plain = text(n, nullptr);
        for (const auto& [codec, _] : kCodecs) expectSame(codec, plain);
        for (auto [decode, valid] : {std::pair("decodeBase64", text(n, alphabet)),
                                     std::pair("decodeHex", text(n, hexDigits))}) {
            expectSame(decode, valid);
            for (std::size_t at = 0; at < n; at += n <= 256 ? 1 : 1 + random() % 64) {
                std::string changed = valid;
                for (int value = 0; value < (n == 128 || n == 256 ? 256 : 0); ++value)
                    expectSame(decode, changed.replace(at, 1, 1, char(value)));
                changed[at] = odd[random() % (sizeof odd - 1)];
                expectSame(decode, changed);
                // A complete padded tail, then more text after it.
                expectSame(decode, changed.replace(at, 2, "=="));
            }
        }
    }
    // Random lengths past those, each codec on random bytes and its decoders
    // on valid text with a random byte here and there.
    for (int round = 0; round < 16; ++round) {
        const std::size_t n = 401 + random() % 20000;
        for (const auto& [codec, _] : kCodecs) expectSame(codec, text(n, nullptr));
        std::string b64 = text(n, alphabet), hex = text(n, hexDigits);
        b64[random() % n] = char(random()), hex[random() % n] = char(random());
        expectSame("decodeBase64", b64);
        expectSame("decodeHex", hex);
    }
    const std::string large = text(1 << 20, nullptr);
    for (const auto& [codec, _] : kCodecs) expectSame(codec, large);
    for (auto [decode, valid] : {std::pair("decodeBase64", text(1 << 20, alphabet)),
                                 std::pair("decodeHex", text(1 << 21, hexDigits))}) {
        expectSame(decode, valid);
        for (std::size_t at = random() % 500; at < valid.size(); at += 1 + random() % 500)
            valid[at] = char(random());
        expectSame(decode, valid);
    }
}

KT_INSTANTIATE_FOR_EVERY_KERNEL(CodecTest);

// The scalar set comes first, and the library uses the fastest set the CPU
// runs: the last.
TEST(KernelChoiceTest, ScalarFirstFastestInUse) {
    const std::vector<const KT::simd::kernels*>& sets = KT::simd::supported();
    EXPECT_STREQ(sets.front()->name, "scalar");
    EXPECT_EQ(&KT::simd::active(), sets.back());
#ifdef KT_SIMD_X86
    // supported() has set up the CPU checks.
    EXPECT_EQ(sets.size() > 1 && std::strcmp(sets[1]->name, "avx2") == 0,
              __builtin_cpu_supports("avx2") && __builtin_cpu_supports("bmi"));
#elif defined(KT_SIMD_NEON)
    // Every aarch64 CPU has NEON: the set is in use without a check.
    EXPECT_STREQ(sets.back()->name, "neon");
    EXPECT_EQ(sets.size(), 2u);
#endif
}

}  // namespace
