#include "kt/KTString.h"
#include "support.h"

namespace {

using kttest::bytesOf;

// A string holding exactly `bytes`, as stored: no terminator is added.
KT::CString stringOf(const std::string& bytes) { return kttest::bufferOf<KT::CString>(bytes); }

std::string withNul(const std::string& text) { return text + '\0'; }

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

TEST(CStringTest, SetReplacesTheContentMayUseItAndLeavesTheEmptyStateOnFailure) {
    KT::CString text = KT::CString::createWithFormat("%3000d", 1);
    text.set("%s/%d", "a", 1);
    EXPECT_EQ(bytesOf(text), withNul("a/1"));
    text.set("<%s>", text.c_str());
    EXPECT_EQ(bytesOf(text), withNul("<a/1>"));

    EXPECT_THROW(text.set("%ls", L"\u00e9"), KT::CException);
    expectEmptyState(text);
    text = KT::CString("abc");
    KT::detail::failAllocation(1);
    EXPECT_THROW(text.set("%2000d", 1), KT::CException);
    KT::detail::failAllocation(0);
    expectEmptyState(text);
}

TEST(CStringTest, ComparesWithTextUpToItsFirstNulOrItsLength) {
    // The bytes as stored (none: the empty state), the text, and whether equal.
    const std::tuple<std::string, const char*, bool> rows[] = {
        {withNul("abc"), "abc", true}, {withNul("abc"), "abd", false},
        {withNul("abc"), "ab", false}, {withNul("ab"), "abc", false}, {withNul(""), "", true},
        {"", "", true}, {"", "a", false}, {std::string("ab\0cd", 6), "ab", true},
        {"xyz", "xyz", true}, {"xyz", "xy", false}};
    for (const auto& [bytes, other, equal] : rows) {
        SCOPED_TRACE(bytes + " vs " + other);
        EXPECT_EQ(stringOf(bytes) == other, equal);
        EXPECT_EQ(stringOf(bytes) != other, !equal);
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

TEST(CStringTest, FindsTextForwardsInEveryForm) {
    // The bytes as stored, the text, where the search starts and what it finds.
    const std::string abc = withNul("abc");
    const std::tuple<std::string, const char*, int, int> rows[] = {
        {abc, "bc", 0, 1}, {abc, "", 1, 1}, {abc, "", 3, 3}, {abc, "", 4, -1}, {abc, "abcd", 0, -1},
        {abc, "c", -2, -1}, {abc, "a", 1, -1}, {withNul("abcabc"), "bc", 2, 4},
        {std::string("ab\0cd", 6), "cd", 0, -1},
        // Without a terminator in use the search stops at the length.
        {"xyz", "z", 0, 2}, {"xyz", "yz!", 0, -1}};
    for (const auto& [bytes, text, start, found] : rows) {
        SCOPED_TRACE(std::string(text) + " in " + bytes + " from " + std::to_string(start));
        const KT::CString string = stringOf(bytes);
        EXPECT_EQ(string.find(text, start), found);
        EXPECT_EQ(string.find(KT::CString(text), start), found);
        EXPECT_EQ(string.find(stringOf(text), start), found);
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
