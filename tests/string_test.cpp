#include "kt/KTString.h"

#include <sys/mman.h>

#include "allocation_faults.h"
#include "support.h"

// The library's vsnprintf() calls, which a script can make fail: the program
// is linked with --wrap=vsnprintf (tests/CMakeLists.txt).
namespace {
thread_local long formatsToFailure = 0;
}  // namespace

extern "C" int __real_vsnprintf(char* out, std::size_t size, const char* format, va_list arguments);
extern "C" int __wrap_vsnprintf(char* out, std::size_t size, const char* format, va_list arguments) {
    if (formatsToFailure > 0 && --formatsToFailure == 0) return -1;
    return __real_vsnprintf(out, size, format, arguments);
}

namespace {

using kttest::bytesOf;
using kttest::Case;
using kttest::results;

// A string holding exactly `bytes`, as stored: no terminator is added.
KT::CString stringOf(const std::string& bytes) { return kttest::bufferOf<KT::CString>(bytes); }

std::string withNul(const std::string& text) { return text + '\0'; }

// A string on `storage`, borrowed whole, with `length` bytes in use (-1: all).
KT::CString borrowing(std::string& storage, int length) {
    KT::CString text;
    text.set(int(storage.size()), reinterpret_cast<KT::UInt8*>(&storage[0]), KT::NoOwnership);
    if (length >= 0) text.length = length;
    return text;
}

kttest::Results find(const Case& row) {
    const KT::CString text(row[0].c_str());
    return results(row.operation == "find" ? text.find(row[1][0], row.number(2))
                                           : text.reverseFind(row[1][0], row.number(2)));
}

// Runs the steps of a script (tests/data/string_cases.txt) on one string.
kttest::Results runScript(const Case& row) {
    KT::CString s;
    const KT::UInt8* marked = nullptr;
    long failFormat = 0;
    const kttest::Results out = kttest::runSteps(row.arguments, [&](const kttest::Step& step, kttest::Results& out) {
        const std::string& name = step.name;
        formatsToFailure = std::exchange(failFormat, name == "nofmt" ? std::max(step.number[0], 1) : 0);
        if (name == "nofmt") return true;
        const char* value = step.value.c_str();
        if (name == "text") s = KT::CString(value);
        else if (name == "stored") s = stringOf(step.value);
        else if (name == "wide") s = KT::CString::createWithFormat("%*d", step.number[0], 1);
        else if (name == "set") s.set("%s/%d", value, 1);
        else if (name == "setself") s.set("<%s>", s.c_str());
        else if (name == "setwide") s.set("%ls", L"\u00e9");
        else if (name == "setlong") s.set("%2000d", 1);
        else if (name == "adopt") {
            s.set(int(step.value.size()), static_cast<KT::UInt8*>(std::malloc(step.value.size())),
                  KT::ConstructionFlags(0));
            std::memcpy(s.data, value, step.value.size());
        } else if (name == "sub") s = s.getSubString(step.number[0], step.number[1]);
        else if (name == "lower") s = s.getLowerCaseString();
        else if (name == "upper") s = s.getUpperCaseString();
        else if (name == "copy") s = KT::CString(s);
        else if (name == "over") {
            KT::CString target(value);
            target = s;
            s = target;
        } else if (name == "append") s.append(int(step.value.size()), kttest::bytes(step.value));
        else if (name == "hex") s.decodeHex(KT::CString(value), -1);
        else if (name == "clear") s.clear();
        else if (name == "zero") s.zero();
        else if (name == "terminate") s.addTerminator();
        else if (name == "mark") marked = s.data;
        else if (name == "block") out.push_back(s.data == marked ? "kept" : "moved");
        else if (name == "bytes") out.push_back(bytesOf(s));
        else if (name == "tail") out.push_back(kttest::memoryOf(s, s.length + 1));
        else if (name == "shared") out.push_back(bytesOf(KT::CString("abc").getSubString(4, 0)));
        else if (name == "cstr") out.push_back(s.c_str());
        else if (name == "empty") out.push_back(std::to_string(s == ""));
        else if (name == "finds")
            out.insert(out.end(), {std::to_string(s.find('a', 0)), std::to_string(s.find("", 0)),
                                   std::to_string(s.reverseFind('\0', -1))});
        else if (name == "state")
            out.insert(out.end(), {s.data ? bytesOf(s) : "null", std::to_string(s.capacity),
                                   std::to_string(s.length), std::to_string(s.owner)});
        else return false;
        return true;
    });
    formatsToFailure = 0;
    return out;
}

TEST(CStringTest, Cases) {
    kttest::runCases(
        "string_cases.txt",
        {{"text",
          [](const Case& row) {
              const char* text = row[0].c_str();
              KT::CString constructed(text), formatted = KT::CString::createWithFormat("%s", text);
              KT::RString counted(text), countedFormat = KT::RString::createWithFormat("%s", text);
              const KT::CString* strings[] = {&constructed, &formatted, &counted, &countedFormat};
              for (const KT::CString* string : strings) {
                  EXPECT_EQ(string->owner, 1);
                  EXPECT_EQ(bytesOf(*string), withNul(text));
              }
              EXPECT_EQ(counted.refcount() + countedFormat.refcount(), 0);
              return results(constructed.capacity, counted.capacity, formatted.capacity,
                             countedFormat.capacity);
          }},
         {"equals",
          [](const Case& row) {
              std::string storage = row[0];
              const KT::CString text = borrowing(storage, row.number(2));
              return results(text == row[1].c_str(), text != row[1].c_str());
          }},
         {"string", runScript},
         {"find", find},
         {"rfind", find},
         {"rfindtext",
          [](const Case& row) {
              const KT::CString text(row[0].c_str()), needle(row[1].c_str());
              return results(text.reverseFind(needle.c_str(), row.number(2)),
                             text.reverseFind(needle, row.number(2)));
          }},
         {"findtext",
          [](const Case& row) {
              std::string storage = row[0], needle = row[1];
              const KT::CString string = borrowing(storage, row.number(3));
              const int start = row.number(2);
              return results(string.find(needle.c_str(), start),
                             string.find(KT::CString(needle.c_str()), start),
                             string.find(borrowing(needle, -1), start));
          }},
        });
}

// The conversions formatted without vsnprintf() (%s, %d, %%) and those left
// to it, alone and mixed, give the bytes that snprintf() gives.
TEST(CStringTest, FormatsAsSnprintfDoes) {
    auto both = [](const char* format, auto... arguments) {
        char expected[2048];
        int n = std::snprintf(expected, sizeof expected, format, arguments...);
        return std::make_pair(bytesOf(KT::CString::createWithFormat(format, arguments...)),
                              withNul(std::string(expected, size_t(n))));
    };
    const std::pair<std::string, std::string> rows[] = {
        both("%s:%d %s", "localhost", 8080, "connection refused"),
        both("%d|%d|%d|%d", INT_MIN, INT_MAX, 0, -7),
        both("100%% %s%s", "", "x"),
        both("%5d|%-3s|%x|%ld", 42, "a", 255, 5L),
        both("%s %c", "mixed", 'c'),
        both("%s%d", std::string(1020, 'x').c_str(), 12345),  // the number overruns the scratch
    };
    for (const auto& row : rows) EXPECT_EQ(row.first, row.second);
}

// A text whose length with its terminator does not fit in SIntLeast32 cannot
// be held: it is an allocation failure, not an empty string. Its 2^31 - 1 characters are one 64 KiB file
// mapped over and over, so the test costs address space rather than memory.
TEST(CStringTest, TextTooLongToCountIsAnAllocationFailure) {
#if defined(__SANITIZE_THREAD__)
    // ThreadSanitizer checks each byte that strlen() reads: 2 GiB take
    // minutes, for a test of one thread.
    GTEST_SKIP() << "a 2 GiB text is too slow under ThreadSanitizer";
#endif
    const size_t chunk = size_t(64) << 10, size = size_t(1) << 31;
    std::string pages(2 * chunk, 'q');
    pages.back() = '\0';
    const int file = memfd_create("text", 0);
    ASSERT_GE(file, 0);
    ASSERT_EQ(write(file, pages.data(), pages.size()), ssize_t(pages.size()));
    void* area = mmap(nullptr, size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    ASSERT_NE(area, MAP_FAILED);
    auto* text = static_cast<char*>(area);
    for (size_t at = 0; at < size; at += chunk) {
        const off_t offset = at + chunk < size ? 0 : off_t(chunk);  // the last ends in NUL
        ASSERT_NE(mmap(text + at, chunk, PROT_READ, MAP_SHARED | MAP_FIXED, file, offset),
                  MAP_FAILED);
    }
    close(file);
    kttest::whenThrownBy(kttest::kBufferInitSite, [&] { KT::CString{text}; });
    kttest::whenThrownBy(kttest::kBufferInitSite, [&] { KT::RString{text}; });
    munmap(area, size);
}

}  // namespace
