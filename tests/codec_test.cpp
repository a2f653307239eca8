// The hex and Base64 forms of buffers and strings.
#include "kt/KTBuffer.h"

#include "allocation_faults.h"
#include "support.h"

namespace {

using kttest::bufferOf;
using kttest::bytesOf;

using Codec = void (KT::CBuffer::*)(const KT::CBuffer&, int);

const Codec kEncodeHex = &KT::CBuffer::encodeHex;
const Codec kDecodeHex = &KT::CBuffer::decodeHex;
const Codec kEncodeBase64 = &KT::CBuffer::encodeBase64;
const Codec kDecodeBase64 = &KT::CBuffer::decodeBase64;

// `codec` applied to `input` into `target`; a string target adds its terminator.
template <class Target = KT::CBuffer>
Target coded(Codec codec, const KT::CBuffer& input, int adjustment = 0, Target target = Target()) {
    (target.*codec)(input, adjustment);
    return target;
}

// Expects `codec` to take `from` to `to` from a buffer, and from a string whose
// terminator its correction leaves out; a string target ends its result with one.
void expectCodes(Codec codec, const std::string& from, const std::string& to) {
    KT::CString text(from.c_str());
    EXPECT_EQ(bytesOf(coded(codec, bufferOf(from))), to);
    EXPECT_EQ(bytesOf(coded<KT::CString>(codec, text, text.correction())),
              to.empty() ? "" : to + '\0');
}

TEST(CodecTest, KnownBytesBothWaysIntoBuffersAndStrings) {
    struct Row {
        bool base64;
        std::string plain, encoded;
    };
    // The standard Base64 vectors; hex has no groups, so fewer lengths.
    const Row rows[] = {{false, "", ""},
                        {false, "foobar", "666F6F626172"},
                        {false, "\x01\xAB\xFF\x7F\x80", "01ABFF7F80"}, {true, "", ""},
                        {true, "f", "Zg=="}, {true, "fo", "Zm8="}, {true, "foo", "Zm9v"},
                        {true, "foob", "Zm9vYg=="}, {true, "fooba", "Zm9vYmE="},
                        {true, "foobar", "Zm9vYmFy"}, {true, "M", "TQ=="}, {true, "Ma", "TWE="},
                        {true, "Man", "TWFu"}, {true, "\xFB\xFF\xBF", "+/+/"},
                        {true, "\x01\x02\x03\x04", "AQIDBA=="}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.encoded);
        expectCodes(row.base64 ? kEncodeBase64 : kEncodeHex, row.plain, row.encoded);
        expectCodes(row.base64 ? kDecodeBase64 : kDecodeHex, row.encoded, row.plain);
    }
    const KT::CBuffer zeros = bufferOf(std::string("\x00\xAB\xFF", 3));
    EXPECT_EQ(bytesOf(coded<KT::CString>(kEncodeHex, zeros)), std::string("00ABFF", 7));
}

TEST(CodecTest, DecodingReportsNothing) {
    struct Row {
        Codec codec;
        std::string encoded, plain;
    };
    // The kernel suite decodes pads, invalid characters and shifted groups
    // at vector lengths under every set; here, through buffers, the short forms.
    const Row rows[] = {
        {kDecodeHex, "0a0B", "\x0A\x0B"},
        {kDecodeHex, "zz", "\xFF"},            // an invalid second digit: 255
        {kDecodeHex, "z0", "\xF0"},            // an invalid first digit: 15
        {kDecodeBase64, "TWE", ""},            // a partial group is ignored
        {kDecodeBase64, "TQ==TWFu", "MMan"},   // decoding goes on after a pad
        {kDecodeBase64, "T!Fu", "O\xF1"},      // invalid characters count as pads
        {kDecodeBase64, " TWFu", "\xFD\x35"},  // whitespace shifts the groups
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.encoded);
        EXPECT_EQ(bytesOf(coded(row.codec, bufferOf(row.encoded))), row.plain);
    }
}

TEST(CodecTest, OddHexDigitPairsWithTheByteAfterTheCountedText) {
    // Three of the four digits are counted; the last pair reads the fourth.
    KT::CBuffer decoded = coded(kDecodeHex, bufferOf("4142"), -1);
    EXPECT_EQ(decoded.length, 1);
    EXPECT_EQ(kttest::memoryOf(decoded, 2), "AB");
    KT::CBuffer shortened = bufferOf("4145");
    shortened.length = 3;
    EXPECT_EQ(kttest::memoryOf(coded(kDecodeHex, shortened), 2), "AE");

    // A string's terminator follows its text: not a digit, so the byte is 255.
    KT::CString text("414");
    EXPECT_EQ(kttest::memoryOf(coded(kDecodeHex, text, text.correction()), 2), "A\xFF");

    // Here the source holds exactly its three digits and the target exactly
    // the one byte counted: the sanitizer build catches any access beyond.
    KT::CBuffer exact, target;
    exact.set(3, static_cast<KT::UInt8*>(std::malloc(3)), KT::ConstructionFlags(0));
    std::memcpy(exact.data, "414", 3);
    target.set(1, static_cast<KT::UInt8*>(std::malloc(1)), KT::ConstructionFlags(0));
    target.clear();
    target.decodeHex(exact, 0);
    EXPECT_EQ(target.capacity, 1);
    EXPECT_EQ(bytesOf(target), "A");
    EXPECT_EQ(kttest::memoryOf(coded(kDecodeHex, exact), 2), "A\xFF");
}

