#include "kt/KTString.h"

#include <sys/mman.h>

#include "allocation_faults.h"
#include "support.h"

namespace {

using kttest::bytesOf;

// A string holding exactly `bytes`, as stored: no terminator is added.
KT::CString stringOf(const std::string& bytes) { return kttest::bufferOf<KT::CString>(bytes); }

std::string withNul(const std::string& text) { return text + '\0'; }

// A string on `storage`, borrowed whole, with `length` bytes in use (-1: all).
KT::CString borrowing(std::vector<KT::UInt8>& storage, int length) {
    KT::CString text;
    text.set(int(storage.size()), storage.data(), KT::NoOwnership);
    if (length >= 0) text.length = length;
    return text;
}

void expectEmptyState(const KT::CString& text) {
    EXPECT_EQ(text.data, nullptr);
    EXPECT_EQ(text.capacity, 0);
    EXPECT_EQ(text.length, 0);
    EXPECT_EQ(text.owner, 1);
    EXPECT_TRUE(text == "");
}

// Text is copied into whole blocks; a format result up to 1023 characters
// too, a longer one is adopted as formatted, in a block of exactly its size.
TEST(CStringTest, ConstructionAndFormatCountTheTerminator) {
    const int rows[][3] = {{0, 512, 512},      {511, 512, 512},    {512, 1024, 1024},
                           {1023, 1024, 1024}, {1024, 1536, 1025}, {5000, 5120, 5001}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row[0]);
        const std::string text(size_t(row[0]), 'q');
        KT::CString constructed(text.c_str()),
            formatted = KT::CString::createWithFormat("%s", text.c_str());
        KT::RString counted(text.c_str()),
            countedFormat = KT::RString::createWithFormat("%s", text.c_str());
        const KT::CString* strings[] = {&constructed, &counted, &formatted, &countedFormat};
        for (int i = 0; i < 4; ++i) {
            EXPECT_EQ(strings[i]->length, row[0] + 1);
            EXPECT_EQ(strings[i]->capacity, row[i < 2 ? 1 : 2]);
            EXPECT_EQ(strings[i]->owner, 1);
            EXPECT_EQ(bytesOf(*strings[i]), withNul(text));
        }
        EXPECT_EQ(counted.refcount(), 0);
        EXPECT_EQ(countedFormat.refcount(), 0);
    }
    EXPECT_EQ(bytesOf(KT::CString::createWithFormat("%d-%s-%c", 42, "x", 'z')), withNul("42-x-z"));
}

// The conversions formatted without vsnprintf() (%s, %d, %%) and those left
// to it, alone and mixed, give the bytes that snprintf() gives.
TEST(CStringTest, FormatsAsSnprintfDoes) {
    auto both = [](const char* format, auto... arguments) {
        char expected[64];
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
    };
    for (const auto& row : rows) EXPECT_EQ(row.first, row.second);
}

TEST(CStringTest, SetReplacesTheContentMayUseItAndLeavesTheEmptyStateOnFailure) {
    KT::CString text = KT::CString::createWithFormat("%3000d", 1);
    text.set("%s/%d", "a", 1);
    EXPECT_EQ(bytesOf(text), withNul("a/1"));
    text.set("<%s>", text.c_str());
    EXPECT_EQ(bytesOf(text), withNul("<a/1>"));

    EXPECT_THROW(text.set("%ls", L"\u00e9"), KT::CException);
    expectEmptyState(text);
    text = KT::CString("abc");
    kttest::failAllocation(1);
    EXPECT_THROW(text.set("%2000d", 1), KT::CException);
    kttest::failAllocation(0);
    expectEmptyState(text);
}

