#include "kt/url.h"

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "url_internal.h"

namespace {

using KeyValues = std::map<std::string, std::string>;
using Getter = std::string (*)(const std::string&, bool);

// --- Percent-encoding ------------------------------------------------------

TEST(UrlEncodeTest, Table) {
    const struct {
        std::string text, keeping_slashes, escaping_slashes;
    } rows[] = {
        {"", "", ""},
        {"a b", "a%20b", "a%20b"},
        {"a+b=c&d", "a%2bb%3dc%26d", "a%2bb%3dc%26d"},
        {"AZaz09-_.!*'()", "AZaz09-_.!*'()", "AZaz09-_.!*'()"},
        {"/a//b/", "/a/%2fb/", "%2fa%2f%2fb%2f"},
        {"///", "/%2f%2f", "%2f%2f%2f"},
        {"~/ /", "%7e/%20/", "%7e%2f%20%2f"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE("text \"" + row.text + "\"");
        EXPECT_EQ(ktbase::url_encode(row.text, false), row.keeping_slashes);
        EXPECT_EQ(ktbase::url_encode(row.text, true), row.escaping_slashes);
    }
}

TEST(UrlEncodeTest, EveryByteAlone) {
    const std::string unreserved =
        "!'()*-.0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ_abcdefghijklmnopqrstuvwxyz";
    const char* hex = "0123456789abcdef";
    for (int c = 0; c < 256; ++c) {
        SCOPED_TRACE("byte " + std::to_string(c));
        const std::string text(1, char(c));
        const std::string escaped = {'%', hex[c >> 4], hex[c & 15]};
        const bool kept = unreserved.find(char(c)) != std::string::npos;
        EXPECT_EQ(ktbase::url_encode(text, true), kept ? text : escaped);
        EXPECT_EQ(ktbase::url_encode(text, false), kept || c == '/' ? text : escaped);
    }
}

TEST(UrlDecodeTest, Table) {
    const struct {
        std::string text, decoded;
    } rows[] = {
        {"", ""}, {"a", "a"}, {"a%20b+c", "a b+c"}, {"%41%42", "AB"}, {"%41", "A"},
        {"x%41", "xA"}, {"%4", "%4"}, {"a%", "a%"}, {"x%4", "x%4"}, {"%41%", "A%"},
        {"%2f%2F%7E", "//~"}, {"%e9", "\xe9"}, {"%00x", "%00x"}, {"%00%41", "%00A"},
        {"%0z", "%0z"}, {"%zz", "%zz"}, {"%%%", "%%%"}, {"%4zx", "@x"}, {"%z4", "\x04"},
        {"%g1", "\x01"},
        // "%%4" is an escape worth 4: the second "%" reads as a zero digit.
        {"%%41", "\x04" "1"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE("text \"" + row.text + "\"");
        EXPECT_EQ(ktbase::url_decode(row.text), row.decoded);
    }
}

TEST(UrlDecodeTest, RangeForms) {
    using namespace ktbase::url_detail;
    const std::string text = "%41%42%43";
    EXPECT_EQ(url_decode_range(text, url_range{3, 9}), "BC");
    EXPECT_EQ(url_decode_range(text, url_range{3, 5}), "%4");
    char out[9] = {};
    EXPECT_EQ(url_decode_range(out, text.data() + 3, text.data()), 0u);
    EXPECT_EQ(url_encode_range(out, text.data() + 3, text.data(), true), 0u);
    std::string appended = "x";
    url_encode_append(appended, "a b", true);
    EXPECT_EQ(appended, "xa%20b");
}

// Decoding gives back what was encoded, except that a zero byte comes back
// as the three bytes "%00", which the decoder leaves alone. The range encoder
// writes exactly the size it announces (an overrun would trip the sanitizer).
TEST(UrlEncodeTest, DecodingUndoesEncodingOfRandomBytes) {
    using namespace ktbase::url_detail;
    std::mt19937 random(20240611);
    std::uniform_int_distribution<int> byte(0, 255), length(0, 40);
    for (int i = 0; i < 2000; ++i) {
        std::string text, expected;
        for (int n = length(random); n > 0; --n) {
            const char c = char(byte(random));
            text += c;
            expected += c == '\0' ? std::string("%00") : std::string(1, c);
        }
        SCOPED_TRACE("round " + std::to_string(i));
        for (bool all_slashes : {false, true}) {
            const std::string encoded = ktbase::url_encode(text, all_slashes);
            EXPECT_EQ(ktbase::url_decode(encoded), expected);
            const char* end = text.data() + text.size();
            std::vector<char> exact(url_encoded_size(text.data(), end, all_slashes));
            EXPECT_EQ(url_encode_range(exact.data(), text.data(), end, all_slashes), exact.size());
            EXPECT_EQ(std::string(exact.begin(), exact.end()), encoded);
        }
    }
}

// --- Components --------------------------------------------------------------

// Every getter, raw and decoded. Texts without "%" decode to themselves.
void check(const char* name, Getter get, const std::string& url, const std::string& raw,
           const std::string& decoded) {
    SCOPED_TRACE(std::string(name) + " of \"" + url + "\"");
    EXPECT_EQ(get(url, false), raw);
    EXPECT_EQ(get(url, true), decoded);
}

const std::array<std::pair<const char*, Getter>, 6> kTopLevel = {{
    {"scheme", ktbase::url_scheme},
    {"authority", ktbase::url_authority},
    {"path", ktbase::url_path},
    {"params", ktbase::url_params},
    {"query", ktbase::url_query},
    {"fragment", ktbase::url_fragment},
}};

struct TopLevelRow {
    std::string url;
    std::array<std::string, 6> parts;  // in the order of kTopLevel
};

const TopLevelRow kTopLevelRows[] = {
    {"", {"", "", "", "", "", ""}},
    {"s://dom;usr:sec@host:8080/a/b;p=1?q=2#frag",
     {"s", "dom;usr:sec@host:8080", "/a/b", "p=1", "q=2", "frag"}},
    {"a:b", {"a", "", "b", "", "", ""}},
    {"mailto:x@y", {"mailto", "", "x@y", "", "", ""}},
    {"//host/p", {"", "host", "/p", "", "", ""}},
    {"s://host?x", {"s", "host", "", "", "x", ""}},
    {"s://host;p", {"s", "host", "", "p", "", ""}},
    {"s://h?x=/y", {"s", "h?x=", "/y", "", "", ""}},
    {"s://u@h?x=/y", {"s", "u@h", "", "", "x=/y", ""}},
    {"s://u@h;x/y", {"s", "u@h", "", "x/y", "", ""}},
    {"s://host#a/b", {"s", "", "host", "", "", "a/b"}},
    {"s://host#a?b", {"s", "", "host", "", "", "a?b"}},
    {"s://u@h#/", {"s", "", "u@h", "", "", "/"}},
    {"s://host#x@y", {"s", "host", "", "", "", "x@y"}},
    {"x#y#z", {"", "", "x", "", "", "y#z"}},
    {"host:80/x", {"host", "", "80/x", "", "", ""}},
    {"/a:b", {"", "", "/a:b", "", "", ""}},
    {"a#b:c", {"", "", "a", "", "", "b:c"}},
    {":x", {"", "", "x", "", "", ""}},
    {"s:", {"s", "", "", "", "", ""}},
    {"s:/", {"s", "", "/", "", "", ""}},
    {"s://", {"s", "", "", "", "", ""}},
    {"s:///p", {"s", "", "/p", "", "", ""}},
    {"s:a//b", {"s", "", "a//b", "", "", ""}},
    {"s://a@b@c/p", {"s", "a@b@c", "/p", "", "", ""}},
    {"s://h/p;a;b?c?d#e#f", {"s", "h", "/p", "a;b", "c?d", "e#f"}},
    {"s://h/p?a;b", {"s", "h", "/p", "", "a;b", ""}},
    {"s:/p#", {"s", "", "/p", "", "", ""}},
};

TEST(UrlComponentTest, TopLevelTable) {
    for (const TopLevelRow& row : kTopLevelRows)
        for (std::size_t i = 0; i < kTopLevel.size(); ++i)
            check(kTopLevel[i].first, kTopLevel[i].second, row.url, row.parts[i], row.parts[i]);
}

const std::array<std::pair<const char*, Getter>, 5> kAuthorityParts = {{
    {"domain", ktbase::url_domain},
    {"user", ktbase::url_user},
    {"password", ktbase::url_password},
    {"host", ktbase::url_host},
    {"service", ktbase::url_service},
}};

struct AuthorityRow {
    std::string url;
    std::array<std::string, 5> parts;  // in the order of kAuthorityParts
};

const AuthorityRow kAuthorityRows[] = {
    {"", {"", "", "", "", ""}},
    {"s://dom;usr:sec@host:8080/a/b;p=1?q=2#frag", {"dom", "usr", "sec", "host", "8080"}},
    {"mailto:x@y", {"", "", "", "", ""}},
    {"s://u@h", {"", "u", "", "h", ""}},
    {"s://h:", {"", "", "", "h", ""}},
    {"s://a;b@h", {"a", "b", "", "h", ""}},
    {"s://a:b;c@h", {"a:b", "c", "", "h", ""}},
    {"s://d;@h", {"d", "", "", "h", ""}},
    {"s://:sec@h", {"", "", "sec", "h", ""}},
    {"s://u:p:q@h:1:2", {"", "u", "p:q", "h", "1:2"}},
    {"s://[::1]:80/", {"", "", "", "[", ":1]:80"}},
    {"s://a@b@c/p", {"", "a", "", "b@c", ""}},
    {"//u:p@h/", {"", "u", "p", "h", ""}},
    {"s://@", {"", "", "", "", ""}},
    {"s://h#u@x:1", {"", "", "", "h", ""}},
    {"s://h?u@x:1", {"", "h?u", "", "x", "1"}},
};

TEST(UrlComponentTest, AuthorityTable) {
    for (const AuthorityRow& row : kAuthorityRows)
        for (std::size_t i = 0; i < kAuthorityParts.size(); ++i)
            check(kAuthorityParts[i].first, kAuthorityParts[i].second, row.url, row.parts[i],
                  row.parts[i]);
}

TEST(UrlComponentTest, DecodingTable) {
    const struct {
        const char* name;
        Getter get;
        std::string url, raw, decoded;
    } rows[] = {
        {"path", ktbase::url_path, "s://h/a%20b", "/a%20b", "/a b"},
        {"scheme", ktbase::url_scheme, "%41:x", "%41", "A"},
        {"authority", ktbase::url_authority, "s://%75@h/", "%75@h", "u@h"},
        {"params", ktbase::url_params, "s://h/p;%3d", "%3d", "="},
        {"query", ktbase::url_query, "s://h/?a=%00&b=%2b+", "a=%00&b=%2b+", "a=%00&b=++"},
        {"fragment", ktbase::url_fragment, "s://h/#%41%4", "%41%4", "A%4"},
        {"domain", ktbase::url_domain, "s://d%20x;u@h", "d%20x", "d x"},
        {"user", ktbase::url_user, "ftp://bob%40home:p%3aw@h/", "bob%40home", "bob@home"},
        {"password", ktbase::url_password, "ftp://bob%40home:p%3aw@h/", "p%3aw", "p:w"},
        {"host", ktbase::url_host, "s://h%2fx/p", "h%2fx", "h/x"},
        {"service", ktbase::url_service, "s://h:%38%30", "%38%30", "80"},
    };
    for (const auto& row : rows) check(row.name, row.get, row.url, row.raw, row.decoded);
}

// Whatever the bytes, each raw component is a piece of the text, and decoding
// a component's range equals decoding its text.
TEST(UrlComponentTest, RandomTextsGivePiecesOfThemselves) {
    const std::string alphabet = std::string(":/@;?#%=&a1 ") + '\0' + "\xff";
    std::mt19937 random(7);
    std::uniform_int_distribution<std::size_t> pick(0, alphabet.size() - 1), length(0, 24);
    std::vector<std::pair<const char*, Getter>> getters(kTopLevel.begin(), kTopLevel.end());
    getters.insert(getters.end(), kAuthorityParts.begin(), kAuthorityParts.end());
    for (int i = 0; i < 3000; ++i) {
        std::string url;
        for (std::size_t n = length(random); n > 0; --n) url += alphabet[pick(random)];
        for (const auto& [name, get] : getters) {
            SCOPED_TRACE(std::string(name) + " of \"" + url + "\"");
            const std::string raw = get(url, false);
            EXPECT_NE(url.find(raw), std::string::npos);
            EXPECT_EQ(get(url, true), ktbase::url_decode(raw));
        }
    }
}

// AddressSanitizer slows the byte loops down several times: a smaller text
// keeps the test quick there.
#if defined(__SANITIZE_ADDRESS__)
#define KT_TEST_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KT_TEST_ASAN 1
#endif
#endif
#ifdef KT_TEST_ASAN
constexpr std::size_t kLargeSize = std::size_t(8) << 20;
#else
constexpr std::size_t kLargeSize = std::size_t(64) << 20;
#endif

// A text far larger than any stack: every getter decodes its piece, and
// encoding and decoding the whole text work.
TEST(UrlComponentTest, LargeTexts) {
    // Ten blocks of kLargeSize / 8 bytes: a URL of more than kLargeSize.
    std::string block = "a%20", decoded_block = "a ";
    while (block.size() < kLargeSize / 8) {
        block += block;
        decoded_block += decoded_block;
    }
    const std::size_t piece = block.size() / 4;
    const std::string url = "s" + block + "://" + block + ";" + block + ":" + block + "@" + block +
                            ":" + block + "/" + block + ";" + block + "?" + block + "#" + block;
    EXPECT_TRUE(ktbase::url_scheme(url, true) == "s" + decoded_block);
    EXPECT_TRUE(ktbase::url_path(url, true) == "/" + decoded_block);
    for (Getter get : {ktbase::url_params, ktbase::url_query, ktbase::url_fragment,
                       ktbase::url_domain, ktbase::url_user, ktbase::url_password,
                       ktbase::url_host, ktbase::url_service})
        EXPECT_TRUE(get(url, true) == decoded_block);
    EXPECT_EQ(ktbase::url_authority(url, true).size(), 5 * decoded_block.size() + 4);

    // Escaped: the "%" of each block byte group and the eleven delimiters.
    const std::string encoded = ktbase::url_encode(url, true);
    EXPECT_EQ(encoded.size(), url.size() + 2 * (10 * piece + 11));
    EXPECT_TRUE(ktbase::url_decode(encoded) == url);
}

// --- Key/value maps ---------------------------------------------------------

struct KeyValueRow {
    std::string text;  // the component
    bool decode;
    char pair_separator, key_value_separator;
    KeyValues expected;
};

const KeyValueRow kKeyValueRows[] = {
    {"a=1&b=2&a=3", false, '&', '=', {{"a", "3"}, {"b", "2"}}},
    {"a", false, '&', '=', {{"a", ""}}},
    {"a=", false, '&', '=', {{"a", ""}}},
    {"=x", false, '&', '=', {{"", "x"}}},
    {"a=b=c", false, '&', '=', {{"a", "b=c"}}},
    {"a=1&&b=2", false, '&', '=', {{"", ""}, {"a", "1"}, {"b", "2"}}},
    {"a=1&", false, '&', '=', {{"", ""}, {"a", "1"}}},
    {"&", false, '&', '=', {{"", ""}}},
    {"k%3d=v%26w", true, '&', '=', {{"k=", "v&w"}}},
    {"k%3d=v%26w", false, '&', '=', {{"k%3d", "v%26w"}}},
    {"a:1,b:2", false, ',', ':', {{"a", "1"}, {"b", "2"}}},
    {"a&b", false, '&', '&', {{"a", ""}, {"b", ""}}},
    {"a=1&b", false, '&', '\0', {{"a=1&b", ""}}},
    {"a=1&b=2", false, '\0', '=', {{"a", "1&b=2"}}},
    {std::string("a=1\0b=2", 7), false, '\0', '=', {{"a", "1"}, {"b", "2"}}},
};

TEST(UrlKeyValueTest, Table) {
    using Fill = void (*)(KeyValues&, const std::string&, bool, char, char);
    using Make = KeyValues (*)(const std::string&, bool, char, char);
    const struct {
        char delimiter;
        Fill fill;
        Make make;
    } forms[] = {
        {'?', ktbase::url_query_kvmap, ktbase::url_query_kvmap},
        {';', ktbase::url_params_kvmap, ktbase::url_params_kvmap},
        {'#', ktbase::url_fragment_kvmap, ktbase::url_fragment_kvmap},
    };
    for (const KeyValueRow& row : kKeyValueRows) {
        for (const auto& form : forms) {
            const std::string url = "s://h/p" + std::string(1, form.delimiter) + row.text;
            SCOPED_TRACE("url \"" + url + "\"");
            EXPECT_EQ(form.make(url, row.decode, row.pair_separator, row.key_value_separator),
                      row.expected);
            KeyValues filled;
            form.fill(filled, url, row.decode, row.pair_separator, row.key_value_separator);
            EXPECT_EQ(filled, row.expected);
        }
    }
}

TEST(UrlKeyValueTest, FillFormKeepsEarlierEntries) {
    KeyValues map = {{"a", "0"}, {"z", "9"}};
    ktbase::url_query_kvmap(map, "?a=1", false, '&', '=');
    EXPECT_EQ(map, (KeyValues{{"a", "1"}, {"z", "9"}}));
    ktbase::url_params_kvmap(map, "s://h/p", true, '&', '=');
    ktbase::url_fragment_kvmap(map, "s://h/p#", true, '&', '=');
    EXPECT_EQ(map, (KeyValues{{"a", "1"}, {"z", "9"}}));
    EXPECT_TRUE(ktbase::url_query_kvmap("s://h/p", false, '&', '=').empty());
}

TEST(UrlKeyValueTest, JoinTable) {
    const struct {
        KeyValues map;
        bool encode;
        char pair_separator, key_value_separator;
        std::string before, after;
    } rows[] = {
        {{}, false, '&', '=', "", ""},
        {{{"a", "1"}, {"b", ""}}, false, '&', '=', "", "a=1&b"},
        {{{"", "x"}, {"a", "1"}}, false, '&', '=', "", "=x&a=1"},
        {{{"", ""}, {"a", "1"}}, false, '&', '=', "", "a=1"},
        {{{"", ""}}, true, '&', '=', "", ""},
        {{{"p", "a b/c"}}, true, '&', '=', "", "p=a%20b%2fc"},
        {{{"p", "a b/c"}}, false, '&', '=', "", "p=a b/c"},
        {{{"k=", "&"}}, true, '&', '=', "", "k%3d=%26"},
        {{{"b", "2"}, {"a", "1"}}, false, ';', ':', "", "a:1;b:2"},
        {{{"a", "1"}}, false, '&', '=', "x", "x&a=1"},
        {{{"", "1"}}, false, '&', '=', "x", "x=1"},
    };
    for (const auto& row : rows) {
        std::string out = row.before;
        ktbase::url_detail::kvmap_join(out, row.map, row.encode, row.pair_separator,
                                       row.key_value_separator);
        EXPECT_EQ(out, row.after);
    }
}

}  // namespace
