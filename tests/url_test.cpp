#include "kt/url.h"

#include "support.h"
#include "url_internal.h"

namespace {

using KeyValues = std::map<std::string, std::string>;
using Getter = std::string (*)(const std::string&, bool);

// --- Percent-encoding ------------------------------------------------------

// Single bytes are covered one by one below; these rows are about runs of "/".
TEST(UrlEncodeTest, Table) {
    // The text, then its encoding keeping single slashes, then escaping all.
    const std::string rows[][3] = {
        {"", "", ""}, {"/a//b/", "/a/%2fb/", "%2fa%2f%2fb%2f"}, {"///", "/%2f%2f", "%2f%2f%2f"},
        {"~/ /", "%7e/%20/", "%7e%2f%20%2f"}};
    for (const auto& [text, keeping_slashes, escaping_slashes] : rows) {
        SCOPED_TRACE("text \"" + text + "\"");
        EXPECT_EQ(ktbase::url_encode(text, false), keeping_slashes);
        EXPECT_EQ(ktbase::url_encode(text, true), escaping_slashes);
    }
}

TEST(UrlEncodeTest, EveryByteAlone) {
    const std::string unreserved =
        "!'()*-.0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ_abcdefghijklmnopqrstuvwxyz";
    const char* hex = "0123456789abcdef";
    for (int c = 0; c < 256; ++c) {
        SCOPED_TRACE("byte " + std::to_string(c));
        const std::string text(1, char(c)), escaped = {'%', hex[c >> 4], hex[c & 15]};
        const bool kept = unreserved.find(char(c)) != std::string::npos;
        EXPECT_EQ(ktbase::url_encode(text, true), kept ? text : escaped);
        EXPECT_EQ(ktbase::url_encode(text, false), kept || c == '/' ? text : escaped);
    }
}

TEST(UrlDecodeTest, Table) {
    const std::string rows[][2] = {
        {"", ""}, {"a", "a"}, {"a%20b+c", "a b+c"}, {"%41%42", "AB"}, {"%41", "A"},
        {"x%41", "xA"}, {"%4", "%4"}, {"a%", "a%"}, {"x%4", "x%4"}, {"%41%", "A%"},
        {"%2f%2F%7E", "//~"}, {"%e9", "\xe9"}, {"%00x", "%00x"}, {"%00%41", "%00A"},
        {"%0z", "%0z"}, {"%zz", "%zz"}, {"%%%", "%%%"}, {"%4zx", "@x"}, {"%z4", "\x04"},
        {"%g1", "\x01"},
        // "%%4" is an escape worth 4: the second "%" reads as a zero digit.
        {"%%41", "\x04" "1"}};
    for (const auto& [text, decoded] : rows) EXPECT_EQ(ktbase::url_decode(text), decoded) << text;
}

// Decoding gives back what was encoded, except that a zero byte comes back
// as the three bytes "%00", which the decoder leaves alone.
TEST(UrlEncodeTest, DecodingUndoesEncodingOfRandomBytes) {
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
        for (bool all_slashes : {false, true})
            EXPECT_EQ(ktbase::url_decode(ktbase::url_encode(text, all_slashes)), expected);
    }
    // A reversed range is an empty one.
    char out[4] = {};
    const char* text = "%41";
    EXPECT_EQ(ktbase::url_detail::url_decode_range(out, text + 3, text), 0u);
    EXPECT_EQ(ktbase::url_detail::url_encode_range(out, text + 3, text, true), 0u);
}

// --- Components --------------------------------------------------------------

const std::pair<const char*, Getter> kGetters[] = {
    {"scheme", ktbase::url_scheme},     {"authority", ktbase::url_authority},
    {"path", ktbase::url_path},         {"params", ktbase::url_params},
    {"query", ktbase::url_query},       {"fragment", ktbase::url_fragment},
    {"domain", ktbase::url_domain},     {"user", ktbase::url_user},
    {"password", ktbase::url_password}, {"host", ktbase::url_host},
    {"service", ktbase::url_service}};
constexpr std::size_t kFirstAuthorityPart = 6;

