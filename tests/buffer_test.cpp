#include "kt/KTBuffer.h"

#include "allocation_faults.h"
#include "support.h"

namespace {

using kttest::bufferOf;
using kttest::bytesOf;

// A malloc'd copy of `text` (without terminator), as adopted memory must be.
KT::UInt8* mallocCopy(const std::string& text) {
    auto* block = static_cast<KT::UInt8*>(std::malloc(text.size()));
    std::memcpy(block, text.data(), text.size());
    return block;
}

TEST(CBufferTest, GrowsInBlocksOf512) {
    const int rows[][2] = {{0, 0},      {1, 512},     {511, 512}, {512, 512},
                           {513, 1024}, {1025, 1536}, {-5, 0},    {4096, 4096}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row[0]);
        KT::CBuffer constructed(row[0]), resized;
        resized.resize(row[0]);
        for (const KT::CBuffer* buffer : {&constructed, &resized}) {
            EXPECT_EQ(buffer->capacity, row[1]);
            EXPECT_EQ(buffer->length, 0);
            EXPECT_EQ(buffer->owner, 1);
            EXPECT_EQ(buffer->data == nullptr, row[1] == 0);
        }
    }
}

// init() into an empty buffer and set() over an owning one take the caller's
// block alike. The sanitizer build reports a leak or a double free where the
// buffer releases the wrong block.
TEST(CBufferTest, InitAndSetTakeMemoryAsTheFlagsSay) {
    for (int flags = 0; flags < 8; ++flags) {
        SCOPED_TRACE(flags);
        bool copies = flags & KT::CopyData;
        bool releasesSource = copies ? (flags & KT::FreeSource) : !(flags & KT::NoOwnership);
        for (bool viaSet : {false, true}) {
            KT::UInt8* source = mallocCopy("0123456789");
            {
                KT::CBuffer buffer = bufferOf(viaSet ? "old contents" : "");
                viaSet ? buffer.set(10, source, KT::ConstructionFlags(flags))
                       : buffer.init(10, source, KT::ConstructionFlags(flags));
                EXPECT_EQ(bytesOf(buffer), "0123456789");
                EXPECT_EQ(buffer.data == source, !copies);
                EXPECT_EQ(buffer.capacity, copies ? 512 : 10);
                EXPECT_EQ(buffer.owner, copies || releasesSource ? 1 : 0);
            }
            if (!releasesSource) {
                EXPECT_EQ(std::memcmp(source, "0123456789", 10), 0);
                std::free(source);
            }
        }
    }
}

TEST(CBufferTest, NothingToTakeEmptiesTheBufferAndReadsNoFlag) {
    // The size given, and whether the bytes are a null pointer.
    for (const auto& [size, nullBytes] :
         {std::pair<int, bool>{0, false}, {-1, false}, {INT_MIN, false}, {10, true}}) {
        for (int flags = 0; flags < 8; ++flags) {
            SCOPED_TRACE(std::to_string(size) + " bytes, flags " + std::to_string(flags));
            KT::UInt8* source = mallocCopy("0123456789");
            KT::UInt8* bytes = nullBytes ? nullptr : source;
            KT::CBuffer initialised(100), replaced = bufferOf("old contents");
            KT::UInt8* old = initialised.data;
            initialised.init(size, bytes, KT::ConstructionFlags(flags));
            std::free(old);  // init() does not release what the buffer held
            // set() releases the old block, also when it is the source.
            replaced.set(size, nullBytes ? nullptr : replaced.data,
                         KT::ConstructionFlags(flags));
            for (const KT::CBuffer* buffer : {&initialised, &replaced}) {
                EXPECT_EQ(buffer->data, nullptr);
                EXPECT_EQ(buffer->capacity, 0);
                EXPECT_EQ(buffer->length, 0);
                EXPECT_EQ(buffer->owner, 1);
            }
            std::free(source);
        }
    }
}

// Bytes of the buffer's own block stay valid through set(): borrowed or
// adopted from inside the block it releases, they are copied; a block given
// back whole is kept.
TEST(CBufferTest, SetMayTakeItsOwnBytes) {
    // From where and how many, the flags, the bytes taken, and the capacity.
    const std::tuple<int, int, int, const char*, int> rows[] = {
        {2, 3, KT::CopyData, "cde", 512}, {0, 4, KT::CopyData | KT::FreeSource, "abcd", 512},
        {0, 6, KT::NoOwnership, "abcdef", 512}, {1, 2, KT::NoOwnership, "bc", 512},
        {1, 2, 0, "bc", 512}, {0, 2, 0, "ab", 2}};
    for (const auto& [from, count, flags, bytes, capacity] : rows) {
        SCOPED_TRACE(bytes);
        KT::CBuffer buffer = bufferOf("abcdef");
        KT::UInt8* block = buffer.data;
        buffer.set(count, block + from, KT::ConstructionFlags(flags));
        EXPECT_EQ(bytesOf(buffer), bytes);
        EXPECT_EQ(buffer.capacity, capacity);
        EXPECT_EQ(buffer.owner, 1);
        EXPECT_EQ(buffer.data == block, capacity == 2);
    }
}

