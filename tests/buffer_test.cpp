#include "kt/KTBuffer.h"

#include <malloc.h>

#include "allocation_faults.h"
#include "support.h"

namespace {

using kttest::bufferOf;
using kttest::bytes;
using kttest::bytesOf;
using std::to_string;

// The bytes a script gives the buffer: malloc'd, as adopted memory must be.
const std::string kSource = "0123456789XYZ";

// Runs the steps of a script (tests/data/buffer_cases.txt) on one buffer.
kttest::Results runScript(const kttest::Case& row) {
    KT::CBuffer buffer;
    const KT::UInt8* marked = nullptr;
    auto* source = static_cast<KT::UInt8*>(std::malloc(kSource.size()));
    std::memcpy(source, kSource.data(), kSource.size());
    bool given = false;
    kttest::Results out = kttest::runSteps(row.arguments, [&](const kttest::Step& step, kttest::Results& out) {
        const std::string& name = step.name;
        const int number = step.number[0], count = step.number[1];
        auto state = [&](const KT::CBuffer& b) {
            out.insert(out.end(), {b.data ? bytesOf(b) : "null", to_string(b.capacity),
                                   to_string(b.length), to_string(b.owner)});
        };
        if (name == "new") buffer = KT::CBuffer(number);
        else if (name == "resize") buffer.resize(number);
        else if (name == "append") buffer.append(int(step.value.size()), bytes(step.value));
        else if (name == "appendx") buffer.append(number, bytes(std::string(1024, 'x')));
        else if (name == "own") buffer.append(count, buffer.data + number);
        else if (name == "take") buffer.set(count, buffer.data + number, KT::ConstructionFlags(step.number[2]));
        else if (name == "set" || name == "setnull")
            buffer.set(number, (given |= name == "set") ? source : nullptr, KT::ConstructionFlags(count));
        else if (name == "init" || name == "initnull") {
            KT::UInt8* old = buffer.owner == 1 ? buffer.data : nullptr;
            buffer.init(number, (given |= name == "init") ? source : nullptr, KT::ConstructionFlags(count));
            std::free(old);  // init() does not release what the buffer held
        } else if (name == "copy") buffer = KT::CBuffer(buffer);
        else if (name == "assign") {
            KT::CBuffer assigned = bufferOf("old"), &self = assigned;
            assigned = buffer;
            assigned = self;
            buffer = std::move(assigned);
        } else if (name == "move") {
            KT::CBuffer moved(std::move(buffer));
            state(buffer);
            buffer = std::move(moved);
        } else if (name == "length") buffer.length = number;
        else if (name == "clear") buffer.clear();
        else if (name == "zero") buffer.zero();
        else if (name == "free") std::free(source);
        else if (name == "mark") marked = buffer.data;
        else if (name == "block") out.push_back(buffer.data == marked ? "kept" : "moved");
        else if (name == "source") out.push_back(buffer.data == source ? "source" : "copy");
        else if (name == "given") out.push_back(std::string(reinterpret_cast<char*>(source), 13));
        else if (name == "mem") out.push_back(kttest::memoryOf(buffer, number));
        else if (name == "state") state(buffer);
        else return false;
        return true;
    });
    if (!given) std::free(source);
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

// The counted classes, destroyed through either base, release what they hold.
TEST(RBufferTest, DestroyedThroughEitherBase) {
    auto* counted = new KT::RBuffer(100);
    counted->append(3, bytes("abc"));
    delete static_cast<ktbase::object_refcount*>(counted);
    auto* data = new KT::RData(16);
    data->put<int>(5);
    delete static_cast<ktbase::object_refcount*>(data);
    delete static_cast<KT::CData*>(new KT::RData(16));
    delete static_cast<ktbase::object_refcount*>(new KT::RString("shared"));
    delete static_cast<KT::CString*>(new KT::RString(KT::RString::createWithFormat("%2000d", 3)));

    auto* shared = new KT::RBuffer(1);
    ktbase::ref<KT::RBuffer> first(shared), second = first;
    EXPECT_EQ(shared->refcount(), 2);
    first.reset();
    second->append(2, bytes("ok"));
    EXPECT_EQ(shared->refcount(), 1);
    EXPECT_EQ(bytesOf(*second), "ok");
}

// A copy of the block's own first bytes is made before the block goes, and
// the block is freed once: neither leaked nor freed as the copy's source.
TEST(CBufferTest, SetCopyingFromItsOwnBlockFreesThatBlock) {
    size_t before = 0;  // read after the first round, once malloc's caches hold its blocks
    for (int i = 0; i < 16; ++i) {
        KT::CBuffer buffer = bufferOf("abcdef");
        buffer.set(3, buffer.data, KT::CopyData);
        ASSERT_EQ(bytesOf(buffer), "abc");
        if (i == 0) before = mallinfo2().uordblks;
    }
    EXPECT_EQ(mallinfo2().uordblks, before);
}

}  // namespace
