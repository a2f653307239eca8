// The URL toolkit and the URI descriptor: case by case from
// data/url_cases.txt (the file's head describes its format), then what a
// table cannot hold: allocation failures and the failure of a lookup.
#include "kt/url.h"

#include <sstream>

#include "allocation_faults.h"
#include "kt/KTSocket.h"
#include "kt/KTURI.h"
#include "support.h"
#include "url_internal.h"

namespace {

using namespace kttest::sites;
using KeyValues = std::map<std::string, std::string>;
using Words = std::vector<std::string>;

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

// The raw results of the getters from kComponents[first] to [last), "|"
// between them; each decoded result must be the decoding of the raw one.
std::string parts(const std::string& url, std::size_t first, std::size_t last) {
    std::string joined;
    for (std::size_t i = first; i < last; ++i) {
        const std::string raw = kComponents[i].get(url, false);
        EXPECT_EQ(kComponents[i].get(url, true), ktbase::url_decode(raw)) << kComponents[i].name;
        joined += (i == first ? "" : "|") + raw;
    }
    return joined;
}

std::string mapText(const KeyValues& map) {
    std::string text;
    for (const auto& [key, value] : map) text += "{" + key + "}{" + value + "}";
    return text;
}

KeyValues mapOf(const std::string& text) {
    KeyValues map;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t key_end = text.find('}', at), value_end = text.find('}', key_end + 1);
        map[text.substr(at + 1, key_end - at - 1)] =
            text.substr(key_end + 2, value_end - key_end - 2);
        at = value_end + 1;
    }
    return map;
}

