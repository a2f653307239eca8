// The data stream: KT::CData and KT::RData.
#include "kt/KTBuffer.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "kt/KTString.h"
#include "test_support.h"

namespace {

const KT::UInt8* bytes(const std::string& text) {
    return reinterpret_cast<const KT::UInt8*>(text.data());
}

std::string contents(const KT::CBuffer& buffer) {
    return buffer.length > 0
               ? std::string(reinterpret_cast<const char*>(buffer.data), size_t(buffer.length))
               : std::string();
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
    EXPECT_EQ(stream.cursor, nullptr);
    stream.put(bytes("abc"), 3);
    stream.put(bytes("de"), 2);
    EXPECT_EQ(stream.length, 5);
    EXPECT_EQ(stream.capacity, 512);
    EXPECT_EQ(stream.cursor, stream.data + 5);
    EXPECT_EQ(contents(stream), "abcde");

    stream.reset();
    EXPECT_EQ(get(stream, 2), "ab");
    EXPECT_EQ(get(stream, 3), "cde");
    EXPECT_EQ(stream.length, 5);
    EXPECT_EQ(stream.readable(), 0);
}

TEST(CDataTest, NothingHappensForCountsBelowOne) {
    const int counts[] = {0, -1, INT_MIN};
    for (int count : counts) {
        SCOPED_TRACE(count);
        KT::CData stream;
        stream.put(bytes("abc"), count);
        EXPECT_EQ(stream.length, 0);
        EXPECT_EQ(stream.data, nullptr);
        stream.put(bytes("abc"), 3);
        stream.reset();
        std::string out = "unchanged";
        stream.get(reinterpret_cast<KT::UInt8*>(&out[0]), count);
        EXPECT_EQ(out, "unchanged");
        EXPECT_EQ(stream.cursor, stream.data);
    }
}

TEST(CDataTest, IntsTravelInHostOrder) {
    KT::CData first;
    first.put<int>(1);
    EXPECT_EQ(first.length, 4);
    EXPECT_EQ(first.capacity, 512);
    EXPECT_EQ(contents(first), hostBytes(1));

    const int values[] = {0, 1, -1, INT_MIN, INT_MAX, 0x12345678};
    KT::CData stream;
    for (int value : values) stream.put<int>(value);
    EXPECT_EQ(stream.length, int(sizeof values));
    stream.reset();
    for (int value : values) {
        int read = 42;
        stream.get<int>(read);
        EXPECT_EQ(read, value);
    }
}

TEST(CDataTest, IntsGrowTheStreamWhenThreeBytesOrFewerAreLeft) {
    KT::CData stream;
    std::string filler(508, 'f');
    stream.put(bytes(filler), 508);
    stream.put<int>(7);
    EXPECT_EQ(stream.capacity, 512);
    stream.put<int>(8);
    EXPECT_EQ(stream.capacity, 1024);
    EXPECT_EQ(contents(stream), filler + hostBytes(7) + hostBytes(8));
}

TEST(CDataTest, BuffersTravelWithALengthPrefix) {
    KT::CData stream;
    KT::CBuffer three;
    three.append(3, bytes("xyz"));
    stream << three;
    EXPECT_EQ(stream.length, 7);
    EXPECT_EQ(contents(stream), hostBytes(3) + "xyz");

    stream.reset();
    KT::CBuffer read;
    stream >> read;
    EXPECT_EQ(read.length, 3);
    EXPECT_EQ(read.capacity, 512);
    EXPECT_EQ(contents(read), "xyz");
}

TEST(CDataTest, MixedValuesRoundTrip) {
    KT::CString text("text travels with its terminator");
    KT::CBuffer empty;
    KT::CBuffer large;
    std::string big(1500, '\0');
    for (size_t i = 0; i < big.size(); ++i) big[i] = char(i % 251);
    large.append(int(big.size()), bytes(big));

    KT::CData stream;
    stream.put<int>(-7);
    stream << text << empty << large;
    stream.put<int>(99);

    stream.reset();
    int before = 0, after = 0;
    KT::CString textBack;
    KT::CBuffer emptyBack, largeBack;
    stream.get<int>(before);
    stream >> textBack >> emptyBack >> largeBack;
    stream.get<int>(after);
    EXPECT_EQ(before, -7);
    EXPECT_TRUE(textBack == "text travels with its terminator");
    EXPECT_EQ(textBack.length, text.length);
    EXPECT_EQ(emptyBack.length, 0);
    EXPECT_EQ(contents(largeBack), big);
    EXPECT_EQ(after, 99);
    EXPECT_EQ(stream.readable(), 0);
}

TEST(CDataTest, ReadingABufferAsksForTwiceItsLength) {
    struct Row {
        int count;
        int capacityBefore;
        int capacityAfter;
    };
    const Row rows[] = {{300, 512, 1024}, {256, 512, 512}, {257, 512, 1024},
                        {3, 0, 512},      {700, 0, 1536},  {0, 0, 0}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.count);
        std::string payload(size_t(row.count), 'p');
        KT::CBuffer written;
        written.append(row.count, bytes(payload));
        KT::CData stream;
        stream << written;
        stream.reset();

        KT::CBuffer read(row.capacityBefore);
        stream >> read;
        EXPECT_EQ(read.capacity, row.capacityAfter);
        EXPECT_EQ(contents(read), payload);
    }
}

