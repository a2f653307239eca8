// libkt's formatted strings and buffer appends against the standard ways of
// doing the same work, in one process. Each benchmark is named
// BM_<work>_<contender>; bench/table.py groups them by work.
//
// Format: one short message, as a log line or an exception text is built,
// into a string of its own. Append: 16-byte pieces added to an empty buffer
// until it holds 64 MiB, counted in bytes appended.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdio>
#include <string>

#include "kt/KTBuffer.h"
#include "kt/KTString.h"

#ifdef KT_HAVE_FMT
#include <fmt/format.h>
#endif

namespace {

// The message's parts, behind DoNotOptimize so that no contender can fold
// them into its format at compile time.
struct Message {
    const char* host = "localhost";
    int port = 8080;
    const char* text = "connection refused";
};

template <class Format>
void runFormat(benchmark::State& state, Format format) {
    Message message;
    for (auto _ : state) {
        benchmark::DoNotOptimize(message);
        auto result = format(message);
        benchmark::DoNotOptimize(result);
        benchmark::ClobberMemory();
    }
    // Counted, so that the table compares messages per second of CPU time as
    // it compares bytes: a wait for a processor held by another program is
    // not formatting.
    state.SetItemsProcessed(state.iterations());
}

void BM_Format_Kt(benchmark::State& state) {
    runFormat(state, [](const Message& m) {
        return KT::CString::createWithFormat("%s:%d %s", m.host, m.port, m.text);
    });
}

void BM_Format_Snprintf(benchmark::State& state) {
    runFormat(state, [](const Message& m) {
        char scratch[1024];
        int n = std::snprintf(scratch, sizeof scratch, "%s:%d %s", m.host, m.port, m.text);
        return std::string(scratch, std::size_t(n));
    });
}

#ifdef KT_HAVE_FMT
void BM_Format_Fmt(benchmark::State& state) {
    runFormat(state,
              [](const Message& m) { return fmt::format("{}:{} {}", m.host, m.port, m.text); });
}
#endif

constexpr std::int64_t kAppendTotal = std::int64_t(64) << 20;
constexpr int kPiece = 16;
const char kPieceBytes[kPiece + 1] = "0123456789abcdef";

template <class Append>
void runAppend(benchmark::State& state, Append append) {
    for (auto _ : state) append();
    state.SetBytesProcessed(state.iterations() * kAppendTotal);
}

void BM_Append_Kt(benchmark::State& state) {
    runAppend(state, [] {
        KT::CBuffer buffer;
        const auto* piece = reinterpret_cast<const KT::UInt8*>(kPieceBytes);
        for (std::int64_t n = 0; n < kAppendTotal; n += kPiece) buffer.append(kPiece, piece);
        benchmark::DoNotOptimize(buffer.data);
    });
}

void BM_Append_StdString(benchmark::State& state) {
    runAppend(state, [] {
        std::string buffer;
        for (std::int64_t n = 0; n < kAppendTotal; n += kPiece) buffer.append(kPieceBytes, kPiece);
        benchmark::DoNotOptimize(buffer.data());
    });
}

BENCHMARK(BM_Format_Kt);
BENCHMARK(BM_Format_Snprintf);
#ifdef KT_HAVE_FMT
BENCHMARK(BM_Format_Fmt);
#endif
BENCHMARK(BM_Append_Kt)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Append_StdString)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
