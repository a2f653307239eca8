// The data stream: KT::CData and KT::RData.
#include "kt/KTBuffer.h"

#include "allocation_faults.h"
#include "support.h"

namespace {

using kttest::bufferOf;
using kttest::bytes;
using kttest::bytesOf;
using std::to_string;

std::string get(KT::CData& stream, int count) {
    std::string out(size_t(std::max(count, 0)), '?');
    stream.get(reinterpret_cast<KT::UInt8*>(&out[0]), count);
    return out;
}

// Runs the steps of a script (tests/data/data_cases.txt) on one stream.
kttest::Results runScript(const kttest::Case& row) {
    KT::CData stream;
    return kttest::runSteps(row.arguments, [&](const kttest::Step& step, kttest::Results& out) {
        const std::string& name = step.name;
        const int number = step.number[0];
        if (name == "put") stream.put(bytes(step.value), int(step.value.size()));
        else if (name == "putn") stream.put(bytes("abc"), number);
        else if (name == "own") stream.put(stream.data + number, step.number[1]);
        else if (name == "int") stream.put<int>(number);
        else if (name == "out") stream << bufferOf(step.value);
        else if (name == "init")
            stream.init(int(step.value.size()), const_cast<KT::UInt8*>(bytes(step.value)), KT::CopyData);
        else if (name == "reset") stream.reset();
        else if (name == "clear") stream.clear();
        else if (name == "zero") stream.zero();
        else if (name == "cursor") stream.cursor = stream.data + number;
        else if (name == "length") stream.length = number;
        else if (name == "get") out.push_back(get(stream, number));
        else if (name == "mem") out.push_back(kttest::memoryOf(stream, number));
        else if (name == "getint") {
            int read = 42;
            stream.get<int>(read);
            out.push_back(to_string(read));
        } else if (name == "in") {
            KT::CBuffer read(number);
            stream >> read;
            out.insert(out.end(), {bytesOf(read), to_string(read.capacity)});
        } else if (name == "copy") {
            const KT::CData copy(stream);
            stream = KT::CData();
            stream = copy;
        } else if (name == "state") {
            out.insert(out.end(), {bytesOf(stream), to_string(stream.capacity),
                                   to_string(stream.cursorOffset()), to_string(stream.readable())});
        } else {
            return false;
        }
        return true;
    });
}

TEST(CDataTest, Scripts) { kttest::runCases("data_cases.txt", {{"stream", runScript}}); }

// A stream over borrowed bytes must move them to a block of its own to grow;
// the bytes just past the borrowed storage are not its own.
TEST(CDataTest, CursorSurvivesTheStorageMoving) {
    std::string borrowed = kttest::randomBytes(500, 1) + "XYZ";
    KT::CData stream;
    stream.set(500, reinterpret_cast<KT::UInt8*>(&borrowed[0]), KT::NoOwnership);
    EXPECT_EQ(get(stream, 100), borrowed.substr(0, 100));
    stream.put(bytes(borrowed) + 500, 3);
    EXPECT_EQ(stream.cursorOffset(), 103);
    EXPECT_EQ(kttest::memoryOf(stream, 103), borrowed.substr(0, 100) + "XYZ");
    EXPECT_EQ(get(stream, 397), borrowed.substr(103, 397));
}

}  // namespace