// Each URL with its scheme, authority, path, params, query and fragment,
// "|" between them.
const char* const kTopLevelRows[][2] = {
    {"", "|||||"}, {"a:b", "a||b|||"}, {"mailto:x@y", "mailto||x@y|||"},
    {"s://dom;usr:sec@host:8080/a/b;p=1?q=2#frag", "s|dom;usr:sec@host:8080|/a/b|p=1|q=2|frag"},
    {"//host/p", "|host|/p|||"}, {"s://host?x", "s|host|||x|"}, {"s://host;p", "s|host||p||"},
    {"s://h?x=/y", "s|h?x=|/y|||"}, {"s://u@h?x=/y", "s|u@h|||x=/y|"},
    {"s://u@h;x/y", "s|u@h||x/y||"}, {"s://host#a/b", "s||host|||a/b"},
    {"s://host#a?b", "s||host|||a?b"}, {"s://u@h#/", "s||u@h|||/"},
    {"s://host#x@y", "s|host||||x@y"}, {"x#y#z", "||x|||y#z"}, {"host:80/x", "host||80/x|||"},
    {"/a:b", "||/a:b|||"}, {"a#b:c", "||a|||b:c"}, {":x", "||x|||"}, {"s:", "s|||||"},
    {"s:/", "s||/|||"}, {"s://", "s|||||"}, {"s:///p", "s||/p|||"}, {"s:a//b", "s||a//b|||"},
    {"s://a@b@c/p", "s|a@b@c|/p|||"}, {"s://h/p;a;b?c?d#e#f", "s|h|/p|a;b|c?d|e#f"},
    {"s://h/p?a;b", "s|h|/p||a;b|"}, {"s:/p#", "s||/p|||"}};

// Each URL with its domain, user, password, host and service.
const char* const kAuthorityRows[][2] = {
    {"", "||||"}, {"s://dom;usr:sec@host:8080/a/b;p=1?q=2#frag", "dom|usr|sec|host|8080"},
    {"mailto:x@y", "||||"}, {"s://u@h", "|u||h|"}, {"s://h:", "|||h|"}, {"s://a;b@h", "a|b||h|"},
    {"s://a:b;c@h", "a:b|c||h|"}, {"s://d;@h", "d|||h|"}, {"s://:sec@h", "||sec|h|"},
    {"s://u:p:q@h:1:2", "|u|p:q|h|1:2"}, {"s://[::1]:80/", "|||[|:1]:80"},
    {"s://a@b@c/p", "|a||b@c|"}, {"//u:p@h/", "|u|p|h|"}, {"s://@", "||||"},
    {"s://h#u@x:1", "|||h|"}, {"s://h?u@x:1", "|h?u||x|1"}};

// The getters from kGetters[first] on, raw and decoded (the same: no row has
// a "%"), with "|" between their results.
void expectParts(const std::string& url, const std::string& expected, std::size_t first) {
    std::string raw, decoded;
    for (std::size_t i = first; i < (first == 0 ? kFirstAuthorityPart : std::size(kGetters)); ++i) {
        raw += (i == first ? "" : "|") + kGetters[i].second(url, false);
        decoded += (i == first ? "" : "|") + kGetters[i].second(url, true);
    }
    EXPECT_EQ(raw, expected) << "url \"" << url << "\"";
    EXPECT_EQ(decoded, expected) << "url \"" << url << "\"";
}

TEST(UrlComponentTest, Tables) {
    for (const auto& [url, parts] : kTopLevelRows) expectParts(url, parts, 0);
    for (const auto& [url, parts] : kAuthorityRows) expectParts(url, parts, kFirstAuthorityPart);
}

// Whatever the bytes, each raw component is a piece of the text, and decoding
// a component's range equals decoding its text.
TEST(UrlComponentTest, RandomTextsGivePiecesOfThemselves) {
    EXPECT_EQ(ktbase::url_path("s://h/a%20b", true), "/a b");
    const std::string alphabet = std::string(":/@;?#%=&a1 ") + '\0' + "\xff";
    std::mt19937 random(7);
    std::uniform_int_distribution<std::size_t> pick(0, alphabet.size() - 1), length(0, 24);
    for (int i = 0; i < 3000; ++i) {
        std::string url;
        for (std::size_t n = length(random); n > 0; --n) url += alphabet[pick(random)];
        for (const auto& [name, get] : kGetters) {
            SCOPED_TRACE(std::string(name) + " of \"" + url + "\"");
            const std::string raw = get(url, false);
            EXPECT_NE(url.find(raw), std::string::npos);
            EXPECT_EQ(get(url, true), ktbase::url_decode(raw));
        }
    }
}

// AddressSanitizer (which the sanitizer build's compiler marks so) slows the
// byte loops down several times: a smaller text keeps the test quick there.
#ifdef __SANITIZE_ADDRESS__
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
    const std::string url = "s" + block + "://" + block + ";" + block + ":" + block + "@" + block +
                            ":" + block + "/" + block + ";" + block + "?" + block + "#" + block;
    EXPECT_TRUE(ktbase::url_scheme(url, true) == "s" + decoded_block);
    EXPECT_TRUE(ktbase::url_path(url, true) == "/" + decoded_block);
    for (std::size_t i = 3; i < std::size(kGetters); ++i)  // from the params on
        EXPECT_TRUE(kGetters[i].second(url, true) == decoded_block) << kGetters[i].first;
    EXPECT_EQ(ktbase::url_authority(url, true).size(), 5 * decoded_block.size() + 4);

    // Escaped: the "%" of each block byte group and the eleven delimiters.
    const std::string encoded = ktbase::url_encode(url, true);
    EXPECT_EQ(encoded.size(), url.size() + 2 * (10 * (block.size() / 4) + 11));
    EXPECT_TRUE(ktbase::url_decode(encoded) == url);
}

