#include "kt/KTString.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "test_support.h"

namespace {

// The bytes a string holds in use.
std::string bytesOf(const KT::CString& text) {
    return text.length > 0
               ? std::string(reinterpret_cast<const char*>(text.data), size_t(text.length))
               : std::string();
}

// A string holding exactly `bytes`, as stored (no terminator is added).
KT::CString stringOfBytes(const std::string& bytes) {
    KT::CString text;
    text.set(int(bytes.size()), reinterpret_cast<KT::UInt8*>(const_cast<char*>(bytes.data())),
             KT::CopyData);
    return text;
}

void expectEmptyState(const KT::CString& text) {
    EXPECT_EQ(text.data, nullptr);
    EXPECT_EQ(text.capacity, 0);
    EXPECT_EQ(text.length, 0);
    EXPECT_EQ(text.owner, 1);
    EXPECT_TRUE(text == "");
}

TEST(CStringTest, LengthCountsTheTerminator) {
    const std::string texts[] = {"", "abc", std::string(511, 'x'), std::string(512, 'y')};
    for (const std::string& text : texts) {
        SCOPED_TRACE(text.size());
        KT::CString string(text.c_str());
        EXPECT_EQ(string.length, int(text.size() + 1));
        EXPECT_EQ(string.capacity, text.size() < 512 ? 512 : 1024);
        EXPECT_EQ(string.owner, 1);
        EXPECT_EQ(bytesOf(string), text + '\0');
        EXPECT_TRUE(string == text.c_str());

        KT::RString counted(text.c_str());
        EXPECT_EQ(bytesOf(counted), text + '\0');
        EXPECT_EQ(counted.refcount(), 0);
    }
}

TEST(CStringTest, FormatsOnTheStackUpTo1023CharactersAndAdoptsAnExactBlockBeyond) {
    struct Row {
        int characters;
        int capacity;
    };
    const Row rows[] = {{0, 512}, {511, 512}, {1023, 1024}, {1024, 1025}, {5000, 5001}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.characters);
        std::string text(size_t(row.characters), 'q');
        KT::CString formatted = KT::CString::createWithFormat("%s", text.c_str());
        EXPECT_EQ(formatted.length, row.characters + 1);
        EXPECT_EQ(formatted.capacity, row.capacity);
        EXPECT_EQ(formatted.owner, 1);
        EXPECT_EQ(bytesOf(formatted), text + '\0');

        KT::RString counted = KT::RString::createWithFormat("%s", text.c_str());
        EXPECT_EQ(counted.capacity, row.capacity);
        EXPECT_EQ(bytesOf(counted), text + '\0');
        EXPECT_EQ(counted.refcount(), 0);
    }
    EXPECT_EQ(KT::CString::createWithFormat("%d-%s-%c", 42, "x", 'z'), "42-x-z");
}

TEST(CStringTest, SetReplacesTheContent) {
    KT::CString text = KT::CString::createWithFormat("%3000d", 1);
    text.set("%s/%d", "a", 1);
    EXPECT_EQ(bytesOf(text), std::string("a/1", 4));
    text.set("<%s>", text.c_str());
    EXPECT_EQ(bytesOf(text), std::string("<a/1>", 6));
}

TEST(CStringTest, FailedSetLeavesTheEmptyState) {
    KT::CString text("abc");
    EXPECT_THROW(text.set("%ls", L"\u00e9"), KT::CException);
    expectEmptyState(text);

    text = KT::CString("abc");
    KT::detail::failAllocation(1);
    EXPECT_THROW(text.set("%2000d", 1), KT::CException);
    KT::detail::failAllocation(0);
    expectEmptyState(text);
}

