// The hex and Base64 forms of buffers and strings.
#include "kt/KTBuffer.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "kt/KTString.h"
#include "test_support.h"

namespace {

std::string bytesOf(const KT::CBuffer& buffer) {
    return buffer.length > 0
               ? std::string(reinterpret_cast<const char*>(buffer.data), size_t(buffer.length))
               : std::string();
}

KT::CBuffer bufferOf(const std::string& bytes) {
    KT::CBuffer buffer;
    buffer.append(int(bytes.size()), reinterpret_cast<const KT::UInt8*>(bytes.data()));
    return buffer;
}

using Codec = void (KT::CBuffer::*)(const KT::CBuffer&, int);

struct Pair {
    std::string plain;
    std::string encoded;
};

// Encodes `plain` and decodes `encoded` into an empty buffer and an empty
// string, from a buffer source and from a string source (whose terminator
// its correction leaves out).
void expectBothWays(const Pair& row, Codec encode, Codec decode) {
    struct Direction {
        const char* name;
        Codec codec;
        const std::string& from;
        const std::string& to;
    };
    const Direction directions[] = {{"encode", encode, row.plain, row.encoded},
                                    {"decode", decode, row.encoded, row.plain}};
    for (const Direction& direction : directions) {
        SCOPED_TRACE(direction.name);
        KT::CBuffer source = bufferOf(direction.from);
        KT::CBuffer buffer;
        (buffer.*direction.codec)(source, source.correction());
        EXPECT_EQ(bytesOf(buffer), direction.to);

        KT::CString stringSource(direction.from.c_str());
        KT::CString string;
        (string.*direction.codec)(stringSource, stringSource.correction());
        EXPECT_EQ(bytesOf(string), direction.to.empty() ? "" : direction.to + '\0');
    }
}

TEST(CodecTest, HexOfKnownBytes) {
    const Pair rows[] = {
        {"", ""},
        {"f", "66"},
        {"fo", "666F"},
        {"foo", "666F6F"},
        {"foob", "666F6F62"},
        {"fooba", "666F6F6261"},
        {"foobar", "666F6F626172"},
        {"\x01\xAB\xFF\x7F\x80", "01ABFF7F80"},
    };
    for (const Pair& row : rows) {
        SCOPED_TRACE(row.encoded);
        expectBothWays(row, &KT::CBuffer::encodeHex, &KT::CBuffer::decodeHex);
    }
}

TEST(CodecTest, Base64OfKnownBytes) {
    const Pair rows[] = {
        {"", ""},
        {"f", "Zg=="},
        {"fo", "Zm8="},
        {"foo", "Zm9v"},
        {"foob", "Zm9vYg=="},
        {"fooba", "Zm9vYmE="},
        {"foobar", "Zm9vYmFy"},
        {"M", "TQ=="},
        {"Ma", "TWE="},
        {"Man", "TWFu"},
        {"\xFB\xFF\xBF", "+/+/"},
        {"\x01\x02\x03\x04", "AQIDBA=="},
    };
    for (const Pair& row : rows) {
        SCOPED_TRACE(row.encoded);
        expectBothWays(row, &KT::CBuffer::encodeBase64, &KT::CBuffer::decodeBase64);
    }
}

TEST(CodecTest, HexEncodingOfZeroBytesIntoAString) {
    const std::string bytes("\x00\xAB\xFF", 3);
    KT::CBuffer buffer;
    buffer.encodeHex(bufferOf(bytes), 0);
    EXPECT_EQ(bytesOf(buffer), "00ABFF");
    KT::CString string;
    string.encodeHex(bufferOf(bytes), 0);
    EXPECT_EQ(bytesOf(string), std::string("00ABFF", 7));
}

TEST(CodecTest, HexDecodingTakesAnyCaseAndReportsNothing) {
    const Pair rows[] = {
        {"\x0A\x0B", "0a0B"}, {"\xAB\xCD\xEF", "abcdef"},
        {"\xFF", "zz"},       {"\xF0", "z0"},
        {"\xFF", "0z"},       {"\xF1", "g1"},
        {"\x12\xF3", "12 3"},
    };
    for (const Pair& row : rows) {
        SCOPED_TRACE(row.encoded);
        KT::CBuffer decoded;
        decoded.decodeHex(bufferOf(row.encoded), 0);
        EXPECT_EQ(bytesOf(decoded), row.plain);
    }
}

TEST(CodecTest, OddHexDigitPairsWithTheByteAfterTheCountedText) {
    // Three of the four characters are counted; the last pair reads the fourth.
    KT::CBuffer decoded;
    decoded.decodeHex(bufferOf("4142"), -1);
    EXPECT_EQ(decoded.length, 1);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(decoded.data), 2), "AB");

    // A string's terminator follows its text: not a digit, so the byte is 255.
    KT::CBuffer fromString;
    KT::CString text("414");
    fromString.decodeHex(text, text.correction());
    EXPECT_EQ(fromString.length, 1);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(fromString.data), 2), "A\xFF");
}