// Compared as strcmp() reads the storage, up to its first NUL, or to its end
// where it holds none (as though one stood there), whatever the length.
TEST(CStringTest, ComparesWithTheStoredText) {
    // The whole storage (none: the empty state), the text, whether equal, and
    // the length in use (-1: all of the storage).
    const std::tuple<std::string, const char*, bool, int> rows[] = {
        {withNul("abc"), "abc", true, -1}, {withNul("abc"), "abd", false, -1},
        {withNul("abc"), "ab", false, -1}, {withNul("ab"), "abc", false, -1},
        {withNul(""), "", true, -1}, {"", "", true, -1}, {"", "a", false, -1},
        {std::string("ab\0cd", 6), "ab", true, -1}, {"xyz", "xyz", true, -1},
        {"xyz", "xy", false, -1}, {"xyz", "xyz", true, 2},
        {withNul("abcd"), "abcd", true, 0}};  // cleared
    for (const auto& [stored, other, equal, length] : rows) {
        SCOPED_TRACE(stored + " vs " + other);
        std::vector<KT::UInt8> storage(stored.begin(), stored.end());
        const KT::CString text = borrowing(storage, length);
        EXPECT_EQ(text == other, equal);
        EXPECT_EQ(text != other, !equal);
    }
}

TEST(CStringTest, CopiesAreDeepAndOfTheEmptyStateEmpty) {
    KT::CString empty, assigned("abc");
    assigned = empty;
    for (const KT::CString& copy : {empty, assigned, KT::CString(empty), empty.getLowerCaseString(),
                                    empty.getUpperCaseString()})
        expectEmptyState(copy);
    EXPECT_STREQ(empty.c_str(), "");
    EXPECT_EQ(empty.find('a', 0), -1);
    EXPECT_EQ(empty.find("", 0), -1);
    EXPECT_EQ(empty.reverseFind('\0', -1), -1);
    EXPECT_EQ(bytesOf(empty.getSubString(0, 0)), withNul(""));

    const KT::CString source("abc");
    KT::CString copy(source), overwritten = KT::CString::createWithFormat("%2000d", 5);
    overwritten = source;
    for (const KT::CString* string : {&copy, &overwritten}) {
        EXPECT_NE(string->data, source.data);
        EXPECT_EQ(bytesOf(*string), withNul("abc"));
    }
}

TEST(CStringTest, AddTerminatorCountsOneNul) {
    const std::string rows[][2] = {{"abc", withNul("abc")},
                                   {withNul("ab"), withNul("ab")},
                                   {std::string(512, 'z'), withNul(std::string(512, 'z'))},
                                   {"", ""}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row[0]);
        KT::CString text = stringOf(row[0]);
        text.addTerminator();
        EXPECT_EQ(bytesOf(text), row[1]);
    }
    // Memory adopted as it is has no spare byte.
    auto* exact = static_cast<KT::UInt8*>(std::malloc(3));
    std::memcpy(exact, "abc", 3);
    KT::CString adopted;
    adopted.set(3, exact, KT::ConstructionFlags(0));
    adopted.addTerminator();
    EXPECT_EQ(adopted.capacity, 512);
    EXPECT_EQ(bytesOf(adopted), withNul("abc"));
}

TEST(CStringTest, FindsCharactersForwardsAndBackwards) {
    struct Row {
        bool backwards;
        char c;
        int start, found;
    };
    // In "aba", whose terminator is at 3.
    const Row rows[] = {
        {false, 'b', 0, 1},        {false, 'b', 1, 1},  {false, 'b', 2, -1},  {false, 'a', 4, -1},
        {false, 'a', 3, -1},       {false, '\0', 0, 3}, {false, 'a', -1, -1}, {false, 'z', 0, -1},
        {false, 'a', INT_MIN, -1}, {true, 'a', -1, 2},  {true, 'b', 0, -1},   {true, 'a', 4, -1},
        {true, '\0', -1, 3},       {true, 'a', 1, 0},   {true, 'b', 3, 1},    {true, 'a', -2, -1},
        {true, 'z', -1, -1},
    };
    const KT::CString text("aba");
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.backwards ? "back " : "") + row.c + " from " +
                     std::to_string(row.start));
        EXPECT_EQ(row.backwards ? text.reverseFind(row.c, row.start) : text.find(row.c, row.start),
                  row.found);
    }
    EXPECT_EQ(text.reverseFind("a", -1), -1);
    EXPECT_EQ(text.reverseFind("ba", 3), -1);
    EXPECT_EQ(text.reverseFind(KT::CString("a"), -1), -1);
}