TEST(CStringTest, ComparesWithTextAsStrcmp) {
    struct Row {
        std::string bytes;  // stored as given; none: the empty state
        const char* other;
        bool equal;
    };
    const Row rows[] = {
        {std::string("abc", 4), "abc", true},
        {std::string("abc", 4), "abd", false},
        {std::string("abc", 4), "ab", false},
        {std::string("ab", 3), "abc", false},
        {std::string("", 1), "", true},
        {"", "", true},
        {"", "a", false},
        {std::string("ab\0cd", 6), "ab", true},
        // Bytes stored without a terminator are compared up to the length.
        {"xyz", "xyz", true},
        {"xyz", "xy", false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.bytes + " vs " + row.other);
        KT::CString text = stringOfBytes(row.bytes);
        EXPECT_EQ(text == row.other, row.equal);
        EXPECT_EQ(text != row.other, !row.equal);
    }
}

TEST(CStringTest, EmptyStateCopiesAndSearchesSafely) {
    KT::CString empty;
    expectEmptyState(empty);
    EXPECT_STREQ(empty.c_str(), "");
    expectEmptyState(KT::CString(empty));
    KT::CString assigned("abc");
    assigned = empty;
    expectEmptyState(assigned);
    EXPECT_EQ(empty.find('a', 0), -1);
    EXPECT_EQ(empty.find("", 0), -1);
    EXPECT_EQ(empty.reverseFind('\0', -1), -1);
    expectEmptyState(empty.getLowerCaseString());
    expectEmptyState(empty.getUpperCaseString());
    KT::CString sub = empty.getSubString(0, 0);
    EXPECT_EQ(sub.length, 1);
    EXPECT_EQ(sub.owner, 0);
}

TEST(CStringTest, CopiesAreDeep) {
    KT::CString original("abc");
    KT::CString copy(original);
    EXPECT_NE(copy.data, original.data);
    EXPECT_EQ(bytesOf(copy), std::string("abc", 4));

    KT::CString assigned = KT::CString::createWithFormat("%2000d", 5);
    assigned = original;
    EXPECT_NE(assigned.data, original.data);
    EXPECT_EQ(assigned.capacity, 512);
    EXPECT_EQ(bytesOf(assigned), std::string("abc", 4));
}

TEST(CStringTest, CopyOfACaseCopyEqualsItsText) {
    struct Row {
        std::string source, lower;
    };
    // The second copy has no room for a terminator after its 512 bytes.
    const Row rows[] = {{"AbC1", "abc1"}, {std::string(512, 'C'), std::string(512, 'c')}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.source.size());
        KT::CString lower = KT::CString(row.source.c_str()).getLowerCaseString();
        KT::CString copy(lower);
        EXPECT_EQ(copy.length, int(row.lower.size()));
        EXPECT_TRUE(copy == row.lower.c_str());
        KT::CString assigned("x");
        assigned = lower;
        EXPECT_TRUE(assigned == row.lower.c_str());
    }
}

TEST(CStringTest, AddTerminatorCountsOneNul) {
    struct Row {
        std::string bytes;
        std::string after;
    };
    const Row rows[] = {{"abc", std::string("abc", 4)},
                        {std::string("ab\0", 3), std::string("ab\0", 3)},
                        {std::string(512, 'z'), std::string(512, 'z') + '\0'},
                        {"", ""}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.bytes.size());
        KT::CString text = stringOfBytes(row.bytes);
        text.addTerminator();
        EXPECT_EQ(bytesOf(text), row.after);
    }
    auto* exact = static_cast<KT::UInt8*>(std::malloc(3));
    std::memcpy(exact, "abc", 3);
    KT::CString adopted;
    adopted.set(3, exact, KT::ConstructionFlags(0));
    adopted.addTerminator();
    EXPECT_EQ(adopted.capacity, 512);
    EXPECT_EQ(bytesOf(adopted), std::string("abc", 4));
}

TEST(CStringTest, FindsCharactersForwards) {
    struct Row {
        char c;
        int start;
        int found;
    };
    const Row rows[] = {{'b', 0, 1},  {'b', 1, 1},   {'b', 2, -1}, {'b', 4, -1},      {'c', 3, -1},
                        {'\0', 0, 3}, {'a', -1, -1}, {'z', 0, -1}, {'a', INT_MIN, -1}};
    const KT::CString text("abc");
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(1, row.c) + " from " + std::to_string(row.start));
        EXPECT_EQ(text.find(row.c, row.start), row.found);
    }
}

