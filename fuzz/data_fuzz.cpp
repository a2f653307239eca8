// Reading an arbitrary byte stream through KT::CData never leaves the
// written data, whatever the length prefixes say.
#include <cstdint>

#include "fuzz_support.h"
#include "kt/KTBuffer.h"
#include "kt/KTString.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    KT::CData stream;
    stream.set(KT::SIntLeast32(size), const_cast<std::uint8_t*>(data), KT::NoOwnership);
    KT::CBuffer buffer;
    KT::CString string;
    KT::UInt8 bytes[16];
    // Each byte read picks the next operation, until the stream is used up.
    for (int step = 0; stream.readable() > 0 && step < 4096; ++step) {
        KT::UInt8 op = 0;
        stream.get(&op, 1);
        switch (op % 4) {
            case 0: {
                int value = 0;
                stream.get(value);
                break;
            }
            case 1:
                stream >> buffer;
                FUZZ_CHECK(buffer.length >= 0 && buffer.length <= buffer.capacity);
                break;
            case 2:
                stream >> string;
                FUZZ_CHECK(string.length >= 0 && string.length <= string.capacity);
                break;
            default:
                stream.get(bytes, op % 17);
                break;
        }
        FUZZ_CHECK(stream.cursorOffset() >= 0 && stream.cursorOffset() <= stream.length);
    }
    // Writing what was read back into a stream of its own round-trips.
    KT::CData copy;
    copy << buffer;
    copy.reset();
    KT::CBuffer back;
    copy >> back;
    FUZZ_CHECK(back == buffer);
    return 0;
}