// Searched as strstr() reads the storage, as the comparison above does.
TEST(CStringTest, FindsTextForwardsInEveryForm) {
    // The whole storage, the text, where the search starts, what it finds, and
    // the length in use (-1: all of the storage).
    const std::string abc = withNul("abc");
    const std::tuple<std::string, const char*, int, int, int> rows[] = {
        {abc, "bc", 0, 1, -1}, {abc, "", 1, 1, -1}, {abc, "", 3, 3, -1}, {abc, "", 4, -1, -1},
        {abc, "abcd", 0, -1, -1}, {abc, "c", -2, -1, -1}, {abc, "a", 1, -1, -1},
        {withNul("abcabc"), "bc", 2, 4, -1}, {std::string("ab\0cd", 6), "cd", 0, -1, -1},
        {"xyz", "z", 0, 2, -1}, {"xyz", "yz!", 0, -1, -1},
        {withNul("abc1"), "c1", 0, 2, 3}};  // a case copy of a case copy
    for (const auto& [stored, text, start, found, length] : rows) {
        SCOPED_TRACE(std::string(text) + " in " + stored + " from " + std::to_string(start));
        std::vector<KT::UInt8> storage(stored.begin(), stored.end());
        std::vector<KT::UInt8> needle(text, text + std::strlen(text));
        const KT::CString string = borrowing(storage, length);
        EXPECT_EQ(string.find(text, start), found);
        EXPECT_EQ(string.find(KT::CString(text), start), found);
        EXPECT_EQ(string.find(borrowing(needle, -1), start), found);
    }
}

TEST(CStringTest, SubstringsCountTheirTerminator) {
    // The source as stored, start, count, the bytes in use afterwards and the
    // capacity (1: the borrowed "").
    const std::string abcd = withNul("abcd"), embedded("ab\0cd", 6), x511(511, 'x'),
                      x1024(1024, 'x');
    const std::tuple<std::string, int, int, std::string, int> rows[] = {
        {abcd, 1, 0, withNul("bcd"), 512}, {abcd, 1, 2, withNul("bc"), 512},
        {abcd, 1, 10, withNul("bcd"), 512}, {abcd, 1, INT_MAX, withNul("bcd"), 512},
        {abcd, 0, 4, withNul("abcd"), 512}, {abcd, 3, 1, withNul("d"), 512},
        {abcd, 4, 0, withNul(""), 512}, {abcd, 5, 1, withNul(""), 1}, {abcd, -1, 2, withNul(""), 1},
        {abcd, 1, -1, withNul(""), 1}, {embedded, 0, 3, std::string("ab\0", 3), 512},
        {embedded, 1, 3, withNul(std::string("b\0c", 3)), 512}, {"abcd", 0, 0, withNul("abc"), 512},
        {x511 + "tail", 0, 511, withNul(x511), 512},
        {x511 + "tail", 0, 512, withNul(x511 + "t"), 1024},
        {x1024 + "tail", 0, 1024, withNul(x1024), 1536}};
    for (const auto& [source, start, count, bytes, capacity] : rows) {
        SCOPED_TRACE(source.substr(0, 10) + " " + std::to_string(start) + "," +
                     std::to_string(count));
        KT::CString sub = stringOf(source).getSubString(start, count);
        EXPECT_EQ(bytesOf(sub), bytes);
        EXPECT_EQ(sub.capacity, capacity);
        EXPECT_EQ(sub.owner, capacity == 1 ? 0 : 1);
    }
}

// A substring past the end borrows one "" that every such substring shares:
// writing into it copies it first, so that the next one still reads "".
TEST(CStringTest, WritesIntoASubstringPastTheEndCopyItFirst) {
    const auto* x = reinterpret_cast<const KT::UInt8*>("X");
    const std::tuple<const char*, std::function<void(KT::CString&)>, std::string> rows[] = {
        {"append", [&](KT::CString& s) { s.append(1, x); }, std::string("\0X", 2)},
        {"append after clear",
         [&](KT::CString& s) {
             s.clear();
             s.append(1, x);
         },
         "X"},
        {"odd hex digit", [](KT::CString& s) { s.decodeHex(KT::CString("4"), -1); },
         withNul("\xFF")},
        {"zero", [](KT::CString& s) { s.zero(); }, ""}};
    const KT::CString source("abc");
    for (const auto& [name, write, bytes] : rows) {
        SCOPED_TRACE(name);
        KT::CString written = source.getSubString(4, 0);
        write(written);
        EXPECT_EQ(bytesOf(written), bytes);
        EXPECT_EQ(bytesOf(source.getSubString(4, 0)), withNul(""));
    }
}