TEST(CStringTest, FindsTextForwardsInEveryForm) {
    struct Row {
        std::string bytes;  // stored as given
        const char* text;
        int start;
        int found;
    };
    const std::string abc("abc", 4);
    const Row rows[] = {
        {abc, "bc", 0, 1},
        {abc, "", 1, 1},
        {abc, "", 3, 3},
        {abc, "", 4, -1},
        {abc, "abcd", 0, -1},
        {abc, "c", -2, -1},
        {abc, "a", 1, -1},
        {std::string("abcabc", 7), "bc", 2, 4},
        {std::string("ab\0cd", 6), "cd", 0, -1},
        // No terminator in use: the search stops at the length.
        {"xyz", "z", 0, 2},
        {"xyz", "yz!", 0, -1},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.text) + " in " + row.bytes);
        KT::CString text = stringOfBytes(row.bytes);
        EXPECT_EQ(text.find(row.text, row.start), row.found);
        EXPECT_EQ(text.find(KT::CString(row.text), row.start), row.found);
        EXPECT_EQ(text.find(stringOfBytes(row.text), row.start), row.found);
    }
}

TEST(CStringTest, FindsCharactersBackwards) {
    struct Row {
        char c;
        int start;
        int found;
    };
    const Row rows[] = {{'a', -1, 2}, {'b', 0, -1}, {'a', 4, -1},  {'\0', -1, 3},
                        {'a', 1, 0},  {'b', 3, 1},  {'a', -2, -1}, {'z', -1, -1}};
    const KT::CString text("aba");
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(1, row.c) + " from " + std::to_string(row.start));
        EXPECT_EQ(text.reverseFind(row.c, row.start), row.found);
    }
    EXPECT_EQ(text.reverseFind("a", -1), -1);
    EXPECT_EQ(text.reverseFind("ba", 3), -1);
    EXPECT_EQ(text.reverseFind(KT::CString("a"), -1), -1);
}

TEST(CStringTest, SubstringsCountTheirTerminator) {
    struct Row {
        std::string source;  // stored as given
        int start, count;
        std::string bytes;  // in use afterwards
        bool borrowed;
    };
    const std::string abcd("abcd", 5);
    const std::string embedded("ab\0cd", 6);
    const Row rows[] = {
        {abcd, 1, 0, std::string("bcd", 4), false},
        {abcd, 1, 2, std::string("bc", 3), false},
        {abcd, 1, 10, std::string("bcd", 4), false},
        {abcd, 1, INT_MAX, std::string("bcd", 4), false},
        {abcd, 0, 4, std::string("abcd", 5), false},
        {abcd, 3, 1, std::string("d", 2), false},
        {abcd, 4, 0, std::string("", 1), false},
        {abcd, 5, 1, std::string("", 1), true},
        {abcd, -1, 2, std::string("", 1), true},
        {abcd, 1, -1, std::string("", 1), true},
        {embedded, 0, 3, std::string("ab\0", 3), false},
        {embedded, 1, 3, std::string("b\0c", 4), false},
        {"abcd", 0, 0, std::string("abc", 4), false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.source + " " + std::to_string(row.start) + "," +
                     std::to_string(row.count));
        KT::CString sub = stringOfBytes(row.source).getSubString(row.start, row.count);
        EXPECT_EQ(bytesOf(sub), row.bytes);
        EXPECT_EQ(sub.owner, row.borrowed ? 0 : 1);
        EXPECT_EQ(sub.capacity, row.borrowed ? 1 : 512);
    }
}

TEST(CStringTest, SubstringOfAWholeBlockKeepsItsTerminatorInside) {
    const int sizes[] = {511, 512, 1024};
    for (int size : sizes) {
        SCOPED_TRACE(size);
        std::string text(size_t(size), 's');
        KT::CString sub = KT::CString((text + "tail").c_str()).getSubString(0, size);
        EXPECT_EQ(sub.length, size + 1);
        EXPECT_GE(sub.capacity, size + 1);
        EXPECT_EQ(bytesOf(sub), text + '\0');
    }
}

