// The data stream: KT::CData and KT::RData.
#include "kt/KTBuffer.h"

#include "allocation_faults.h"
#include "support.h"

namespace {

using kttest::bufferOf;
using kttest::bytesOf;

const KT::UInt8* bytes(const std::string& text) {
    return reinterpret_cast<const KT::UInt8*>(text.data());
}

// The four bytes of `value` as they lie in memory.
std::string hostBytes(int value) {
    std::string raw(sizeof value, '\0');
    std::memcpy(&raw[0], &value, sizeof value);
    return raw;
}

std::string get(KT::CData& stream, int count) {
    std::string out(size_t(count), '?');
    stream.get(reinterpret_cast<KT::UInt8*>(&out[0]), count);
    return out;
}

TEST(CDataTest, PutWritesAtTheCursorAndGetReadsBack) {
    KT::CData stream;
    for (int count : {0, -1, INT_MIN}) stream.put(bytes("abc"), count);
    EXPECT_EQ(stream.data, nullptr);
    stream.put(bytes("abc"), 3);
    stream.put(bytes("de"), 2);
    EXPECT_EQ(stream.capacity, 512);
    EXPECT_EQ(stream.cursorOffset(), 5);
    EXPECT_EQ(bytesOf(stream), "abcde");

    stream.reset();
    for (int count : {0, -1, INT_MIN}) {
        std::string untouched = "?";
        stream.get(reinterpret_cast<KT::UInt8*>(&untouched[0]), count);
        EXPECT_EQ(untouched, "?");
    }
    EXPECT_EQ(stream.cursorOffset(), 0);
    EXPECT_EQ(get(stream, 2), "ab");
    EXPECT_EQ(get(stream, 3), "cde");
    EXPECT_EQ(stream.length, 5);
    EXPECT_EQ(stream.readable(), 0);
}

TEST(CDataTest, IntsTravelInHostOrderAndGrowTheStreamWhenThreeBytesOrFewerAreLeft) {
    const std::string filler(504, 'f');
    const int values[] = {0, 1, -1, INT_MIN, INT_MAX, 0x12345678};
    KT::CData stream;
    stream.put<int>(7);
    EXPECT_EQ(stream.capacity, 512);
    stream.put(bytes(filler), 504);
    stream.put<int>(8);
    EXPECT_EQ(stream.capacity, 512);
    std::string written = hostBytes(7) + filler + hostBytes(8);
    for (int value : values) {
        stream.put<int>(value);
        written += hostBytes(value);
    }
    EXPECT_EQ(stream.capacity, 1024);
    EXPECT_EQ(bytesOf(stream), written);

    stream.reset();
    get(stream, 512);
    for (int value : values) {
        int read = 42;
        stream.get<int>(read);
        EXPECT_EQ(read, value);
    }
}

// The reader asks for twice the length when the length exceeds the capacity
// minus that same length: 300 bytes into 512 still grow it to 1024.
TEST(CDataTest, BuffersTravelWithALengthPrefixAndGrowTheirReaderTwice) {
    const int rows[][3] = {{3, 0, 512},      {300, 512, 1024}, {256, 512, 512},
                           {257, 512, 1024}, {700, 0, 1536},   {0, 0, 0}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row[0]);
        const std::string payload(size_t(row[0]), 'p');
        KT::CData stream;
        stream << bufferOf(payload);
        EXPECT_EQ(bytesOf(stream), hostBytes(row[0]) + payload);

        stream.reset();
        KT::CBuffer read(row[1]);
        stream >> read;
        EXPECT_EQ(read.capacity, row[2]);
        EXPECT_EQ(bytesOf(read), payload);
    }
}

TEST(CDataTest, MixedValuesRoundTrip) {
    std::string big(1500, '\0');
    for (size_t i = 0; i < big.size(); ++i) big[i] = char(i % 251);
    const KT::CString text("travels with its terminator");
    KT::CData stream;
    stream.put<int>(-7);
    stream << text << KT::CBuffer() << bufferOf(big);
    stream.put<int>(99);

    stream.reset();
    int before = 0, after = 0;
    KT::CString textBack;
    KT::CBuffer emptyBack = bufferOf("old"), bigBack;
    stream.get<int>(before);
    stream >> textBack >> emptyBack >> bigBack;
    stream.get<int>(after);
    EXPECT_EQ(before, -7);
    EXPECT_EQ(bytesOf(textBack), bytesOf(text));
    EXPECT_EQ(emptyBack.length, 0);
    EXPECT_EQ(bytesOf(bigBack), big);
    EXPECT_EQ(after, 99);
    EXPECT_EQ(stream.readable(), 0);
}

