// libkt's percent-coding and URL getters against the packaged peers (curl,
// Boost.URL, Poco, uriparser), on the same inputs, in one process. Each
// benchmark is named BM_<work>_<contender>[/<size>]; bench/table.py groups
// them by work and size.
//
// - PercentEncode, PercentDecode: a realistic 60-byte path, and a MiB of text
//   in which about 30% of the bytes must be escaped; decoding reads libkt's
//   encoding of the same text (valid escapes only, so every peer takes it).
//   Bytes processed count the input of each call.
// - UrlHost: parse one URL and get its host; one iteration is one URL, taken
//   in turn from a corpus of 100 realistic URLs.
// - UrlAll: one URL per iteration as well; libkt reads eight components
//   (scheme, user, password, host, service, path, query, fragment) through
//   its getters, each peer parses the URL in full and reads the same eight
//   components from the result, in its cheapest form (a view where it has
//   one, so the peers make no copies that libkt does not).
// - KtPlain: libkt on its plain kernels (no vector code), for the gain of the
//   vector ones; bench/table.py does not count it as a peer.
//
// The same work for everyone: a percent-coding call turns a const string
// into a new string (or a buffer allocated for it) holding the whole result,
// which is what libkt's url_encode() and url_decode() return; a peer that
// writes through a pointer or in place gets a new string of the room it
// needs, as a caller wanting a result string would give it. A URL getter
// reads a component from a parsed URL in the cheapest form the peer offers
// (a view where it has one), while libkt returns a new std::string; a peer's
// parser object or handle is made once and reused, as a caller would.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "kt/url.h"
#include "simd/kernels.h"
#include "url_corpus.h"

#ifdef KT_HAVE_CURL
#include <curl/curl.h>
#endif
#ifdef KT_HAVE_BOOST_URL
#include <boost/url/encode.hpp>
#include <boost/url/grammar/lut_chars.hpp>
#include <boost/url/parse.hpp>
#include <boost/url/pct_string_view.hpp>
#include <boost/url/url_view.hpp>
#endif
#ifdef KT_HAVE_POCO
#include <Poco/Exception.h>
#include <Poco/URI.h>
#endif
#ifdef KT_HAVE_URIPARSER
#include <uriparser/Uri.h>
#endif

namespace {

constexpr std::int64_t kPathSize = 60;
constexpr std::int64_t kTextSize = 1 << 20;

// A realistic path of 60 bytes: spaces, parentheses and a "~" to escape.
const char kPath[] = "/media/videos/2024/summer trip/clip 01 (final)/take~2.mp4.ts";
static_assert(sizeof(kPath) - 1 == kPathSize, "the path is 60 bytes");

// The raw text of a size row, and whether "/" is data (escaped, in the
// text) or the path's separator (kept, in the path).
struct Input {
    std::string text;
    bool escapeSlashes;
};

const Input& inputOf(std::int64_t size) {
    static const Input path{kPath, false};
    static const Input text{mixedText(kTextSize), true};
    return size == kPathSize ? path : text;
}

// libkt's encoding of a row's text: the input of every decoder.
const std::string& encodedOf(std::int64_t size) {
    static const std::string path = ktbase::url_encode(inputOf(kPathSize).text, false);
    static const std::string text = ktbase::url_encode(inputOf(kTextSize).text, true);
    return size == kPathSize ? path : text;
}

void sizes(benchmark::internal::Benchmark* benchmark) { benchmark->Arg(kPathSize)->Arg(kTextSize); }

void countBytes(benchmark::State& state, const std::string& input) {
    state.SetBytesProcessed(std::int64_t(state.iterations()) * std::int64_t(input.size()));
}

// Runs `step(input)`, which returns its result (owning it), once per
// iteration.
template <class Step>
void runCoding(benchmark::State& state, const std::string& input, Step step) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(input.data());
        auto result = step(input);
        benchmark::DoNotOptimize(result);
        benchmark::ClobberMemory();
    }
    countBytes(state, input);
}