// Whatever the state resize() starts from, a resize that cannot be had leaves
// the buffer as it was, one that is not needed does nothing, and growing
// gives an owned block with the bytes in use and leaves borrowed memory alone.
TEST(CBufferTest, ResizeGrowsToAnOwnedBlockOnEveryPath) {
    using Prepare = void (*)(KT::CBuffer& buffer, KT::UInt8* borrowed);
    // The state, how it is reached, and the bytes it has in use.
    const std::tuple<const char*, Prepare, std::string> rows[] = {
        {"empty", [](KT::CBuffer&, KT::UInt8*) {}, ""},
        {"owning with content", [](KT::CBuffer& b, KT::UInt8*) { b = bufferOf("abc"); }, "abc"},
        {"owning without content", [](KT::CBuffer& b, KT::UInt8*) { b.resize(100); }, ""},
        {"adopted with content",
         [](KT::CBuffer& b, KT::UInt8*) { b.set(3, mallocCopy("abc"), KT::ConstructionFlags(0)); },
         "abc"},
        {"borrowing with content",
         [](KT::CBuffer& b, KT::UInt8* borrowed) { b.set(3, borrowed, KT::NoOwnership); }, "abc"},
        {"borrowing without content",
         [](KT::CBuffer& b, KT::UInt8* borrowed) {
             b.set(3, borrowed, KT::NoOwnership);
             b.clear();
         },
         ""}};
    for (const auto& [name, prepare, kept] : rows) {
        SCOPED_TRACE(name);
        KT::UInt8 borrowed[3] = {'a', 'b', 'c'};
        KT::CBuffer buffer;
        prepare(buffer, borrowed);
        auto fields = [&] {
            return std::make_tuple(buffer.data, buffer.capacity, buffer.length, buffer.owner);
        };
        const auto before = fields();
        kttest::failAllocation(1);
        EXPECT_THROW(buffer.resize(buffer.capacity + 1), KT::CException);
        kttest::failAllocation(0);
        EXPECT_THROW(buffer.resize(INT_MAX), KT::CException);
        buffer.resize(buffer.capacity);
        buffer.resize(-1);
        EXPECT_EQ(fields(), before);

        buffer.resize(513);
        EXPECT_EQ(buffer.capacity, 1024);
        EXPECT_EQ(buffer.owner, 1);
        EXPECT_NE(buffer.data, borrowed);
        EXPECT_EQ(bytesOf(buffer), kept);
        EXPECT_EQ(std::memcmp(borrowed, "abc", 3), 0);
    }
}

TEST(CBufferTest, AppendGrowsToTheLengthNeeded) {
    const std::string text(1024, 'x');
    const auto* bytes = reinterpret_cast<const KT::UInt8*>(text.data());
    KT::CBuffer buffer;
    const int rows[][3] = {
        {600, 600, 1024}, {424, 1024, 1024}, {1, 1025, 1536}, {0, 1025, 1536}, {-3, 1025, 1536}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row[0]);
        buffer.append(row[0], bytes);
        EXPECT_EQ(buffer.length, row[1]);
        EXPECT_EQ(buffer.capacity, row[2]);
    }
    EXPECT_EQ(bytesOf(buffer), std::string(1025, 'x'));
}

TEST(CBufferTest, AppendOfItsOwnBytesSurvivesTheMove) {
    std::string text(512, '\0');
    for (size_t i = 0; i < text.size(); ++i) text[i] = char(i * 7);
    KT::CBuffer buffer = bufferOf(text);
    buffer.append(buffer.length, buffer.data);
    EXPECT_EQ(bytesOf(buffer), text + text);

    // Bytes of its own move with the storage; the bytes just past the storage
    // are not its own.
    for (int from : {1, 512}) {
        SCOPED_TRACE(from);
        std::string borrowed = text + "XYZ";
        KT::CBuffer borrowing;
        borrowing.set(512, reinterpret_cast<KT::UInt8*>(&borrowed[0]), KT::NoOwnership);
        borrowing.append(3, borrowing.data + from);
        EXPECT_EQ(bytesOf(borrowing), text + borrowed.substr(size_t(from), 3));
        EXPECT_EQ(borrowing.owner, 1);
    }
}