TEST(CodecTest, OddHexInputStaysWithinBothBuffers) {
    // The source holds exactly its three digits and the target exactly the one
    // byte counted; the sanitizer build catches any access beyond either.
    auto* digits = static_cast<KT::UInt8*>(std::malloc(3));
    std::memcpy(digits, "414", 3);
    KT::CBuffer source;
    source.set(3, digits, KT::ConstructionFlags(0));
    KT::CBuffer target;
    target.set(1, static_cast<KT::UInt8*>(std::malloc(1)), KT::ConstructionFlags(0));
    target.clear();
    target.decodeHex(source, 0);
    EXPECT_EQ(target.capacity, 1);
    EXPECT_EQ(bytesOf(target), "A");

    KT::CBuffer roomy;
    roomy.decodeHex(source, 0);
    EXPECT_EQ(roomy.length, 1);
    EXPECT_EQ(roomy.data[1], 0xFF);
}

TEST(CodecTest, Base64PadCountSetsTheGroupSize) {
    const Pair rows[] = {
        {"", "TWE"},               // a partial group is ignored
        {"Man", "TWFu\n"},         // ... also after whole groups
        {"MMan", "TQ==TWFu"},      // decoding goes on after a padded group
        {"O", "T=Q="},             // two pads anywhere: one byte
        {"Mo", "TW=u"},            // one pad anywhere: two bytes
        {"M\x0F", "TQ=A"},         // ... whatever follows it
        {"O\xF1", "T!Fu"},         // invalid characters count as pads
        {"\xFF\xFF\xFF", "===="},  // four pads: three bytes
        {"\xFD\x35", " TWFu"},     // whitespace shifts the groups
    };
    for (const Pair& row : rows) {
        SCOPED_TRACE(row.encoded);
        KT::CBuffer decoded;
        decoded.decodeBase64(bufferOf(row.encoded), 0);
        EXPECT_EQ(bytesOf(decoded), row.plain);
    }
}

// A target holding "XXXXXXXX" with room to spare.
KT::CBuffer filledTarget() { return bufferOf("XXXXXXXX"); }

TEST(CodecTest, HexAddsToTheOldLengthAndBase64ReplacesIt) {
    struct Row {
        const char* name;
        Codec codec;
        std::string source;
        std::string memory;  // the target's first eight bytes afterwards
        int length;
    };
    const Row rows[] = {
        {"encodeHex", &KT::CBuffer::encodeHex, "\x01", "01XXXXXX", 10},
        {"decodeHex", &KT::CBuffer::decodeHex, "4142", "ABXXXXXX", 10},
        {"encodeBase64", &KT::CBuffer::encodeBase64, "M", "TQ==XXXX", 4},
        {"decodeBase64", &KT::CBuffer::decodeBase64, "TWFu", "ManXXXXX", 3},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        KT::CBuffer target = filledTarget();
        (target.*row.codec)(bufferOf(row.source), 0);
        EXPECT_EQ(std::string(reinterpret_cast<const char*>(target.data), 8), row.memory);
        EXPECT_EQ(target.length, row.length);
    }
    KT::CString string("XXXXXXX");
    string.encodeBase64(bufferOf("M"), 0);
    EXPECT_EQ(bytesOf(string), std::string("TQ==", 5));
}