// What url_set_ made of `url`, after checking that it changed its argument
// in place and returned it, and that url_new_ gives the same without
// touching its own argument.
std::string set(const Component& c, const std::string& url, const std::string& value, bool encode) {
    SCOPED_TRACE(std::string(c.name) + " of \"" + url + "\" set to \"" + value + "\"");
    const std::string original = url;
    std::string changed = url;
    EXPECT_EQ(&c.set(changed, value, encode), &changed);
    EXPECT_EQ(c.make(url, value, encode), changed);
    EXPECT_EQ(url, original);
    return changed;
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

// A descriptor's scheme, port and texts, "|" between them.
std::string fields(const KT::RURI& uri) {
    std::string text = std::to_string(uri.scheme) + "|" + std::to_string(uri.port);
    for (const KT::CString* part : {&uri.user, &uri.password, &uri.host, &uri.path}) {
        text += "|" + std::string(part->c_str());
        // Absent parts are stored as "", never left without memory.
        EXPECT_EQ(part->length, int(std::strlen(part->c_str())) + 1);
    }
    return text;
}

// Runs a case; returns its result, which the caller compares with the last word.
std::string run(const Words& w) {
    const auto flag = [&](std::size_t i) { return w[i] == "1"; };
    const auto& kind = w[0];
    if (kind == "encode") return ktbase::url_encode(w[1], flag(2));
    if (kind == "decode") return ktbase::url_decode(w[1]);
    if (kind == "parts") return parts(w[1], 0, kUserinfo);
    if (kind == "userinfo") return parts(w[1], kUserinfo, std::size(kComponents));
    if (kind == "kvmap") {
        for (const auto& [start, fill, make] : kMapGetters) {
            const std::string url = "s://h/p" + (start + w[1]);
            KeyValues filled = {{"a", "0"}}, expected = mapOf(w.back());
            fill(filled, url, flag(2), w[3][0], w[4][0]);
            expected.emplace("a", "0");
            EXPECT_EQ(mapText(filled), mapText(expected)) << url;
            EXPECT_EQ(mapText(make(url, flag(2), w[3][0], w[4][0])), w.back()) << url;
        }
        return w.back();
    }
    if (kind == "kvmany") {
        std::string pairs = w[1];
        while (pairs.size() < (std::size_t(8) << 20)) pairs += pairs;
        return mapText(ktbase::url_query_kvmap("?" + pairs, false, '&', '='));
    }
    if (kind == "join") {
        std::string out = w[1];
        ktbase::url_detail::kvmap_join(out, mapOf(w[2]), flag(3), w[4][0], w[5][0]);
        return out;
    }
    if (kind == "set") return set(named(w[1]), w[2], w[3], flag(4));
    if (kind == "self") {
        std::string url = w[2];
        return named(w[1]).set(url, url, flag(3));
    }
    if (kind == "setmap") {
        const auto& [set_map, new_map] = kMapSetters.at(w[1]);
        std::string changed = w[2];
        EXPECT_EQ(&set_map(changed, mapOf(w[3]), flag(4), w[5][0], w[6][0]), &changed);
        EXPECT_EQ(new_map(w[2], mapOf(w[3]), flag(4), w[5][0], w[6][0]), w[7]);
        return changed;
    }
    if (kind == "uri") {
        // Parsed again, a descriptor takes every field anew but keeps its text.
        KT::RURI uri{KT::CString(w[1].c_str())}, again{KT::CString("rtsp://x:y@z:1/w")};
        EXPECT_EQ(again.parseURI(KT::CString(w[1].c_str())), 0);
        EXPECT_STREQ(uri.uri.c_str(), w[1].c_str());
        EXPECT_STREQ(again.uri.c_str(), "rtsp://x:y@z:1/w");
        EXPECT_EQ(fields(again), fields(uri));
        return fields(uri);
    }
    if (kind == "socket") {
        const int open = kttest::openDescriptors();
        ktbase::ref<KT::RSocket> socket = KT::RURI(KT::CString(w[1].c_str())).getSocket();
        if (!socket) return "none";
        EXPECT_EQ(socket->refcount(), 1);
        EXPECT_EQ(socket->socketType, SOCK_STREAM);
        EXPECT_EQ(socket->flags, KT::RSocket::CloseOnExec);
        const std::string peer =
            socket->getRemoteAddress() + (":" + std::to_string(socket->getRemotePort()));
        socket.reset();  // the only reference: the socket closes
        EXPECT_EQ(kttest::openDescriptors(), open);
        return peer;
    }
    for (const Component& c : kComponents) {  // "keeps" and "takes"
        SCOPED_TRACE(c.name);
        const std::string own = c.get(w[1], false), taken = &c == &kComponents[kPath] ? "/v" : "v";
        if (kind == "keeps") {
            EXPECT_EQ(set(c, w[1], own, false), w[1]);
            EXPECT_EQ(set(c, set(c, w[1], "", false), own, false), w[1]);
        } else {
            EXPECT_EQ(c.get(set(c, w[1], taken, false), false), taken);
        }
    }
    return w.back();
}

// A word of the data file: "\s" a blank, "\xNN" the byte NN, "\\" a
// backslash, and "" alone the empty text.
std::string unescape(const std::string& word) {
    std::string text;
    for (std::size_t i = 0; word != "\"\"" && i < word.size(); ++i) {
        if (word[i] != '\\')
            text += word[i];
        else if (word[++i] == 's')
            text += ' ';
        else if (word[i] == 'x')
            text += char(std::stoi(word.substr(i + 1, 2), nullptr, 16)), i += 2;
        else
            text += word[i];
    }
    return text;
}

TEST(UrlTest, Cases) {
    std::ifstream file(KT_TEST_DATA_DIR "/url_cases.txt");
    std::string line;
    int count = 0;
    for (int number = 1; std::getline(file, line); ++number) {
        if (line.empty() || line[0] == '#') continue;
        SCOPED_TRACE("url_cases.txt:" + std::to_string(number));
        Words words;
        std::istringstream in(line);
        for (std::string word; in >> word;) words.push_back(unescape(word));
        EXPECT_EQ(run(words), words.back());
        ++count;
    }
    EXPECT_GT(count, 200);  // the file was found and read
}

// Every position a setter uses comes from a scan of the string it changes:
// no edit may fall outside it, whatever the URL and the value.
TEST(UrlTest, RandomUrlsAndValuesStayInRange) {
    std::mt19937 random(5);
    const auto text = [&](std::size_t longest) {
        std::string t;
        for (std::size_t n = random() % (longest + 1); n > 0; --n) t += ":/@;?#%a"[random() % 8];
        return t;
    };
    for (int i = 0; i < 2000; ++i) {
        const std::string url = text(16), value = text(4);
        // (The map forms place their text through the same code as these.)
        for (const Component& c : kComponents)
            for (const std::string& v : {value, std::string()})
                EXPECT_NO_THROW(set(c, url, v, i % 2 == 0));
    }
}

class RURITest : public kttest::NoLeakTest {};

// Without any text, nothing is parsed: the defaults stay, or the fields,
// and there is nothing to connect to.
TEST(RURIParseTest, NoTextParsesNothing) {
    KT::RURI again{KT::CString("http://h/")};
    EXPECT_EQ(again.parseURI(KT::CString()), -1);
    EXPECT_EQ(fields(again), "3|80|||h|/");
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