// Runs `step(url)` on the URLs of the corpus in turn, one per iteration,
// each URL's text taken as unknown to the compiler.
// Before timing, `check(url)` must hold for every URL: a peer that does not
// parse one, or finds another host than libkt, would not be doing the same
// work.
template <class Step, class Check>
void runCorpus(benchmark::State& state, Step step, Check check) {
    const std::vector<std::string>& urls = corpus();
    for (const std::string& url : urls) {
        if (!check(url)) {
            state.SkipWithError(("does not read " + url + " as libkt does").c_str());
            return;
        }
    }
    std::size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(urls[i].data());
        step(urls[i]);
        i = i + 1 == urls.size() ? 0 : i + 1;
    }
    state.SetItemsProcessed(std::int64_t(state.iterations()));
}

// Keeps the compiler from dropping the computation of each value.
// Returns true, for the callers that must answer whether they read.
template <class... Values>
bool consume(const Values&... values) {
    (benchmark::DoNotOptimize(values), ...);
    return true;
}

#if defined(KT_HAVE_POCO) || defined(KT_HAVE_URIPARSER)
// The userinfo split at its first ":" into user and password, for the peers
// that offer only the whole userinfo.
void consumeUserinfo(std::string_view userinfo) {
    const std::size_t colon = userinfo.find(':');
    std::string_view user = userinfo.substr(0, colon);
    std::string_view password =
        colon == std::string_view::npos ? std::string_view() : userinfo.substr(colon + 1);
    benchmark::DoNotOptimize(user);
    benchmark::DoNotOptimize(password);
}
#endif

// ------------------------------------------------------------------ libkt

void BM_PercentEncode_Kt(benchmark::State& state) {
    const Input& input = inputOf(state.range(0));
    runCoding(state, input.text, [&input](const std::string& text) {
        return ktbase::url_encode(text, input.escapeSlashes);
    });
}

void BM_PercentDecode_Kt(benchmark::State& state) {
    runCoding(state, encodedOf(state.range(0)), ktbase::url_decode);
}

void BM_UrlHost_Kt(benchmark::State& state) {
    runCorpus(
        state, [](const std::string& url) { consume(ktbase::url_host(url, false)); },
        [](const std::string&) { return true; });
}

void BM_UrlAll_Kt(benchmark::State& state) {
    runCorpus(
        state,
        [](const std::string& url) {
            consume(ktbase::url_scheme(url, false), ktbase::url_user(url, false),
                    ktbase::url_password(url, false), ktbase::url_host(url, false),
                    ktbase::url_service(url, false), ktbase::url_path(url, false),
                    ktbase::url_query(url, false), ktbase::url_fragment(url, false));
        },
        [](const std::string&) { return true; });
}

// libkt's plain kernels, called directly into a string: the gain of the
// vector ones.
const KT::simd::kernels& plainKernels() { return *KT::simd::supported().front(); }

void BM_PercentEncode_KtPlain(benchmark::State& state) {
    const Input& input = inputOf(state.range(0));
    runCoding(state, input.text, [&input](const std::string& text) {
        std::string result(3 * text.size(), '\0');
        result.resize(plainKernels().url_encode(&result[0], text.data(), text.data() + text.size(),
                                                input.escapeSlashes));
        return result;
    });
}
void BM_PercentDecode_KtPlain(benchmark::State& state) {
    runCoding(state, encodedOf(state.range(0)), [](const std::string& text) {
        std::string result(text.size(), '\0');
        result.resize(
            plainKernels().url_decode(&result[0], text.data(), text.data() + text.size()));
        return result;
    });
}

BENCHMARK(BM_PercentEncode_Kt)->Apply(sizes);
BENCHMARK(BM_PercentDecode_Kt)->Apply(sizes);
BENCHMARK(BM_UrlHost_Kt);
BENCHMARK(BM_UrlAll_Kt);
BENCHMARK(BM_PercentEncode_KtPlain)->Apply(sizes);
BENCHMARK(BM_PercentDecode_KtPlain)->Apply(sizes);

// ------------------------------------------------------------------- curl