// Into a target holding "XXXXXXXX", or into the source itself.
TEST(CodecTest, HexAddsToTheOldLengthAndBase64ReplacesIt) {
    // The codec, the input, whether it codes itself, the target's first bytes
    // afterwards and its length.
    const std::tuple<Codec, std::string, bool, std::string, int> rows[] = {
        {kEncodeHex, "\x01", false, "01XXXXXX", 10}, {kDecodeHex, "4142", false, "ABXXXXXX", 10},
        {kEncodeBase64, "M", false, "TQ==XXXX", 4},   {kDecodeBase64, "TWFu", false, "ManXXXXX", 3},
        {kEncodeHex, "\x01\x02", true, "0102", 6},    {kEncodeBase64, "Man", true, "TWFu", 4},
        {kDecodeBase64, "TWFu", true, "Man", 3}};
    for (const auto& [codec, input, itself, memory, length] : rows) {
        SCOPED_TRACE(input + (itself ? " itself" : ""));
        KT::CBuffer target = bufferOf(itself ? input : "XXXXXXXX");
        (target.*codec)(itself ? target : bufferOf(input), 0);
        EXPECT_EQ(kttest::memoryOf(target, int(memory.size())), memory);
        EXPECT_EQ(target.length, length);
    }
    EXPECT_EQ(bytesOf(coded(kEncodeBase64, bufferOf("M"), 0, KT::CString("XXXXXXX"))),
              std::string("TQ==", 5));
    KT::CString text("TWFu");
    text.decodeBase64(text, text.correction());
    EXPECT_EQ(bytesOf(text), std::string("Man", 4));
}

// The count is the length plus the adjustment, kept within the source's
// storage: here "abc" in use of the five bytes "abcde", and nothing beyond
// them (the sanitizer build catches any access past the storage).
TEST(CodecTest, AdjustmentCountsWithinTheSourcesStorage) {
    // The adjustment, and the hex and Base64 forms it gives.
    const std::tuple<int, std::string, std::string> rows[] = {
        {0, "616263", "YWJj"}, {-1, "6162", "YWI="},          {-3, "", ""},
        {-100, "", ""},        {2, "6162636465", "YWJjZGU="}, {5, "6162636465", "YWJjZGU="}};
    std::vector<KT::UInt8> storage{'a', 'b', 'c', 'd', 'e'};
    KT::CBuffer source;
    source.set(int(storage.size()), storage.data(), KT::NoOwnership);
    source.length = 3;
    for (const auto& [adjustment, hex, base64] : rows) {
        SCOPED_TRACE(adjustment);
        EXPECT_EQ(bytesOf(coded(kEncodeHex, source, adjustment)), hex);
        EXPECT_EQ(bytesOf(coded(kEncodeBase64, source, adjustment)), base64);
        std::vector<KT::UInt8> own(storage);
        KT::CBuffer itself;
        itself.set(int(own.size()), own.data(), KT::NoOwnership);
        itself.length = 3;
        itself.encodeBase64(itself, adjustment);
        EXPECT_EQ(bytesOf(itself), base64);
    }
}

TEST(CodecTest, RandomBytesSurviveARoundTrip) {
    std::mt19937 generator(20240611);
    for (int size : {0, 1, 2, 3, 4, 5, 63, 64, 65, 255, 256, 511, 512, 513, 1000, 4099}) {
        SCOPED_TRACE(size);
        std::string plain(size_t(size), '\0');
        for (char& c : plain) c = char(generator());
        KT::CString hex = coded<KT::CString>(kEncodeHex, bufferOf(plain));
        KT::CString base64 = coded<KT::CString>(kEncodeBase64, bufferOf(plain));
        EXPECT_EQ(hex.length, size ? 2 * size + 1 : 0);
        EXPECT_EQ(base64.length, size ? (size + 2) / 3 * 4 + 1 : 0);
        EXPECT_EQ(bytesOf(coded(kDecodeHex, hex, hex.correction())), plain);
        EXPECT_EQ(bytesOf(coded(kDecodeBase64, base64, base64.correction())), plain);
    }
}

TEST(CodecTest, AllocationFailuresAreThrownAndLeakNothing) {
    const KT::CBuffer plain = bufferOf(std::string(700, 'p'));
    const KT::CBuffer encoded = bufferOf(std::string(1400, 'A'));
    // Hex results of exactly one 512-byte block: a string's terminator then
    // needs a second allocation.
    const KT::CBuffer blockPlain = bufferOf(std::string(256, 'p'));
    const KT::CBuffer blockEncoded = bufferOf(std::string(1024, 'A'));
    kttest::expectFailures({
        {"encodeHex", [&] { coded(kEncodeHex, plain); }, {299}},
        {"decodeHex", [&] { coded(kDecodeHex, encoded); }, {299}},
        {"encodeHex into a string",
         [&] { coded<KT::CString>(kEncodeHex, blockPlain); },
         {299, 299}},
        {"decodeHex into a string",
         [&] { coded<KT::CString>(kDecodeHex, blockEncoded); },
         {299, 299}},
        {"encodeBase64", [&] { coded<KT::CString>(kEncodeBase64, plain); }, {299}},
        {"decodeBase64", [&] { coded<KT::CString>(kDecodeBase64, encoded); }, {299}},
        {"itself",
         [] {
             KT::CBuffer buffer = bufferOf(std::string(700, 'p'));
             buffer.encodeHex(buffer, 0);
         },
         {44, 44, 299}},
    });
}

}  // namespace