// --- Key/value maps ---------------------------------------------------------

TEST(UrlKeyValueTest, Table) {
    const struct {
        std::string text;  // the component
        bool decode;
        char pair_separator, key_value_separator;
        KeyValues expected;
    } rows[] = {
        {"a=1&b=2&a=3", false, '&', '=', {{"a", "3"}, {"b", "2"}}},
        {"a", false, '&', '=', {{"a", ""}}}, {"a=", false, '&', '=', {{"a", ""}}},
        {"=x", false, '&', '=', {{"", "x"}}}, {"a=b=c", false, '&', '=', {{"a", "b=c"}}},
        {"a=1&&b=2", false, '&', '=', {{"", ""}, {"a", "1"}, {"b", "2"}}},
        {"a=1&", false, '&', '=', {{"", ""}, {"a", "1"}}}, {"&", false, '&', '=', {{"", ""}}},
        {"k%3d=v%26w", true, '&', '=', {{"k=", "v&w"}}},
        {"k%3d=v%26w", false, '&', '=', {{"k%3d", "v%26w"}}},
        {"a:1,b:2", false, ',', ':', {{"a", "1"}, {"b", "2"}}},
        {"a&b", false, '&', '&', {{"a", ""}, {"b", ""}}},
        {"a=1&b", false, '&', '\0', {{"a=1&b", ""}}},
        {"a=1&b=2", false, '\0', '=', {{"a", "1&b=2"}}},
        {std::string("a=1\0b=2", 7), false, '\0', '=', {{"a", "1"}, {"b", "2"}}},
    };
    using Fill = void (*)(KeyValues&, const std::string&, bool, char, char);
    using Make = KeyValues (*)(const std::string&, bool, char, char);
    const std::tuple<char, Fill, Make> forms[] = {
        {'?', ktbase::url_query_kvmap, ktbase::url_query_kvmap},
        {';', ktbase::url_params_kvmap, ktbase::url_params_kvmap},
        {'#', ktbase::url_fragment_kvmap, ktbase::url_fragment_kvmap}};
    for (const auto& row : rows) {
        for (const auto& [delimiter, fill, make] : forms) {
            const std::string url = "s://h/p" + std::string(1, delimiter) + row.text;
            SCOPED_TRACE("url \"" + url + "\"");
            EXPECT_EQ(make(url, row.decode, row.pair_separator, row.key_value_separator),
                      row.expected);
            KeyValues filled;
            fill(filled, url, row.decode, row.pair_separator, row.key_value_separator);
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

// Pairs of hostile shapes, megabytes of them: split in time linear in the
// text, each row takes milliseconds; a search to the text's end for every pair
// would take far longer than the time limit CTest gives each test.
TEST(UrlKeyValueTest, ManyPairsInLinearTime) {
    const struct {
        std::string pair;
        KeyValues expected;
    } rows[] = {{"a&", {{"", ""}, {"a", ""}}}, {"&", {{"", ""}}}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.pair);
        std::string pairs = row.pair;
        while (pairs.size() < (std::size_t(8) << 20)) pairs += pairs;
        EXPECT_EQ(ktbase::url_query_kvmap("?" + pairs, false, '&', '='), row.expected);
    }
}

TEST(UrlKeyValueTest, JoinTable) {
    const struct {
        KeyValues map;
        bool encode;
        char pair_separator, key_value_separator;
        std::string before, after;
    } rows[] = {
        {{}, false, '&', '=', "", ""}, {{{"a", "1"}, {"b", ""}}, false, '&', '=', "", "a=1&b"},
        {{{"", "x"}, {"a", "1"}}, false, '&', '=', "", "=x&a=1"},
        {{{"", ""}, {"a", "1"}}, false, '&', '=', "", "a=1"}, {{{"", ""}}, true, '&', '=', "", ""},
        {{{"p", "a b/c"}}, true, '&', '=', "", "p=a%20b%2fc"},
        {{{"p", "a b/c"}}, false, '&', '=', "", "p=a b/c"},
        {{{"k=", "&"}}, true, '&', '=', "", "k%3d=%26"},
        {{{"b", "2"}, {"a", "1"}}, false, ';', ':', "", "a:1;b:2"},
        {{{"a", "1"}}, false, '&', '=', "x", "x&a=1"}, {{{"", "1"}}, false, '&', '=', "x", "x=1"},
    };
    for (const auto& row : rows) {
        std::string out = row.before;
        ktbase::url_detail::kvmap_join(out, row.map, row.encode, row.pair_separator,
                                       row.key_value_separator);
        EXPECT_EQ(out, row.after);
    }
}

}  // namespace
