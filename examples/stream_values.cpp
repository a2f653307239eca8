// Serialises a few values into a data stream, shows the bytes, and reads them
// back in the same order.
#include <kt/kt.h>

#include <cstdio>

int main() {
    KT::CData stream;
    stream.put(2026);                          // an int, 4 bytes in host order
    stream << KT::CString("hello");            // 4-byte length, then "hello\0"
    const KT::UInt8 raw[] = {0xDE, 0xAD, 0xBE, 0xEF};
    KT::CBuffer blob;
    blob.append(sizeof raw, raw);
    stream << blob;                            // 4-byte length, then the 4 bytes

    KT::CString hex;
    hex.encodeHex(stream, stream.correction());
    std::printf("%d bytes on the wire: %s\n", stream.length, hex.c_str());

    stream.reset();                            // read from the start
    int year = 0;
    KT::CString greeting;
    KT::CBuffer back;
    stream.get(year);
    stream >> greeting >> back;
    std::printf("year %d, greeting \"%s\", blob of %d bytes\n", year, greeting.c_str(), back.length);
    return year == 2026 && greeting == "hello" && back == blob ? 0 : 1;
}
