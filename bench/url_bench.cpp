// Speed of the URL functions: ns per getter call over a corpus of realistic
// URLs, MB/s of percent-encoding and decoding, and MB/s of every URL function
// on hostile shapes at two sizes (equal figures mean linear time).
#include <benchmark/benchmark.h>

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "kt/url.h"
#include "url_corpus.h"

namespace {

using Getter = std::string (*)(const std::string&, bool);

// One call per iteration, so the time per iteration is the time per call.
void BM_Getter(benchmark::State& state, Getter get, bool decode) {
    const std::vector<std::string>& urls = corpus();
    std::size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(urls[i]);
        std::string component = get(urls[i], decode);
        benchmark::DoNotOptimize(component);
        i = i + 1 == urls.size() ? 0 : i + 1;
    }
}

#define KT_GETTER_BENCHMARKS(name)                                       \
    BENCHMARK_CAPTURE(BM_Getter, name##_raw, ktbase::url_##name, false); \
    BENCHMARK_CAPTURE(BM_Getter, name##_decoded, ktbase::url_##name, true)

KT_GETTER_BENCHMARKS(scheme);
KT_GETTER_BENCHMARKS(authority);
KT_GETTER_BENCHMARKS(path);
KT_GETTER_BENCHMARKS(params);
KT_GETTER_BENCHMARKS(query);
KT_GETTER_BENCHMARKS(fragment);
KT_GETTER_BENCHMARKS(domain);
KT_GETTER_BENCHMARKS(user);
KT_GETTER_BENCHMARKS(password);
KT_GETTER_BENCHMARKS(host);
KT_GETTER_BENCHMARKS(service);

const char kPath[] = "/media/videos/2024/summer trip/clip 01 (final)/take~2.mp4.ts";  // 60 bytes

void BM_Encode(benchmark::State& state, const std::string& text) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(text);
        std::string encoded = ktbase::url_encode(text, false);
        benchmark::DoNotOptimize(encoded);
    }
    state.SetBytesProcessed(std::int64_t(state.iterations()) * std::int64_t(text.size()));
}

void BM_Decode(benchmark::State& state, const std::string& text) {
    const std::string encoded = ktbase::url_encode(text, false);
    for (auto _ : state) {
        benchmark::DoNotOptimize(encoded);
        std::string decoded = ktbase::url_decode(encoded);
        benchmark::DoNotOptimize(decoded);
    }
    state.SetBytesProcessed(std::int64_t(state.iterations()) * std::int64_t(encoded.size()));
}

void BM_EncodeMixed(benchmark::State& state) { BM_Encode(state, mixedText(state.range(0))); }
void BM_DecodeMixed(benchmark::State& state) { BM_Decode(state, mixedText(state.range(0))); }
BENCHMARK(BM_EncodeMixed)->RangeMultiplier(16)->Range(64, 1 << 20);
BENCHMARK(BM_DecodeMixed)->RangeMultiplier(16)->Range(64, 1 << 20);
BENCHMARK_CAPTURE(BM_Encode, path60, std::string(kPath));
BENCHMARK_CAPTURE(BM_Decode, path60, std::string(kPath));

// Shapes an attacker may send: pairs without "=", empty pairs, and long runs
// of one delimiter. Each URL repeats its shape in the authority, the query
// and the fragment, so the getters, the key/value maps and the setters all
// meet it.
const char* const kHostileShapes[] = {"a&", "&", "%", "/", "@", ":", "?", ";="};

std::string hostile_url(const std::string& shape, std::size_t size) {
    std::string run;
    while (run.size() < size / 3) run += shape;
    return "s://" + run + "?" + run + "#" + run;
}

using Setter = std::string (*)(const std::string&, const std::string&, bool);
using KeyValueReader = std::map<std::string, std::string> (*)(const std::string&, bool, char,
                                                               char);

// One iteration runs every getter, key/value map and setter once.
void BM_Hostile(benchmark::State& state) {
    static constexpr Getter kGetters[] = {
        ktbase::url_scheme, ktbase::url_authority, ktbase::url_path,   ktbase::url_params,
        ktbase::url_query,  ktbase::url_fragment,  ktbase::url_domain, ktbase::url_user,
        ktbase::url_password, ktbase::url_host,    ktbase::url_service};
    static constexpr KeyValueReader kMaps[] = {ktbase::url_query_kvmap, ktbase::url_params_kvmap,
                                               ktbase::url_fragment_kvmap};
    static constexpr Setter kSetters[] = {
        ktbase::url_new_scheme, ktbase::url_new_authority, ktbase::url_new_path,
        ktbase::url_new_params, ktbase::url_new_query,     ktbase::url_new_fragment,
        ktbase::url_new_domain, ktbase::url_new_user,      ktbase::url_new_password,
        ktbase::url_new_host,   ktbase::url_new_service};
    const std::string url = hostile_url(kHostileShapes[state.range(0)], state.range(1));
    for (auto _ : state) {
        for (Getter get : kGetters) benchmark::DoNotOptimize(get(url, true));
        for (KeyValueReader read : kMaps) benchmark::DoNotOptimize(read(url, true, '&', '='));
        for (Setter set : kSetters) benchmark::DoNotOptimize(set(url, "x", true));
    }
    state.SetLabel(kHostileShapes[state.range(0)]);
    state.SetBytesProcessed(std::int64_t(state.iterations()) * std::int64_t(url.size()));
}
BENCHMARK(BM_Hostile)->ArgsProduct({benchmark::CreateDenseRange(0, 7, 1), {1 << 14, 1 << 17}});

}  // namespace

BENCHMARK_MAIN();
