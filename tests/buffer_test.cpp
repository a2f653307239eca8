#include "kt/KTBuffer.h"

#include "allocation_faults.h"
#include "support.h"

namespace {

using kttest::bufferOf;
using kttest::bytesOf;
using std::to_string;

const KT::UInt8* bytes(const std::string& text) {
    return reinterpret_cast<const KT::UInt8*>(text.data());
}

// A malloc'd copy of `text` (without terminator), as adopted memory must be.
KT::UInt8* mallocCopy(const std::string& text) {
    auto* block = static_cast<KT::UInt8*>(std::malloc(text.size()));
    std::memcpy(block, text.data(), text.size());
    return block;
}

// Runs the steps of a script (tests/data/buffer_cases.txt) on one buffer.
kttest::Results runScript(const kttest::Case& row) {
    kttest::Results out;
    KT::CBuffer buffer;
    const KT::UInt8* marked = nullptr;
    for (const std::string& step : row.arguments) {
        const size_t colon = step.find(':');
        const std::string name = step.substr(0, colon), value = step.substr(colon + 1);
        const int number = colon == std::string::npos ? 0 : std::atoi(value.c_str());
        int from = 0, count = 0, flags = 0;
        if (name == "new") buffer = KT::CBuffer(number);
        else if (name == "resize") buffer.resize(number);
        else if (name == "append") buffer.append(int(value.size()), bytes(value));
        else if (name == "appendx") buffer.append(number, bytes(std::string(1024, 'x')));
        else if (name == "length") buffer.length = number;
        else if (name == "clear") buffer.clear();
        else if (name == "zero") buffer.zero();
        else if (name == "mark") marked = buffer.data;
        else if (name == "block") out.push_back(buffer.data == marked ? "kept" : "moved");
        else if (name == "mem") out.push_back(kttest::memoryOf(buffer, number));
        else if (name == "take" && std::sscanf(value.c_str(), "%d,%d,%d", &from, &count, &flags) == 3)
            buffer.set(count, buffer.data + from, KT::ConstructionFlags(flags));
        else if (name == "state")
            out.insert(out.end(), {buffer.data ? bytesOf(buffer) : "null", to_string(buffer.capacity),
                                   to_string(buffer.length), to_string(buffer.owner)});
        else ADD_FAILURE() << "unknown step " << step;
    }
    return out;
}

TEST(CBufferTest, Cases) {
    kttest::runCases("buffer_cases.txt",
                     {{"buffer", runScript},
                      {"order", [](const kttest::Case& row) {
                           const KT::CBuffer a = bufferOf(row[0]), b = bufferOf(row[1]);
                           return kttest::results(a == b, a != b, a < b, a > b);
                       }}});
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