TEST(CBufferTest, OrderLooksOnlyAtTheCommonPrefix) {
    struct Row {
        std::string a, b;
        bool equal, less, greater;
    };
    const Row rows[] = {
        {"abc", "abd", false, true, false}, {"abd", "abc", false, false, true},
        {"abc", "abcd", false, false, false}, {"abcd", "abc", false, false, false},
        {"abc", "abc", true, false, false}, {"", "", true, false, false},
        {"", "a", false, false, false}, {"\x80", "\x01", false, false, true},
        {std::string("a\0b", 3), std::string("a\0c", 3), false, true, false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.a + " vs " + row.b);
        KT::CBuffer a = bufferOf(row.a), b = bufferOf(row.b);
        EXPECT_EQ(a == b, row.equal);
        EXPECT_EQ(a != b, !row.equal);
        EXPECT_EQ(a < b, row.less);
        EXPECT_EQ(a > b, row.greater);
    }
}

TEST(CBufferTest, ZeroFillsTheWholeCapacityAndClearKeepsIt) {
    KT::CBuffer cleared = bufferOf("abc"), zeroed = bufferOf("abc");
    std::memset(zeroed.data + 3, 0x5A, 509);
    cleared.clear();
    zeroed.zero();
    EXPECT_EQ(cleared.length, 0);
    EXPECT_EQ(kttest::memoryOf(cleared, 3), "abc");
    EXPECT_EQ(zeroed.length, 0);
    EXPECT_EQ(kttest::memoryOf(zeroed, 512), std::string(512, '\0'));

    // Without storage, neither zero() nor an append of nothing changes anything,
    // even when the length claims more than the storage holds.
    KT::CBuffer empty;
    empty.length = 3;
    empty.zero();
    empty.append(0, cleared.data);
    EXPECT_EQ(empty.length, 3);
    EXPECT_EQ(empty.capacity, 0);
    EXPECT_EQ(empty.data, nullptr);
}

TEST(CBufferTest, CopiesAreDeepAndMovesTakeTheStorage) {
    KT::UInt8 borrowed[3] = {'a', 'b', 'c'};
    KT::CBuffer source;
    source.set(3, borrowed, KT::NoOwnership);
    KT::CBuffer copy(source), assigned = bufferOf("old");
    assigned = source;
    for (const KT::CBuffer* buffer : {&copy, &assigned}) {
        EXPECT_NE(buffer->data, borrowed);
        EXPECT_EQ(buffer->owner, 1);
        EXPECT_EQ(buffer->capacity, 512);
        EXPECT_EQ(bytesOf(*buffer), "abc");
    }
    KT::CBuffer& self = assigned;
    assigned = self;
    EXPECT_EQ(bytesOf(assigned), "abc");

    KT::UInt8* data = copy.data;
    KT::CBuffer moved(std::move(copy));
    EXPECT_EQ(moved.data, data);
    EXPECT_EQ(copy.data, nullptr);
    EXPECT_EQ(copy.capacity, 0);
}

TEST(CBufferTest, AllocationFailuresAreThrownAndLeakNothing) {
    KT::UInt8 bytes[600] = {};
    kttest::expectFailures({
        {"constructor", [] { KT::CBuffer(10); }, {220}},
        {"copy",
         [] {
             KT::CBuffer source = bufferOf("abc"), copy(source);
             copy = source;
         },
         {44, 44, 44}},
        {"init", [&] { KT::CBuffer().init(600, bytes, KT::CopyData); }, {44}},
        {"resize", [] { KT::CBuffer(1).resize(513); }, {220, 299}},
        {"append",
         [&] {
             KT::CBuffer buffer;
             buffer.append(600, bytes);
             buffer.append(600, bytes);
         },
         {299, 299}},
    });
}

TEST(RBufferTest, DestroyedThroughEitherBase) {
    auto* counted = new KT::RBuffer(100);
    counted->append(3, reinterpret_cast<const KT::UInt8*>("abc"));
    delete static_cast<ktbase::object_refcount*>(counted);

    auto* shared = new KT::RBuffer(1);
    ktbase::ref<KT::RBuffer> first(shared), second = first;
    EXPECT_EQ(shared->refcount(), 2);
    first.reset();
    second->append(2, reinterpret_cast<const KT::UInt8*>("ok"));
    EXPECT_EQ(shared->refcount(), 1);
    EXPECT_EQ(bytesOf(*second), "ok");
}

}  // namespace
