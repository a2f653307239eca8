#include "kt/url.h"

#include "support.h"

namespace {

using KeyValues = std::map<std::string, std::string>;

// Every text form of a component: its getter, url_set_ and url_new_.
struct Component {
    const char* name;
    std::string (*get)(const std::string&, bool);
    std::string& (*set)(std::string&, const std::string&, bool);
    std::string (*make)(const std::string&, const std::string&, bool);
};

enum Which { Scheme, Authority, Path, Params, Query, Fragment, Host, Service, Domain, User,
             Password };

#define KT_COMPONENT(x) {#x, ktbase::url_##x, ktbase::url_set_##x, ktbase::url_new_##x}
const Component kComponents[] = {  // in the order of Which
    KT_COMPONENT(scheme), KT_COMPONENT(authority), KT_COMPONENT(path),   KT_COMPONENT(params),
    KT_COMPONENT(query),  KT_COMPONENT(fragment),  KT_COMPONENT(host),   KT_COMPONENT(service),
    KT_COMPONENT(domain), KT_COMPONENT(user),      KT_COMPONENT(password)};
#undef KT_COMPONENT

// Returns what url_set_ made of `url`, after checking that it changed its
// argument in place and returned it, and that url_new_ gives the same
// without touching its own argument.
std::string set(const Component& component, const std::string& url, const std::string& value,
                bool encode) {
    SCOPED_TRACE(std::string(component.name) + " of \"" + url + "\" set to \"" + value + "\"");
    const std::string original = url;
    std::string changed = url;
    EXPECT_EQ(&component.set(changed, value, encode), &changed);
    EXPECT_EQ(component.make(url, value, encode), changed);
    EXPECT_EQ(url, original);
    return changed;
}

// For each component: the URL, the value and the result, the value inserted
// as it stands.
const std::pair<Which, std::vector<std::array<std::string, 3>>> kRows[] = {
    {Scheme, {{"s://h", "", "//h"}, {"h/x", "s", "s:h/x"}, {"//h/p", "http", "http://h/p"},
              {"s://h", "ftp", "ftp://h"}, {":x", "s", "s:x"}, {":x", "", "x"}, {"h/x", "", "h/x"},
              {"#a:b", "s", "s:#a:b"}}},
    {Authority, {{"s:path", "host", "s://host/path"}, {"/p", "host", "//host/p"},
                 {"", "host", "//host"}, {"s:///p", "host", "s://host/p"}, {"s:?q", "h", "s://h?q"},
                 {"s://h/p", "u@k:1", "s://u@k:1/p"}, {"s://h/p", "", "s:/p"},
                 {"s:///p", "", "s:/p"}, {"s:/p", "", "s:/p"}}},
    {Path, {{"s://host", "x", "s://host/x"}, {"s:x", "y", "s:y"}, {"", "y", "y"},
            {"s://h/p", "/a/b", "s://h/a/b"}, {"s://h/p?q", "", "s://h?q"}}},
    {Params, {{"s://h/x?q", "a=1", "s://h/x;a=1?q"}, {"s://h/p;", "x", "s://h/p;x"},
              {"s://h/p;", "", "s://h/p"}, {"s://h/p;a?q", "", "s://h/p?q"}}},
    {Query, {{"s://h/p#f", "a=1", "s://h/p?a=1#f"}, {"s://h/p?a=1#f", "", "s://h/p#f"},
             {"s://h/x;p#f", "q", "s://h/x;p?q#f"}, {"s://h/p?", "", "s://h/p"},
             {"s://h/p", "", "s://h/p"}}},
    {Fragment, {{"s://h/p#", "x", "s://h/p#x"}, {"s://h/p#a#b", "c", "s://h/p#c"},
                {"s://h/p#a", "", "s://h/p"}}},
    {Host, {{"s://h/p", "k", "s://k/p"}, {"s:/p", "h", "s://h/p"}, {"s://u@/p", "h", "s://u@h/p"},
            {"s:path", "h", "s://h/path"}, {"s://h/p", "", "s:/p"}, {"s://h:80/p", "", "s://:80/p"},
            {"s://u@h/p", "", "s://u@/p"}, {"s:///p", "", "s:/p"}}},
    {Service, {{"s://h/p", "80", "s://h:80/p"}, {"s:/p", "80", "s://:80/p"},
               {"s://h:80/p", "", "s://h/p"}, {"s://h:/p", "81", "s://h:81/p"},
               {"s:///p", "", "s:/p"}}},
    {Domain, {{"s://h/p", "d", "s://d;@h/p"}, {"s://u@h/p", "d", "s://d;u@h/p"},
              {"s://;u@h/p", "d", "s://d;u@h/p"}, {"s:/p", "d", "s://d;@/p"},
              {"s://d;u@h/p", "", "s://u@h/p"}, {"s:///p", "", "s:/p"}}},
    // In "s://:80" the ":" after the empty userinfo is taken for a password's:
    // no "@" is added, and the user becomes the host.
    {User, {{"s://h/p", "u", "s://u@h/p"}, {"s://d;@h/p", "u", "s://d;u@h/p"},
            {"s://:pw@h/p", "u", "s://u:pw@h/p"}, {"s://u@h/p", "", "s://h/p"},
            {"s://u:sec@h/p", "", "s://:sec@h/p"}, {"s://d;u@h/p", "", "s://d;@h/p"},
            {"s://:80", "v", "s://v:80"}, {"s:///p", "", "s:/p"}}},
    {Password, {{"s://u@h/p", "sec", "s://u:sec@h/p"}, {"s://h/p", "sec", "s://:sec@h/p"},
                {"s://u:sec@h/p", "", "s://u@h/p"}, {"s://:sec@h/p", "", "s://@h/p"},
                {"s:///p", "", "s:/p"}}},
};

// The same, the value encoded first.
const std::pair<Which, std::array<std::string, 3>> kEncodedRows[] = {
    {Scheme, {"a:b", "x y", "x%20y:b"}}, {Authority, {"s://h/p", "a/b", "s://a%2fb/p"}},
    {Path, {"s://h", "a b//c", "s://h/a%20b/%2fc"}}, {Path, {"s://h?q", "a b", "s://h/a%20b?q"}},
    {Params, {"s://h/p", "a;b", "s://h/p;a%3bb"}},
    {Query, {"s://h/p", "a=1&b", "s://h/p?a%3d1%26b"}},
    {Fragment, {"s://h/p", "a b#", "s://h/p#a%20b%23"}},
    {User, {"s://h/p", "a b@c", "s://a%20b%40c@h/p"}}};

TEST(UrlSetTest, Tables) {
    for (const auto& [which, rows] : kRows)
        for (const auto& [url, value, expected] : rows)
            EXPECT_EQ(set(kComponents[which], url, value, false), expected);
    for (const auto& [which, row] : kEncodedRows)
        EXPECT_EQ(set(kComponents[which], row[0], row[1], true), row[2]);
}

TEST(UrlSetTest, MapForms) {
    using SetMap = std::string& (*)(std::string&, const KeyValues&, bool, char, char);
    using NewMap = std::string (*)(const std::string&, const KeyValues&, bool, char, char);
    const std::pair<SetMap, NewMap> forms[] = {
        {ktbase::url_set_params, ktbase::url_new_params},
        {ktbase::url_set_query, ktbase::url_new_query},
        {ktbase::url_set_fragment, ktbase::url_new_fragment}};
    const struct {
        Which which;
        std::string url;
        KeyValues map;
        bool encode;
        std::string set_result, new_result = "";  // "": the same as set_result
    } rows[] = {
        // In place, the params are encoded once more as a whole; in a copy not.
        {Params, "s://h/p", {{"a", "1"}, {"b", "2"}}, false, "s://h/p;a%3d1%26b%3d2",
         "s://h/p;a=1&b=2"},
        {Params, "s://h/p", {{"a", "x y"}}, true, "s://h/p;a%3dx%2520y", "s://h/p;a=x%20y"},
        {Params, "s://h/p;x?q", {}, false, "s://h/p?q"},
        {Query, "s://h/p#f", {{"a", "1"}, {"b", "x y"}}, true, "s://h/p?a=1&b=x%20y#f"},
        {Query, "s://h/p?a=1#f", {{"", ""}}, false, "s://h/p#f"},
        {Query, "s://h/p", {{"", "x"}, {"k", ""}}, false, "s://h/p?=x&k"},
        {Fragment, "s://h/p", {{"t", "10"}}, false, "s://h/p#t=10"},
        {Fragment, "s://h/p#x", {{"a/b", "c"}}, true, "s://h/p#a%2fb=c"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE("url \"" + row.url + "\"");
        const auto& [set_map, new_map] = forms[row.which - Params];
        std::string changed = row.url;
        EXPECT_EQ(&set_map(changed, row.map, row.encode, '&', '='), &changed);
        EXPECT_EQ(changed, row.set_result);
        EXPECT_EQ(new_map(row.url, row.map, row.encode, '&', '='),
                  row.new_result.empty() ? row.set_result : row.new_result);
    }
    std::string url = "s://h/p";
    EXPECT_EQ(ktbase::url_set_query(url, {{"a", "1"}, {"b", "2"}}, false, ';', ':'),
              "s://h/p?a:1;b:2");
}

// The value is read before the URL changes, even when it is the URL itself.
TEST(UrlSetTest, ValueMayBeTheUrlItself) {
    std::string url = "s://h";
    EXPECT_EQ(ktbase::url_set_user(url, url, false), "s://s://h@h");
    url = "s:p";
    EXPECT_EQ(ktbase::url_set_scheme(url, url, true), "s%3ap:p");
}

// Random text over `alphabet`, up to `longest` bytes.
std::string random_text(std::mt19937& random, const std::string& alphabet, std::size_t longest) {
    std::uniform_int_distribution<std::size_t> pick(0, alphabet.size() - 1), length(0, longest);
    std::string text;
    for (std::size_t n = length(random); n > 0; --n) text += alphabet[pick(random)];
    return text;
}

// A URL with every component present and free of delimiters.
std::string random_full_url(std::mt19937& random) {
    const std::string plain = "abcXYZ019-._~%20!=&+";
    const auto part = [&] { return "x" + random_text(random, plain, 6); };
    return part() + "://" + part() + ";" + part() + ":" + part() + "@" + part() + ":" + part() +
           "/" + part() + "/" + part() + ";" + part() + "?" + part() + "#" + part();
}

// Setting a component to what its getter returns, or to "" and back, gives
// the URL back unchanged.
TEST(UrlSetTest, FullUrlsSurviveSettingTheirOwnComponents) {
    std::mt19937 random(11);
    for (int i = 0; i < 200; ++i) {
        const std::string url = random_full_url(random);
        for (const Component& component : kComponents) {
            SCOPED_TRACE(std::string(component.name) + " of \"" + url + "\"");
            const std::string value = component.get(url, false);
            EXPECT_EQ(set(component, url, value, false), url);
            EXPECT_EQ(set(component, set(component, url, "", false), value, false), url);
        }
    }
}

// After url_set_X(url, v, false) with a value free of delimiters, the getter
// returns v: on URLs of every shape the splitting knows, but for the user of
// "s://:80" (see Tables).
TEST(UrlSetTest, GetterReturnsTheValueSet) {
    const std::string urls[] = {
        "", "s:", "s:/p", "s:p", "/p", "p", "//h", "s://h", "s://h/p", "s:///p", "s://u@/p",
        "s://@h", "s://h:80", "s://d;@h", "s://u:pw@h:1/p;x?q#f",
        "s://d;u:pw@h:1/p;x?q#f", "s://h?q", "s://h;x", "s://h#f", "s:#f", "s:/p?q", "p#f",
    };
    for (const std::string& url : urls) {
        for (const Component& component : kComponents) {
            const std::string value = &component == &kComponents[Path] ? "/v" : "v";
            SCOPED_TRACE(std::string(component.name) + " of \"" + url + "\"");
            EXPECT_EQ(component.get(set(component, url, value, false), false), value);
        }
    }
}

// Every position comes from a scan of the same string: no edit may fall
// outside it, whatever the URL and the value.
TEST(UrlSetTest, RandomUrlsAndValuesStayInRange) {
    const std::string alphabet = ":/@;?#%a";
    std::mt19937 random(5);
    for (int i = 0; i < 2000; ++i) {
        const std::string url = random_text(random, alphabet, 16);
        const std::string value = random_text(random, alphabet, 4);
        const KeyValues map = {{random_text(random, alphabet, 3), value}};
        const bool encode = i % 2 == 0;
        for (const Component& component : kComponents) {
            EXPECT_NO_THROW(set(component, url, value, encode));
            EXPECT_NO_THROW(set(component, url, "", encode));
        }
        std::string changed = url;
        EXPECT_NO_THROW(ktbase::url_set_params(changed, map, encode, '&', '='));
        EXPECT_NO_THROW(ktbase::url_new_query(url, map, encode, '&', '='));
        EXPECT_EQ(ktbase::url_new_fragment(url, map, encode, '&', '='),
                  ktbase::url_set_fragment(changed = url, map, encode, '&', '='));
    }
}

}  // namespace