// A stream over borrowed bytes must move them to a block of its own to grow;
// the bytes just past the borrowed storage are not its own.
TEST(CDataTest, CursorSurvivesTheStorageMoving) {
    KT::UInt8 borrowed[503];
    for (int i = 0; i < 500; ++i) borrowed[i] = KT::UInt8(i);
    std::memcpy(borrowed + 500, "XYZ", 3);
    const std::string text(reinterpret_cast<const char*>(borrowed), 500);
    KT::CData stream;
    stream.set(500, borrowed, KT::NoOwnership);
    EXPECT_EQ(get(stream, 100), text.substr(0, 100));
    stream.put(borrowed + 500, 3);
    EXPECT_NE(stream.data, borrowed);
    EXPECT_EQ(stream.cursorOffset(), 103);
    EXPECT_EQ(kttest::memoryOf(stream, 103), text.substr(0, 100) + "XYZ");
    EXPECT_EQ(get(stream, 397), text.substr(103));
}

// Only a cursor within the data written has an offset; a put with the cursor
// moved outside by hand writes at the end.
TEST(CDataTest, CursorCountsOnlyWithinTheData) {
    struct Row {
        int cursor, length, offset, readable;
    };
    const Row rows[] = {{0, 5, 0, 5},  {5, 5, 5, 0},   {2, 5, 2, 3},  {6, 5, -1, 0},
                        {-1, 5, -1, 0}, {0, 0, 0, 0},  {0, -1, -1, 0}};
    for (const Row& row : rows) {
        SCOPED_TRACE(std::to_string(row.cursor) + " of " + std::to_string(row.length));
        KT::CData stream;
        stream.put(bytes("abcde"), 5);
        stream.length = row.length;
        stream.cursor = stream.data + row.cursor;
        EXPECT_EQ(stream.cursorOffset(), row.offset);
        EXPECT_EQ(stream.readable(), row.readable);
        if (row.offset >= 0 || row.length < 0) continue;
        stream.put(bytes("!"), 1);
        EXPECT_EQ(bytesOf(stream), "abcde!");
    }
    EXPECT_EQ(KT::CData().cursorOffset(), -1);
}

TEST(CDataTest, ReadsStopAtTheEndOfTheWrittenData) {
    KT::CData stream, empty;
    stream.put(bytes("ab"), 2);
    stream.reset();
    EXPECT_EQ(get(stream, 5), std::string("ab\0\0\0", 5));
    int value = 42;
    stream.get<int>(value);
    EXPECT_EQ(value, 0);
    EXPECT_EQ(stream.cursorOffset(), 2);

    EXPECT_EQ(get(empty, 3), std::string(3, '\0'));
    KT::CBuffer read;
    empty >> read;
    EXPECT_EQ(read.length, 0);
}

TEST(CDataTest, CorruptLengthPrefixIsCutToWhatRemains) {
    // The prefix, and what is read.
    const std::pair<int, std::string> rows[] = {
        {1000, "abc"}, {INT_MAX, "abc"}, {-5, ""}, {INT_MIN, ""}, {2, "ab"}};
    for (const auto& [prefix, read] : rows) {
        SCOPED_TRACE(prefix);
        KT::CData stream;
        stream.put<int>(prefix);
        stream.put(bytes("abc"), 3);
        stream.reset();
        KT::CBuffer buffer;
        stream >> buffer;
        EXPECT_EQ(bytesOf(buffer), read);
        EXPECT_EQ(stream.cursorOffset(), 4 + int(read.size()));
    }
}

// clear() keeps the bytes, zero() clears the whole storage.
TEST(CDataTest, ClearAndZeroRewind) {
    for (bool zero : {false, true}) {
        SCOPED_TRACE(zero ? "zero" : "clear");
        KT::CData stream;
        stream.put(bytes("abc"), 3);
        zero ? stream.zero() : stream.clear();
        EXPECT_EQ(stream.length, 0);
        EXPECT_EQ(stream.cursor, stream.data);
        EXPECT_EQ(kttest::memoryOf(stream, zero ? 512 : 3), zero ? std::string(512, '\0') : "abc");
    }
}

TEST(CDataTest, CopiesKeepTheCursorOffset) {
    KT::CData stream, assigned;
    stream.put(bytes("abcd"), 4);
    stream.reset();
    get(stream, 1);
    KT::CData copy(stream);
    assigned = stream;
    EXPECT_NE(copy.data, stream.data);
    EXPECT_EQ(get(copy, 3), "bcd");
    EXPECT_EQ(get(assigned, 3), "bcd");
}

TEST(CDataTest, AllocationFailuresAreThrownAndLeakNothing) {
    const KT::CBuffer written = bufferOf(std::string(600, 'p'));
    KT::CData filled;
    filled.put(written.data, 600);
    kttest::expectFailures({
        {"copy and assignment",
         [&] {
             KT::CData copy(filled);
             copy = filled;
         },
         {44, 44}},
        {"put", [&] { KT::CData().put(written.data, 600); }, {299}},
        {"put<int>", [] { KT::CData().put<int>(1); }, {299}},
        {"stream out and in",
         [&] {
             KT::CData stream;
             stream << written;
             stream.reset();
             KT::CString read;
             stream >> read;
         },
         {299, 299, 299}},
    });
}

TEST(RDataTest, IsDestroyedThroughEitherBase) {
    auto* counted = new KT::RData(16);
    counted->put<int>(5);
    delete static_cast<ktbase::object_refcount*>(counted);
    delete static_cast<KT::CData*>(new KT::RData(16));
}

}  // namespace