#ifdef KT_HAVE_CURL
// One easy handle for the coding calls and one URL handle for the parsing,
// made once: a caller keeps them.
struct CurlHandles {
    CURL* easy;
    CURLU* url;
    CurlHandles() : easy(curl_easy_init()), url(curl_url()) {}
    ~CurlHandles() {
        curl_url_cleanup(url);
        curl_easy_cleanup(easy);
    }
};

CurlHandles& curlHandles() {
    static CurlHandles handles;
    return handles;
}

// Parses `text` into the URL handle; schemes that curl does not speak
// ("socket") are accepted like the others.
bool curlParse(const std::string& text) {
    return curl_url_set(curlHandles().url, CURLUPART_URL, text.c_str(), CURLU_NON_SUPPORT_SCHEME) ==
           CURLUE_OK;
}

// Reads one part, as curl hands it out: a copy to free. A part that the URL
// does not have is an error code and no copy.
void curlConsume(CURLUPart part) {
    char* text = nullptr;
    if (curl_url_get(curlHandles().url, part, &text, 0) == CURLUE_OK) {
        benchmark::DoNotOptimize(text);
        curl_free(text);
    }
}

std::string curlHost() {
    char* text = nullptr;
    if (curl_url_get(curlHandles().url, CURLUPART_HOST, &text, 0) != CURLUE_OK) return "";
    std::string host = text;
    curl_free(text);
    return host;
}

// A text that curl allocated, freed with curl_free().
using CurlText = std::unique_ptr<char, void (*)(void*)>;

void BM_PercentEncode_Curl(benchmark::State& state) {
    CURL* easy = curlHandles().easy;
    runCoding(state, inputOf(state.range(0)).text, [easy](const std::string& text) {
        return CurlText(curl_easy_escape(easy, text.data(), int(text.size())), curl_free);
    });
}

void BM_PercentDecode_Curl(benchmark::State& state) {
    CURL* easy = curlHandles().easy;
    runCoding(state, encodedOf(state.range(0)), [easy](const std::string& text) {
        int length = 0;
        return CurlText(curl_easy_unescape(easy, text.data(), int(text.size()), &length),
                        curl_free);
    });
}

void BM_UrlHost_Curl(benchmark::State& state) {
    runCorpus(
        state,
        [](const std::string& url) {
            curlParse(url);
            curlConsume(CURLUPART_HOST);
        },
        [](const std::string& url) {
            return curlParse(url) && curlHost() == ktbase::url_host(url, false);
        });
}

void BM_UrlAll_Curl(benchmark::State& state) {
    runCorpus(
        state,
        [](const std::string& url) {
            curlParse(url);
            for (CURLUPart part :
                 {CURLUPART_SCHEME, CURLUPART_USER, CURLUPART_PASSWORD, CURLUPART_HOST,
                  CURLUPART_PORT, CURLUPART_PATH, CURLUPART_QUERY, CURLUPART_FRAGMENT})
                curlConsume(part);
        },
        [](const std::string& url) { return curlParse(url); });
}

BENCHMARK(BM_PercentEncode_Curl)->Apply(sizes);
BENCHMARK(BM_PercentDecode_Curl)->Apply(sizes);
BENCHMARK(BM_UrlHost_Curl);
BENCHMARK(BM_UrlAll_Curl);
#endif

// -------------------------------------------------------------- Boost.URL

#ifdef KT_HAVE_BOOST_URL
namespace urls = boost::urls;

