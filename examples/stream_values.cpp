// Serialises a few values into a data stream, shows the bytes, and reads them
// back in the same order; then fills a stream past its first block, which
// grows as the values go in.
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

    KT::CData days;
    for (int day = 1; day <= 365; ++day) days.put(day);
    days.reset();
    int sum = 0;
    for (int day = 1; day <= 365; ++day) {
        int value = 0;
        days.get(value);
        sum += value == day;
    }
    std::printf("%d days in %d bytes of storage, %d read back in order\n", days.length / 4,
                days.capacity, sum);
    return year == 2026 && greeting == "hello" && back == blob && sum == 365 ? 0 : 1;
}