TEST(CStringTest, CaseCopiesDoNotCountTheirTerminator) {
    struct Row {
        std::string source;  // stored as given
        bool upper;
        std::string memory;  // the copy's bytes in use and the one after them
    };
    const std::string high("\xC4\xE4@[`{", 7);
    const Row rows[] = {
        {std::string("AbC1", 5), false, std::string("abc1", 5)},
        {std::string("aBc", 4), true, std::string("ABC", 4)},
        {std::string("AZaz", 5), false, std::string("azaz", 5)},
        {std::string("AZaz", 5), true, std::string("AZAZ", 5)},
        {high, false, high},
        {high, true, high},
        {std::string("", 1), true, std::string("", 1)},
        // A case copy of a case copy: the four bytes, a length of three.
        {"abc1", true, "ABC1"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.source);
        KT::CString source = stringOfBytes(row.source);
        KT::CString copy = row.upper ? source.getUpperCaseString() : source.getLowerCaseString();
        ASSERT_EQ(copy.length, int(row.memory.size()) - 1);
        ASSERT_NE(copy.data, nullptr);
        EXPECT_EQ(std::string(reinterpret_cast<const char*>(copy.data), row.memory.size()),
                  row.memory);
        EXPECT_EQ(source.length, int(row.source.size()));
    }
}

TEST(CStringTest, CaseCopyOfAWholeBlockKeepsItsTerminatorInside) {
    const int sizes[] = {511, 512, 1023};
    for (int size : sizes) {
        SCOPED_TRACE(size);
        std::string text(size_t(size), 'm');
        KT::CString copy = KT::CString(text.c_str()).getUpperCaseString();
        EXPECT_EQ(copy.length, size);
        ASSERT_GE(copy.capacity, size + 1);
        EXPECT_EQ(copy.data[size], 0);
        EXPECT_EQ(std::string(reinterpret_cast<const char*>(copy.data), size_t(size)),
                  std::string(size_t(size), 'M'));
    }
}

TEST(CStringTest, AllocationFailuresAreThrownAndLeakNothing) {
    struct Row {
        const char* name;
        std::function<void()> operation;
        std::vector<unsigned> lines;
    };
    const std::string longText(2000, 'l');
    const Row rows[] = {
        {"constructor", [] { KT::CString text("abc"); }, {44}},
        {"copy",
         [] {
             KT::CString text("abc");
             KT::CString copy(text);
         },
         {44, 44}},
        {"format on the stack", [] { KT::CString::createWithFormat("%d", 1); }, {44}},
        {"format on the heap",
         [&] { KT::CString::createWithFormat("%s", longText.c_str()); },
         {43}},
        {"counted format", [&] { KT::RString::createWithFormat("%s", longText.c_str()); }, {43}},
        {"set",
         [&] {
             KT::CString text("abc");
             text.set("%s", longText.c_str());
         },
         {44, 43}},
        {"substring",
         [] {
             KT::CString text("abcd");
             text.getSubString(1, 2);
         },
         {44, 299}},
        {"case copy",
         [] {
             KT::CString text("abcd");
             text.getLowerCaseString();
         },
         {44, 299}},
        {"terminator",
         [] {
             auto* exact = static_cast<KT::UInt8*>(std::malloc(1));
             *exact = 'a';
             KT::CString text;
             text.set(1, exact, KT::ConstructionFlags(0));
             text.addTerminator();
         },
         {299}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(kttest::failEachAllocation(row.operation), row.lines);
    }
}

TEST(RStringTest, DestroyedThroughEitherBase) {
    ktbase::object_refcount* counted = new KT::RString("shared");
    delete counted;

    KT::CString* plain = new KT::RString(KT::RString::createWithFormat("%2000d", 3));
    delete plain;

    ktbase::ref<KT::RString> handle(new KT::RString("handle"));
    ktbase::ref<KT::RString> other = handle;
    EXPECT_EQ(handle->refcount(), 2);
    EXPECT_TRUE(*other == "handle");
}

}  // namespace