// A text whose length with its terminator does not fit in SIntLeast32 cannot
// be held: it is an allocation failure, not an empty string. Its 2^31 - 1
// characters are one 64 KiB file mapped over and over, so the test costs
// address space rather than memory.
TEST(CStringTest, TextTooLongToCountIsAnAllocationFailure) {
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

TEST(CStringTest, CaseCopiesDoNotCountTheirTerminator) {
    // The source as stored, upper or lower, and the copy's bytes in use and
    // the one after them.
    const std::string high("\xC4\xE4@[`{", 7), m512(512, 'm');
    const std::tuple<std::string, bool, std::string> rows[] = {
        {withNul("AbC1"), false, withNul("abc1")}, {withNul("aBc"), true, withNul("ABC")},
        {withNul("AZaz"), false, withNul("azaz")}, {withNul("AZaz"), true, withNul("AZAZ")},
        {high, false, high}, {high, true, high}, {withNul(""), true, withNul("")},
        {withNul(m512), true, withNul(std::string(512, 'M'))},
        // A case copy of a case copy: the four bytes, a length of three.
        {"abc1", true, "ABC1"}};
    for (const auto& [bytes, upper, memory] : rows) {
        SCOPED_TRACE(bytes.substr(0, 10));
        KT::CString source = stringOf(bytes);
        KT::CString copy = upper ? source.getUpperCaseString() : source.getLowerCaseString();
        ASSERT_EQ(copy.length, int(memory.size()) - 1);
        ASSERT_GE(copy.capacity, int(memory.size()));
        EXPECT_EQ(kttest::memoryOf(copy, int(memory.size())), memory);
        EXPECT_EQ(bytesOf(source), bytes);
        // A copy takes the counted bytes and keeps a NUL after them where its
        // storage has room (not after a whole number of 512-byte blocks).
        KT::CString again(copy), assigned("old");
        assigned = copy;
        EXPECT_EQ(bytesOf(again), bytesOf(copy));
        EXPECT_EQ(bytesOf(assigned), bytesOf(copy));
        if (again.length % 512 != 0) {
            EXPECT_STREQ(again.c_str(), memory.substr(0, size_t(copy.length)).c_str());
        }
    }
}

TEST(CStringTest, AllocationFailuresAreThrownAndLeakNothing) {
    const std::string longText(2000, 'l');
    kttest::expectFailures({
        {"constructor", [] { KT::CString("abc"); }, {44}},
        {"copy and assignment",
         [] {
             KT::CString text("abc"), copy(text);
             copy = text;
         },
         {44, 44, 44}},
        {"stack format", [] { KT::CString::createWithFormat("%d", 1); }, {44}},
        {"heap format", [&] { KT::CString::createWithFormat("%s", longText.c_str()); }, {43}},
        {"counted format", [&] { KT::RString::createWithFormat("%s", longText.c_str()); }, {43}},
        {"set", [&] { KT::CString("abc").set("%s", longText.c_str()); }, {44, 43}},
        {"substrings",
         [] {
             KT::CString text("abcd");
             text.getSubString(1, 2);
             text.getSubString(4, 0);  // empty: a copy of ""
         },
         {44, 299, 44}},
        {"case copy", [] { KT::CString("abcd").getLowerCaseString(); }, {44, 299}},
        {"terminator",
         [] {
             KT::CString text;
             text.set(1, static_cast<KT::UInt8*>(std::malloc(1)), KT::ConstructionFlags(0));
             text.data[0] = 'a';
             text.addTerminator();
         },
         {299}},
    });
}

TEST(RStringTest, DestroyedThroughEitherBase) {
    delete static_cast<ktbase::object_refcount*>(new KT::RString("shared"));
    delete static_cast<KT::CString*>(new KT::RString(KT::RString::createWithFormat("%2000d", 3)));
}

}  // namespace