TEST(CodecTest, BufferEncodesItself) {
    KT::CBuffer hex = bufferOf("\x01\x02");
    hex.encodeHex(hex, 0);
    EXPECT_EQ(hex.length, 6);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(hex.data), 4), "0102");

    KT::CBuffer base64 = bufferOf("Man");
    base64.encodeBase64(base64, 0);
    EXPECT_EQ(bytesOf(base64), "TWFu");
    base64.decodeBase64(base64, 0);
    EXPECT_EQ(bytesOf(base64), "Man");

    KT::CString text("TWFu");
    text.decodeBase64(text, text.correction());
    EXPECT_EQ(bytesOf(text), std::string("Man", 4));
}

TEST(CodecTest, AdjustmentIsKeptWithinTheSource) {
    struct Row {
        int adjustment;
        std::string hex;
        int base64Length;
    };
    const Row rows[] = {
        {0, "616263", 4}, {-1, "6162", 4}, {-3, "", 0}, {-100, "", 0}, {5, "616263", 4}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.adjustment);
        KT::CBuffer encoded;
        encoded.encodeHex(bufferOf("abc"), row.adjustment);
        EXPECT_EQ(bytesOf(encoded), row.hex);
        KT::CBuffer base64;
        base64.encodeBase64(bufferOf("abc"), row.adjustment);
        EXPECT_EQ(base64.length, row.base64Length);
    }
}

TEST(CodecTest, RandomBytesSurviveARoundTrip) {
    std::mt19937 generator(20240611);
    std::uniform_int_distribution<int> byte(0, 255);
    const int sizes[] = {0, 1, 2, 3, 4, 5, 63, 64, 65, 255, 256, 511, 512, 513, 1000, 4099};
    for (int size : sizes) {
        SCOPED_TRACE(size);
        std::string plain(size_t(size), '\0');
        for (char& c : plain) c = char(byte(generator));
        KT::CBuffer source = bufferOf(plain);

        KT::CString hex, base64;
        hex.encodeHex(source, 0);
        base64.encodeBase64(source, 0);
        EXPECT_EQ(hex.length, size ? 2 * size + 1 : 0);
        EXPECT_EQ(base64.length, size ? (size + 2) / 3 * 4 + 1 : 0);

        KT::CBuffer fromHex, fromBase64;
        fromHex.decodeHex(hex, hex.correction());
        fromBase64.decodeBase64(base64, base64.correction());
        EXPECT_EQ(bytesOf(fromHex), plain);
        EXPECT_EQ(bytesOf(fromBase64), plain);
    }
}

TEST(CodecTest, AllocationFailuresAreThrownAndLeakNothing) {
    struct Row {
        const char* name;
        std::function<void()> operation;
        std::vector<unsigned> lines;
    };
    const std::string plain(700, 'p');
    const std::string encoded(1400, 'A');
    const Row rows[] = {
        {"encodeHex", [&] { KT::CBuffer().encodeHex(bufferOf(plain), 0); }, {299, 299}},
        {"decodeHex", [&] { KT::CBuffer().decodeHex(bufferOf(encoded), 0); }, {299, 299}},
        {"encodeBase64", [&] { KT::CString().encodeBase64(bufferOf(plain), 0); }, {299, 299}},
        {"decodeBase64", [&] { KT::CString().decodeBase64(bufferOf(encoded), 0); }, {299, 299}},
        {"itself",
         [&] {
             KT::CBuffer buffer = bufferOf(plain);
             buffer.encodeHex(buffer, 0);
         },
         {299, 44, 299}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(kttest::failEachAllocation(row.operation), row.lines);
    }
}

}  // namespace