TEST(CDataTest, CursorSurvivesTheStorageMoving) {
    // A stream over borrowed bytes must move them to a block of its own to grow.
    KT::UInt8 borrowed[500];
    for (int i = 0; i < 500; ++i) borrowed[i] = KT::UInt8(i);
    const std::string text(reinterpret_cast<const char*>(borrowed), 500);
    KT::CData stream;
    stream.set(500, borrowed, KT::NoOwnership);
    EXPECT_EQ(get(stream, 100), text.substr(0, 100));

    stream.resize(1000);
    EXPECT_NE(stream.data, borrowed);
    EXPECT_EQ(stream.capacity, 1024);
    EXPECT_EQ(stream.cursorOffset(), 100);
    EXPECT_EQ(get(stream, 400), text.substr(100));
}

TEST(CDataTest, ReadsStopAtTheEndOfTheWrittenData) {
    KT::CData stream;
    stream.put(bytes("ab"), 2);
    stream.reset();
    EXPECT_EQ(get(stream, 5), std::string("ab\0\0\0", 5));
    EXPECT_EQ(stream.cursorOffset(), 2);
    int value = 42;
    stream.get<int>(value);
    EXPECT_EQ(value, 0);
    EXPECT_EQ(stream.cursorOffset(), 2);

    KT::CData empty;
    EXPECT_EQ(get(empty, 3), std::string(3, '\0'));
    KT::CBuffer read;
    empty >> read;
    EXPECT_EQ(read.length, 0);
}

TEST(CDataTest, CorruptLengthPrefixIsCutToWhatRemains) {
    struct Row {
        int prefix;
        std::string read;
    };
    const Row rows[] = {{1000, "abc"}, {INT_MAX, "abc"}, {-5, ""}, {INT_MIN, ""}, {2, "ab"}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.prefix);
        KT::CData stream;
        stream.put<int>(row.prefix);
        stream.put(bytes("abc"), 3);
        stream.reset();
        KT::CBuffer read;
        stream >> read;
        EXPECT_EQ(contents(read), row.read);
        EXPECT_EQ(stream.cursorOffset(), 4 + int(row.read.size()));
    }
}

TEST(CDataTest, ClearAndZeroRewind) {
    KT::CData stream;
    stream.put(bytes("abc"), 3);
    stream.clear();
    EXPECT_EQ(stream.length, 0);
    EXPECT_EQ(stream.capacity, 512);
    EXPECT_EQ(stream.cursor, stream.data);
    EXPECT_EQ(std::memcmp(stream.data, "abc", 3), 0);

    stream.put(bytes("de"), 2);
    stream.zero();
    EXPECT_EQ(stream.length, 0);
    EXPECT_EQ(stream.cursor, stream.data);
    EXPECT_EQ(std::vector<KT::UInt8>(stream.data, stream.data + 512), std::vector<KT::UInt8>(512));
}

TEST(CDataTest, CopiesKeepTheCursorOffset) {
    KT::CData stream;
    stream.put(bytes("abcd"), 4);
    stream.reset();
    get(stream, 1);
    KT::CData copy(stream);
    EXPECT_NE(copy.data, stream.data);
    EXPECT_EQ(copy.cursorOffset(), 1);
    EXPECT_EQ(get(copy, 3), "bcd");
    KT::CData assigned;
    assigned = stream;
    EXPECT_EQ(get(assigned, 3), "bcd");
}

TEST(CDataTest, AllocationFailuresAreThrownAndLeakNothing) {
    struct Row {
        const char* name;
        std::function<void()> operation;
        std::vector<unsigned> lines;
    };
    const std::string payload(600, 'p');
    const Row rows[] = {
        {"put", [&] { KT::CData().put(bytes(payload), 600); }, {299}},
        {"put<int>", [] { KT::CData().put<int>(1); }, {299}},
        {"stream out and in",
         [&] {
             KT::CBuffer written;
             written.append(600, bytes(payload));
             KT::CData stream;
             stream << written;
             stream.reset();
             KT::CString read;
             stream >> read;
         },
         {299, 299, 299, 299}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(kttest::failEachAllocation(row.operation), row.lines);
    }
}

TEST(RDataTest, KeepsItsCursorAndIsDestroyedThroughEitherBase) {
    auto* counted = new KT::RData(16);
    counted->put<int>(5);
    counted->reset();
    int value = 0;
    counted->get<int>(value);
    EXPECT_EQ(value, 5);
    ktbase::object_refcount* base = counted;
    delete base;

    ktbase::ref<KT::RData> handle(new KT::RData);
    handle->put(bytes("x"), 1);
    KT::CBuffer* asBuffer = handle.get();
    EXPECT_EQ(asBuffer->length, 1);
}

}  // namespace
