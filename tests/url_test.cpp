// The URL toolkit and the URI descriptor: case by case from
// data/url_cases.txt (the file's head describes its format), then what a
// table cannot hold: allocation failures and the failure of a lookup.
#include "kt/url.h"

#include "allocation_faults.h"
#include "kt/KTSocket.h"
#include "kt/KTURI.h"
#include "support.h"
#include "url_internal.h"

namespace {

using namespace kttest::sites;
using kttest::Case;
using kttest::Results;
using KeyValues = std::map<std::string, std::string>;

// Every text form of a component: its getter, url_set_ and url_new_.
struct Component {
    const char* name;
    std::string (*get)(const std::string&, bool);
    std::string& (*set)(std::string&, const std::string&, bool);
    std::string (*make)(const std::string&, const std::string&, bool);
};
#define KT_COMPONENT(x) \
    { #x, ktbase::url_##x, ktbase::url_set_##x, ktbase::url_new_##x }
const Component kComponents[] = {  // the order of the "parts" and "userinfo" cases
    KT_COMPONENT(scheme),   KT_COMPONENT(authority), KT_COMPONENT(path),   KT_COMPONENT(params),
    KT_COMPONENT(query),    KT_COMPONENT(fragment),  KT_COMPONENT(domain), KT_COMPONENT(user),
    KT_COMPONENT(password), KT_COMPONENT(host),      KT_COMPONENT(service)};
#undef KT_COMPONENT
constexpr std::size_t kUserinfo = 6, kPath = 2;

const Component& named(const std::string& name) {
    return *std::find_if(std::begin(kComponents), std::end(kComponents),
                         [&](const Component& c) { return name == c.name; });
}

bool flag(const std::string& field) { return field == "1"; }

// The raw results of the getters from kComponents[first] to [last); each
// decoded result must be the decoding of the raw one. A fragment of any
// length changes no other component: with `again`, the URL with 300 more
// bytes of fragment, longer than the delimiter masks hold, must give the same.
Results parts(const std::string& url, std::size_t first, std::size_t last, bool again = true) {
    Results raw;
    for (std::size_t i = first; i < last; ++i) {
        raw.push_back(kComponents[i].get(url, false));
        EXPECT_EQ(kComponents[i].get(url, true), ktbase::url_decode(raw.back()))
            << kComponents[i].name;
    }
    if (again) {
        const std::string more(300, 'f');
        Results expected = raw;
        constexpr std::size_t kFragment = 5;
        if (first <= kFragment && kFragment < last) expected[kFragment - first] += more;
        const std::string longer = url + (url.find('#') == std::string::npos ? "#" : "") + more;
        EXPECT_EQ(parts(longer, first, last, false), expected) << "with a long fragment";
    }
    return raw;
}

// A map as its keys and values in turn, and back from fields[first] on.
Results fieldsOf(const KeyValues& map) {
    Results fields;
    for (const auto& [key, value] : map) fields.insert(fields.end(), {key, value});
    return fields;
}

KeyValues mapOf(const Results& fields, std::size_t first) {
    KeyValues map;
    for (std::size_t i = first; i + 1 < fields.size(); i += 2) map[fields[i]] = fields[i + 1];
    return map;
}

// What url_set_ made of `url`, after checking that it changed its argument
// in place and returned it, and that url_new_ gives the same.
std::string set(const Component& c, const std::string& url, const std::string& value, bool encode) {
    std::string changed = url;
    EXPECT_EQ(&c.set(changed, value, encode), &changed);
    EXPECT_EQ(c.make(url, value, encode), changed);
    return changed;
}

// "keeps": every component of the URL set to its own value, or to "" and
// back, leaves it as it was; "takes": set to "v" ("/v" the path), reads so.
Results roundTrips(const Case& row) {
    const std::string& url = row[0];
    for (const Component& c : kComponents) {
        SCOPED_TRACE(c.name);
        const std::string own = c.get(url, false), taken = &c == &kComponents[kPath] ? "/v" : "v";
        if (row.operation == "keeps") {
            EXPECT_EQ(set(c, url, own, false), url);
            EXPECT_EQ(set(c, set(c, url, "", false), own, false), url);
        } else {
            EXPECT_EQ(c.get(set(c, url, taken, false), false), taken);
        }
    }
    return {};
}

using Fill = void (*)(KeyValues&, const std::string&, bool, char, char);
using Make = KeyValues (*)(const std::string&, bool, char, char);
const std::tuple<const char*, Fill, Make> kMapGetters[] = {
    {"?", ktbase::url_query_kvmap, ktbase::url_query_kvmap},
    {";", ktbase::url_params_kvmap, ktbase::url_params_kvmap},
    {"#", ktbase::url_fragment_kvmap, ktbase::url_fragment_kvmap}};
using MapSet = std::string& (*)(std::string&, const KeyValues&, bool, char, char);
using MapNew = std::string (*)(const std::string&, const KeyValues&, bool, char, char);
const std::map<std::string, std::pair<MapSet, MapNew>> kMapSetters = {
    {"params", {ktbase::url_set_params, ktbase::url_new_params}},
    {"query", {ktbase::url_set_query, ktbase::url_new_query}},
    {"fragment", {ktbase::url_set_fragment, ktbase::url_new_fragment}}};

// A descriptor's scheme, port and texts.
Results fields(const KT::RURI& uri) {
    Results fields = kttest::results(uri.scheme, uri.port);
    for (const KT::CString* part : {&uri.user, &uri.password, &uri.host, &uri.path}) {
        fields.push_back(part->c_str());
        // Absent parts are stored as "", never left without memory.
        EXPECT_EQ(part->length, int(std::strlen(part->c_str())) + 1);
    }
    return fields;
}

TEST(UrlTest, Cases) {
    kttest::runCases(
        "url_cases.txt",
        {{"encode", [](const Case& c) { return Results{ktbase::url_encode(c[0], flag(c[1]))}; }},
         {"decode", [](const Case& c) { return Results{ktbase::url_decode(c[0])}; }},
         {"parts", [](const Case& c) { return parts(c[0], 0, kUserinfo); }},
         {"userinfo", [](const Case& c) { return parts(c[0], kUserinfo, std::size(kComponents)); }},
         {"kvmap",
          [](const Case& c) {
              for (const auto& [start, fill, make] : kMapGetters) {
                  const std::string url = "s://h/p" + (start + c[0]);
                  KeyValues filled = {{"a", "0"}}, expected = mapOf(c.results, 0);
                  fill(filled, url, flag(c[1]), c[2][0], c[3][0]);
                  expected.emplace("a", "0");
                  EXPECT_EQ(filled, expected) << url;
                  EXPECT_EQ(fieldsOf(make(url, flag(c[1]), c[2][0], c[3][0])), c.results) << url;
              }
              return c.results;
          }},
         {"kvmany",
          [](const Case& c) {
              std::string pairs = c[0];
              while (pairs.size() < (std::size_t(8) << 20)) pairs += pairs;
              return fieldsOf(ktbase::url_query_kvmap("?" + pairs, false, '&', '='));
          }},
         {"join",
          [](const Case& c) {
              std::string out = c[0];
              ktbase::url_detail::kvmap_join(out, mapOf(c.arguments, 4), flag(c[1]), c[2][0],
                                             c[3][0]);
              return Results{out};
          }},
         {"set",
          [](const Case& c) {
              // A value that is the URL itself is read before the URL changes.
              std::string url = c[1];
              if (c[2] == url) return Results{named(c[0]).set(url, url, flag(c[3]))};
              return Results{set(named(c[0]), url, c[2], flag(c[3]))};
          }},
         {"setmap",
          [](const Case& c) {
              const auto& [set_map, new_map] = kMapSetters.at(c[0]);
              const KeyValues map = mapOf(c.arguments, 5);
              std::string changed = c[1];
              EXPECT_EQ(&set_map(changed, map, flag(c[2]), c[3][0], c[4][0]), &changed);
              return Results{new_map(c[1], map, flag(c[2]), c[3][0], c[4][0]), changed};
          }},
         {"keeps", roundTrips},
         {"takes", roundTrips},
         {"uri",
          [](const Case& c) {
              // Parsed again, a descriptor takes every field anew but keeps its text.
              const KT::CString text(c[0].c_str());
              KT::RURI uri{text}, again{KT::CString("rtsp://x:y@z:1/w")};
              EXPECT_EQ(again.parseURI(text), 0);
              EXPECT_STREQ(uri.uri.c_str(), c[0].c_str());
              EXPECT_STREQ(again.uri.c_str(), "rtsp://x:y@z:1/w");
              EXPECT_EQ(fields(again), fields(uri));
              return fields(uri);
          }},
         {"socket", [](const Case& c) {
              const int open = kttest::openDescriptors();
              ktbase::ref<KT::RSocket> socket = KT::RURI(KT::CString(c[0].c_str())).getSocket();
              if (!socket) return Results{"none"};
              EXPECT_EQ(socket->refcount(), 1);
              EXPECT_EQ(socket->socketType, SOCK_STREAM);
              EXPECT_EQ(socket->flags, KT::RSocket::CloseOnExec);
              const std::string peer =
                  socket->getRemoteAddress() + (":" + std::to_string(socket->getRemotePort()));
              socket.reset();  // the only reference: the socket closes
              EXPECT_EQ(kttest::openDescriptors(), open);
              return Results{peer};
          }}});
}

// A thread's getters share the split of its last short URL: another text of
// the same length, or the same string changed in place, is split anew.
TEST(UrlTest, EveryTextIsSplitAnew) {
    const Results kUrls[] = {{"s://a.b:1/c;d?e", "a.b", "", "1", "/c", "d", "e"},
                             {"s://a@b:1/c;d?e", "b", "a", "1", "/c", "d", "e"},
                             {"s://a.b:1/c?d;e", "a.b", "", "1", "/c", "", "d;e"},
                             {"s:/a.b:1/c;d?e#", "", "", "", "/a.b:1/c", "d", "e"}};
    const auto read = [](const std::string& url) {
        return Results{url, ktbase::url_host(url, false), ktbase::url_user(url, false),
                       ktbase::url_service(url, false), ktbase::url_path(url, false),
                       ktbase::url_params(url, false), ktbase::url_query(url, false)};
    };
    for (int round = 0; round < 2; ++round)
        for (const Results& expected : kUrls) EXPECT_EQ(read(expected[0]), expected);
    std::string url = kUrls[0][0];
    EXPECT_EQ(read(url), kUrls[0]);
    for (const Results& expected : kUrls) {
        url.replace(0, url.size(), expected[0]);
        EXPECT_EQ(read(url), expected);
    }
}

class RURITest : public kttest::NoLeakTest {};

// Without any text, nothing is parsed: the defaults stay, or the fields,
// and there is nothing to connect to.
TEST(RURIParseTest, NoTextParsesNothing) {
    KT::RURI again{KT::CString("http://h/")};
    EXPECT_EQ(again.parseURI(KT::CString()), -1);
    EXPECT_EQ(fields(again), (Results{"3", "80", "", "", "h", "/"}));
    for (const KT::RURI& uri : {KT::RURI(), KT::RURI(KT::CString())}) {
        EXPECT_EQ(uri.scheme, -1);
        EXPECT_EQ(uri.port, 0);
        EXPECT_TRUE(uri.host.data == nullptr && uri.uri.data == nullptr);
        EXPECT_FALSE(uri.getSocket());
    }
}

// Every string the descriptor keeps is an allocation of its own.
TEST(RURIParseTest, AllocationFailuresAreThrownAndLeakNothing) {
    const KT::CString text("rtsp://u:p@h:1/x"), other("http://a:b@other/y");
    const KT::RURI parsed(text);
    const unsigned copied = kttest::kBufferInitSite.line;
    kttest::expectFailures({
        {"parse", [&] { KT::RURI uri(text); }, std::vector<unsigned>(5, copied)},
        {"copy", [&] { KT::RURI copy(parsed); }, std::vector<unsigned>(5, copied)},
        // Over strings that hold memory: each keeps its own when its copy fails.
        {"assignment",
         [&] {
             KT::RURI assigned(other);
             assigned = parsed;
         },
         std::vector<unsigned>(10, copied)},
    });
}

TEST_F(RURITest, GetSocketPassesTheLookupFailureOn) {
    kttest::expectThrow<KT::CNetworkException>(
        [] { KT::RURI(KT::CString("http://unknown/")).getSocket(); },
        {"CNetworkException", kResolveLine, kSocketFile, kHostConstructor,
         "No such host is known."});
}

}  // namespace
