#include "kt/url.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <stdexcept>
#include <string>

namespace {

using KeyValues = std::map<std::string, std::string>;

// Every text form of a component: its getter, url_set_ and url_new_.
struct Component {
    const char* name;
    std::string (*get)(const std::string&, bool);
    std::string& (*set)(std::string&, const std::string&, bool);
    std::string (*make)(const std::string&, const std::string&, bool);
};

// Indices into kComponents.
enum Which {
    Scheme, Authority, Path, Params, Query, Fragment, Host, Service, Domain, User, Password
};

const Component kComponents[] = {
    {"scheme", ktbase::url_scheme, ktbase::url_set_scheme, ktbase::url_new_scheme},
    {"authority", ktbase::url_authority, ktbase::url_set_authority, ktbase::url_new_authority},
    {"path", ktbase::url_path, ktbase::url_set_path, ktbase::url_new_path},
    {"params", ktbase::url_params, ktbase::url_set_params, ktbase::url_new_params},
    {"query", ktbase::url_query, ktbase::url_set_query, ktbase::url_new_query},
    {"fragment", ktbase::url_fragment, ktbase::url_set_fragment, ktbase::url_new_fragment},
    {"host", ktbase::url_host, ktbase::url_set_host, ktbase::url_new_host},
    {"service", ktbase::url_service, ktbase::url_set_service, ktbase::url_new_service},
    {"domain", ktbase::url_domain, ktbase::url_set_domain, ktbase::url_new_domain},
    {"user", ktbase::url_user, ktbase::url_set_user, ktbase::url_new_user},
    {"password", ktbase::url_password, ktbase::url_set_password, ktbase::url_new_password},
};

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

struct Row {
    Which which;
    std::string url, value;
    bool encode;
    std::string expected;
};

const Row kTopLevelRows[] = {
    {Scheme, "s://h", "", false, "//h"},
    {Scheme, "h/x", "s", false, "s:h/x"},
    {Scheme, "//h/p", "http", false, "http://h/p"},
    {Scheme, "s://h", "ftp", false, "ftp://h"},
    {Scheme, ":x", "s", false, "s:x"},
    {Scheme, ":x", "", false, "x"},
    {Scheme, "h/x", "", false, "h/x"},
    {Scheme, "#a:b", "s", false, "s:#a:b"},
    {Scheme, "a:b", "x y", true, "x%20y:b"},
    {Authority, "s:path", "host", false, "s://host/path"},
    {Authority, "/p", "host", false, "//host/p"},
    {Authority, "", "host", false, "//host"},
    {Authority, "s:///p", "host", false, "s://host/p"},
    {Authority, "s:?q", "h", false, "s://h?q"},
    {Authority, "s://h/p", "u@k:1", false, "s://u@k:1/p"},
    {Authority, "s://h/p", "a/b", true, "s://a%2fb/p"},
    {Authority, "s://h/p", "", false, "s:/p"},
    {Authority, "s:///p", "", false, "s:/p"},
    {Authority, "s:/p", "", false, "s:/p"},
    {Path, "s://h", "a b//c", true, "s://h/a%20b/%2fc"},
    {Path, "s://host", "x", false, "s://host/x"},
    {Path, "s:x", "y", false, "s:y"},
    {Path, "", "y", false, "y"},
    {Path, "s://h/p", "/a/b", false, "s://h/a/b"},
    {Path, "s://h/p?q", "", false, "s://h?q"},
    {Path, "s://h?q", "a b", true, "s://h/a%20b?q"},
    {Params, "s://h/x?q", "a=1", false, "s://h/x;a=1?q"},
    {Params, "s://h/p;", "x", false, "s://h/p;x"},
    {Params, "s://h/p;", "", false, "s://h/p"},
    {Params, "s://h/p;a?q", "", false, "s://h/p?q"},
    {Params, "s://h/p", "a;b", true, "s://h/p;a%3bb"},
    {Query, "s://h/p#f", "a=1", false, "s://h/p?a=1#f"},
    {Query, "s://h/p?a=1#f", "", false, "s://h/p#f"},
    {Query, "s://h/x;p#f", "q", false, "s://h/x;p?q#f"},
    {Query, "s://h/p?", "", false, "s://h/p"},
    {Query, "s://h/p", "", false, "s://h/p"},
    {Query, "s://h/p", "a=1&b", true, "s://h/p?a%3d1%26b"},
    {Fragment, "s://h/p#", "x", false, "s://h/p#x"},
    {Fragment, "s://h/p#a#b", "c", false, "s://h/p#c"},
    {Fragment, "s://h/p#a", "", false, "s://h/p"},
    {Fragment, "s://h/p", "a b#", true, "s://h/p#a%20b%23"},
};

const Row kAuthorityRows[] = {
    {Host, "s://h/p", "k", false, "s://k/p"},
    {Host, "s:/p", "h", false, "s://h/p"},
    {Host, "s://u@/p", "h", false, "s://u@h/p"},
    {Host, "s:path", "h", false, "s://h/path"},
    {Host, "s://h/p", "", false, "s:/p"},
    {Host, "s://h:80/p", "", false, "s://:80/p"},
    {Host, "s://u@h/p", "", false, "s://u@/p"},
    {Service, "s://h/p", "80", false, "s://h:80/p"},
    {Service, "s:/p", "80", false, "s://:80/p"},
    {Service, "s://h:80/p", "", false, "s://h/p"},
    {Service, "s://h:/p", "81", false, "s://h:81/p"},
    {Domain, "s://h/p", "d", false, "s://d;@h/p"},
    {Domain, "s://u@h/p", "d", false, "s://d;u@h/p"},
    {Domain, "s://;u@h/p", "d", false, "s://d;u@h/p"},
    {Domain, "s:/p", "d", false, "s://d;@/p"},
    {Domain, "s://d;u@h/p", "", false, "s://u@h/p"},
    {User, "s://h/p", "u", false, "s://u@h/p"},
    {User, "s://d;@h/p", "u", false, "s://d;u@h/p"},
    {User, "s://:pw@h/p", "u", false, "s://u:pw@h/p"},
    {User, "s://u@h/p", "", false, "s://h/p"},
    {User, "s://u:sec@h/p", "", false, "s://:sec@h/p"},
    {User, "s://d;u@h/p", "", false, "s://d;@h/p"},
    {User, "s://h/p", "a b@c", true, "s://a%20b%40c@h/p"},
    // A ":" after the empty userinfo is taken for a password's: no "@" is
    // added, and the user becomes the host.
    {User, "s://:80", "v", false, "s://v:80"},
    {Password, "s://u@h/p", "sec", false, "s://u:sec@h/p"},
    {Password, "s://h/p", "sec", false, "s://:sec@h/p"},
    {Password, "s://u:sec@h/p", "", false, "s://u@h/p"},
    {Password, "s://:sec@h/p", "", false, "s://@h/p"},
    {Host, "s:///p", "", false, "s:/p"},
    {Service, "s:///p", "", false, "s:/p"},
    {Domain, "s:///p", "", false, "s:/p"},
    {User, "s:///p", "", false, "s:/p"},
    {Password, "s:///p", "", false, "s:/p"},
};

TEST(UrlSetTest, TopLevelTable) {
    for (const Row& row : kTopLevelRows)
        EXPECT_EQ(set(kComponents[row.which], row.url, row.value, row.encode), row.expected);
}

TEST(UrlSetTest, AuthorityTable) {
    for (const Row& row : kAuthorityRows)
        EXPECT_EQ(set(kComponents[row.which], row.url, row.value, row.encode), row.expected);
}

TEST(UrlSetTest, MapForms) {
    using SetMap = std::string& (*)(std::string&, const KeyValues&, bool, char, char);
    using NewMap = std::string (*)(const std::string&, const KeyValues&, bool, char, char);
    const struct {
        SetMap set;
        NewMap make;
        std::string url;
        KeyValues map;
        bool encode;
        std::string set_result, new_result;
    } rows[] = {
        // In place, the params are encoded once more as a whole; in a copy not.
        {ktbase::url_set_params, ktbase::url_new_params, "s://h/p", {{"a", "1"}, {"b", "2"}},
         false, "s://h/p;a%3d1%26b%3d2", "s://h/p;a=1&b=2"},
        {ktbase::url_set_params, ktbase::url_new_params, "s://h/p", {{"a", "x y"}}, true,
         "s://h/p;a%3dx%2520y", "s://h/p;a=x%20y"},
        {ktbase::url_set_params, ktbase::url_new_params, "s://h/p;x?q", {}, false, "s://h/p?q",
         "s://h/p?q"},
        {ktbase::url_set_query, ktbase::url_new_query, "s://h/p#f", {{"a", "1"}, {"b", "x y"}},
         true, "s://h/p?a=1&b=x%20y#f", "s://h/p?a=1&b=x%20y#f"},
        {ktbase::url_set_query, ktbase::url_new_query, "s://h/p?a=1#f", {{"", ""}}, false,
         "s://h/p#f", "s://h/p#f"},
        {ktbase::url_set_query, ktbase::url_new_query, "s://h/p", {{"", "x"}, {"k", ""}}, false,
         "s://h/p?=x&k", "s://h/p?=x&k"},
        {ktbase::url_set_fragment, ktbase::url_new_fragment, "s://h/p", {{"t", "10"}}, false,
         "s://h/p#t=10", "s://h/p#t=10"},
        {ktbase::url_set_fragment, ktbase::url_new_fragment, "s://h/p#x", {{"a/b", "c"}}, true,
         "s://h/p#a%2fb=c", "s://h/p#a%2fb=c"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE("url \"" + row.url + "\"");
        std::string changed = row.url;
        EXPECT_EQ(&row.set(changed, row.map, row.encode, '&', '='), &changed);
        EXPECT_EQ(changed, row.set_result);
        EXPECT_EQ(row.make(row.url, row.map, row.encode, '&', '='), row.new_result);
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
// "s://:80" (see AuthorityTable).
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
        const KeyValues map = {
            {random_text(random, alphabet, 3), random_text(random, alphabet, 3)}};
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
