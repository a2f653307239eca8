// Hex and Base64: decoding any text with any adjustment is memory-safe, and
// decoding an encoding gives the input back, into buffers and strings.
#include <cstdint>
#include <cstring>

#include "fuzz_support.h"
#include "kt/KTBuffer.h"
#include "kt/KTString.h"

namespace {

using Codec = void (KT::CBuffer::*)(const KT::CBuffer&, int);

// Encodes `input` into `encoded`, decodes it into `decoded`, and checks that
// the input comes back (a string target adds a terminator after it).
void checkRoundTrip(const KT::CBuffer& input, Codec encode, Codec decode, KT::CBuffer& encoded,
                    KT::CBuffer& decoded) {
    (encoded.*encode)(input, 0);
    (decoded.*decode)(encoded, encoded.correction());
    FUZZ_CHECK(decoded.length >= input.length);
    FUZZ_CHECK(input.length == 0 || std::memcmp(decoded.data, input.data, size_t(input.length)) == 0);
}

void checkDecodeAnything(const KT::CBuffer& text, int adjustment, Codec decode) {
    KT::CBuffer plain;
    KT::CString string;
    (plain.*decode)(text, adjustment);
    (string.*decode)(text, adjustment);
    FUZZ_CHECK(plain.length >= 0 && plain.length <= plain.capacity);
    FUZZ_CHECK(string.length >= plain.length && string.length <= plain.length + 1);
    FUZZ_CHECK(string.length == 0 || string.data[string.length - 1] == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    int adjustment = int(std::int8_t(data[0])) % 5;  // -4 .. 4
    KT::CBuffer input;
    // Borrowed exactly as given: any read past the input is a read past the
    // fuzzer's allocation.
    input.init(KT::SIntLeast32(size - 1), const_cast<std::uint8_t*>(data + 1), KT::NoOwnership);

    checkDecodeAnything(input, adjustment, &KT::CBuffer::decodeBase64);
    checkDecodeAnything(input, adjustment, &KT::CBuffer::decodeHex);

    KT::CBuffer encodedBuffer, decodedBuffer;
    checkRoundTrip(input, &KT::CBuffer::encodeBase64, &KT::CBuffer::decodeBase64, encodedBuffer,
                   decodedBuffer);
    KT::CString encodedString, decodedString;
    checkRoundTrip(input, &KT::CBuffer::encodeHex, &KT::CBuffer::decodeHex, encodedString,
                   decodedString);
    return 0;
}