// The bytes libkt leaves as they are; the path keeps its "/" as well.
constexpr urls::grammar::lut_chars kBoostText(
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789!'()*-._");
constexpr urls::grammar::lut_chars kBoostPath = kBoostText + '/';

void BM_PercentEncode_BoostUrl(benchmark::State& state) {
    const Input& input = inputOf(state.range(0));
    const urls::grammar::lut_chars& kept = input.escapeSlashes ? kBoostText : kBoostPath;
    runCoding(state, input.text,
              [&kept](const std::string& text) { return urls::encode(text, kept); });
}

void BM_PercentDecode_BoostUrl(benchmark::State& state) {
    // Boost.URL decodes only a string it has checked.
    runCoding(state, encodedOf(state.range(0)), [](const std::string& text) {
        return urls::make_pct_string_view(text).value().decode();
    });
}

// Runs `read(view)` on the URLs of the corpus as Boost.URL parses them, one
// per iteration; `check(view, url)` must hold for every URL.
template <class Read, class Check>
void runBoost(benchmark::State& state, Read read, Check check) {
    runCorpus(
        state,
        [&read](const std::string& url) {
            auto parsed = urls::parse_uri(url);
            if (parsed) read(*parsed);
        },
        [&check](const std::string& url) {
            auto parsed = urls::parse_uri(url);
            return parsed && check(*parsed, url);
        });
}

void BM_UrlHost_BoostUrl(benchmark::State& state) {
    runBoost(
        state, [](const urls::url_view& u) { consume(u.encoded_host()); },
        [](const urls::url_view& u, const std::string& url) {
            return std::string(u.encoded_host()) == ktbase::url_host(url, false);
        });
}

void BM_UrlAll_BoostUrl(benchmark::State& state) {
    runBoost(
        state,
        [](const urls::url_view& u) {
            consume(u.scheme(), u.encoded_user(), u.encoded_password(), u.encoded_host(), u.port(),
                    u.encoded_path(), u.encoded_query(), u.encoded_fragment());
        },
        [](const urls::url_view&, const std::string&) { return true; });
}

BENCHMARK(BM_PercentEncode_BoostUrl)->Apply(sizes);
BENCHMARK(BM_PercentDecode_BoostUrl)->Apply(sizes);
BENCHMARK(BM_UrlHost_BoostUrl);
BENCHMARK(BM_UrlAll_BoostUrl);
#endif

// ------------------------------------------------------------------- Poco

#ifdef KT_HAVE_POCO
// Poco escapes controls, non-ASCII and its "illegal" bytes anyway; the
// reserved set adds the rest of what libkt escapes.
const std::string kPocoText = " \"#$%&+,:;<=>?@[\\]^`{|}~/";
const std::string kPocoPath = " \"#$%&+,:;<=>?@[\\]^`{|}~";

bool pocoParses(Poco::URI& uri, const std::string& url) {
    try {
        uri = url;
        return true;
    } catch (const Poco::Exception&) {
        return false;
    }
}

void BM_PercentEncode_Poco(benchmark::State& state) {
    const Input& input = inputOf(state.range(0));
    const std::string& reserved = input.escapeSlashes ? kPocoText : kPocoPath;
    runCoding(state, input.text, [&reserved](const std::string& text) {
        std::string encoded;
        Poco::URI::encode(text, reserved, encoded);
        return encoded;
    });
}

void BM_PercentDecode_Poco(benchmark::State& state) {
    runCoding(state, encodedOf(state.range(0)), [](const std::string& text) {
        std::string decoded;
        Poco::URI::decode(text, decoded);
        return decoded;
    });
}

// Runs `read(uri)` with each URL of the corpus parsed into one Poco::URI,
// reused as a caller would; `check(uri, url)` must hold for every URL.
template <class Read, class Check>
void runPoco(benchmark::State& state, Read read, Check check) {
    Poco::URI uri;
    runCorpus(
        state,
        [&uri, &read](const std::string& url) {
            uri = url;
            read(uri);
        },
        [&uri, &check](const std::string& url) { return pocoParses(uri, url) && check(uri, url); });
}

void BM_UrlHost_Poco(benchmark::State& state) {
    runPoco(
        state, [](const Poco::URI& uri) { consume(uri.getHost().data()); },
        [](const Poco::URI& uri, const std::string& url) {
            return uri.getHost() == ktbase::url_host(url, false);
        });
}

void BM_UrlAll_Poco(benchmark::State& state) {
    runPoco(
        state,
        [](const Poco::URI& uri) {
            consume(uri.getScheme().data());
            consumeUserinfo(uri.getUserInfo());
            consume(uri.getHost().data(), uri.getSpecifiedPort(), uri.getPath().data(),
                    uri.getRawQuery().data(), uri.getFragment().data());
        },
        [](const Poco::URI&, const std::string&) { return true; });
}

BENCHMARK(BM_PercentEncode_Poco)->Apply(sizes);
BENCHMARK(BM_PercentDecode_Poco)->Apply(sizes);
BENCHMARK(BM_UrlHost_Poco);
BENCHMARK(BM_UrlAll_Poco);
#endif

// -------------------------------------------------------------- uriparser

#ifdef KT_HAVE_URIPARSER

std::string_view viewOf(const char* first, const char* afterLast) {
    return first ? std::string_view(first, std::size_t(afterLast - first)) : std::string_view();
}

// Parses `url` and returns what `read` returns for the result, or false when
// it does not parse.
template <class Read>
bool uriparserRead(const std::string& url, Read read) {
    UriUriA uri;
    const char* error = nullptr;
    const bool parsed =
        uriParseSingleUriExA(&uri, url.data(), url.data() + url.size(), &error) == URI_SUCCESS;
    const bool result = parsed && read(const_cast<const UriUriA&>(uri));
    uriFreeUriMembersA(&uri);
    return result;
}

void BM_PercentEncode_Uriparser(benchmark::State& state) {
    runCoding(state, inputOf(state.range(0)).text, [](const std::string& text) {
        // Room for three bytes per byte (line breaks are not normalised)
        // and the terminator.
        std::string encoded(3 * text.size() + 1, '\0');
        const char* end =
            uriEscapeExA(text.data(), text.data() + text.size(), &encoded[0], URI_FALSE, URI_FALSE);
        encoded.resize(std::size_t(end - encoded.data()));
        return encoded;
    });
}

void BM_PercentDecode_Uriparser(benchmark::State& state) {
    runCoding(state, encodedOf(state.range(0)), [](const std::string& text) {
        // uriparser decodes in place: into a copy of the input.
        std::string decoded = text;
        const char* end = uriUnescapeInPlaceExA(&decoded[0], URI_FALSE, URI_BR_DONT_TOUCH);
        decoded.resize(std::size_t(end - decoded.data()));
        return decoded;
    });
}

std::string_view uriparserHost(const UriUriA& uri) {
    return viewOf(uri.hostText.first, uri.hostText.afterLast);
}

void BM_UrlHost_Uriparser(benchmark::State& state) {
    runCorpus(
        state,
        [](const std::string& url) {
            uriparserRead(url, [](const UriUriA& uri) { return consume(uriparserHost(uri)); });
        },
        [](const std::string& url) {
            return uriparserRead(url, [&url](const UriUriA& uri) {
                return std::string(uriparserHost(uri)) == ktbase::url_host(url, false);
            });
        });
}

void BM_UrlAll_Uriparser(benchmark::State& state) {
    runCorpus(
        state,
        [](const std::string& url) {
            uriparserRead(url, [](const UriUriA& uri) {
                consumeUserinfo(viewOf(uri.userInfo.first, uri.userInfo.afterLast));
                // The path is a list of segments: its text runs from the
                // first segment's start to the last one's end.
                std::string_view path =
                    uri.pathHead ? viewOf(uri.pathHead->text.first, uri.pathTail->text.afterLast)
                                 : std::string_view();
                return consume(viewOf(uri.scheme.first, uri.scheme.afterLast), uriparserHost(uri),
                               viewOf(uri.portText.first, uri.portText.afterLast), path,
                               viewOf(uri.query.first, uri.query.afterLast),
                               viewOf(uri.fragment.first, uri.fragment.afterLast));
            });
        },
        [](const std::string& url) {
            return uriparserRead(url, [](const UriUriA&) { return true; });
        });
}

BENCHMARK(BM_PercentEncode_Uriparser)->Apply(sizes);
BENCHMARK(BM_PercentDecode_Uriparser)->Apply(sizes);
BENCHMARK(BM_UrlHost_Uriparser);
BENCHMARK(BM_UrlAll_Uriparser);
#endif

}  // namespace

BENCHMARK_MAIN();
