// libkt's hex and Base64 codecs against the packaged peers, on the same
// random bytes and their encodings, in one process. Each benchmark is named
// BM_<work>_<contender>; bench/table.py groups them by work and size. Bytes
// processed count the raw side (the bytes encoded, or decoded to), so every
// row of one size moves the same amount of data.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <random>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>

#include "kt/KTBuffer.h"
#include "simd/kernels.h"

#ifdef KT_HAVE_OPENSSL
#include <openssl/evp.h>
#endif
#ifdef KT_HAVE_ABSL
#include "absl/strings/escaping.h"
#endif
#ifdef KT_HAVE_BOOST
#include <boost/algorithm/hex.hpp>
#endif

namespace {

constexpr int kMaxSize = 1 << 20;

// The first n bytes of a fixed pseudo-random MiB: every run and every
// contender sees the same data.
std::string_view randomBytes(std::int64_t n) {
    static const std::string bytes = [] {
        std::mt19937 random(20240601);
        std::string text(kMaxSize, '\0');
        for (char& c : text) c = char(random() >> 24);
        return text;
    }();
    return std::string_view(bytes).substr(0, std::size_t(n));
}

KT::CBuffer bufferOf(std::string_view text) {
    KT::CBuffer buffer;
    buffer.append(KT::SIntLeast32(text.size()), reinterpret_cast<const KT::UInt8*>(text.data()));
    return buffer;
}

std::string stringOf(const KT::CBuffer& buffer) {
    return std::string(reinterpret_cast<const char*>(buffer.data), std::size_t(buffer.length));
}

using Codec = void (KT::CBuffer::*)(const KT::CBuffer&, int);

// The codec's output for `input`, made with libkt (the encodings are the
// standard ones, so every peer reads them).
std::string encoded(std::string_view input, Codec codec) {
    KT::CBuffer target;
    (target.*codec)(bufferOf(input), 0);
    return stringOf(target);
}

std::string base64Of(std::int64_t n) { return encoded(randomBytes(n), &KT::CBuffer::encodeBase64); }
std::string hexOf(std::int64_t n) { return encoded(randomBytes(n), &KT::CBuffer::encodeHex); }

void countBytes(benchmark::State& state) {
    state.SetBytesProcessed(std::int64_t(state.iterations()) * state.range(0));
}

// libkt as a caller that reuses a target sized once would use it.
void runKt(benchmark::State& state, std::string_view input, Codec codec) {
    KT::CBuffer source = bufferOf(input);
    KT::CBuffer target(KT::SIntLeast32(2 * input.size() + 1));
    for (auto _ : state) {
        benchmark::DoNotOptimize(source.data);
        target.clear();
        (target.*codec)(source, source.correction());
        benchmark::DoNotOptimize(target.data);
        benchmark::ClobberMemory();
    }
    countBytes(state);
}

void BM_Base64Encode_Kt(benchmark::State& state) {
    runKt(state, randomBytes(state.range(0)), &KT::CBuffer::encodeBase64);
}
void BM_Base64Decode_Kt(benchmark::State& state) {
    runKt(state, base64Of(state.range(0)), &KT::CBuffer::decodeBase64);
}
void BM_HexEncode_Kt(benchmark::State& state) {
    runKt(state, randomBytes(state.range(0)), &KT::CBuffer::encodeHex);
}
void BM_HexDecode_Kt(benchmark::State& state) {
    runKt(state, hexOf(state.range(0)), &KT::CBuffer::decodeHex);
}

// One kernel set of libkt, called directly on the same input as the rows
// above: the plain set shows the gain of the vector sets, the AVX2 one that
// of the wider set this CPU may run instead.
using KernelWork = std::size_t (*)(const KT::simd::kernels&, const std::uint8_t*, std::size_t,
                                   std::uint8_t*);
void runKernel(benchmark::State& state, const KT::simd::kernels* set, KernelWork work,
               std::string (*inputOf)(std::int64_t)) {
    const std::string input = inputOf(state.range(0));
    std::string output(2 * input.size() + 4, '\0');
    const auto* in = reinterpret_cast<const std::uint8_t*>(input.data());
    auto* out = reinterpret_cast<std::uint8_t*>(&output[0]);
    for (auto _ : state) {
        benchmark::DoNotOptimize(work(*set, in, input.size(), out));
        benchmark::ClobberMemory();
    }
    countBytes(state);
}

// Runs `step(input, output)` with `output` a string sized once for the
// largest result, for the peers that write through a pointer or iterator.
template <class Step>
void runInto(benchmark::State& state, std::string_view input, Step step) {
    std::string output(2 * input.size() + 4, '\0');
    for (auto _ : state) {
        benchmark::DoNotOptimize(input.data());
        benchmark::DoNotOptimize(step(input, output.data()));
        benchmark::ClobberMemory();
    }
    countBytes(state);
}

// Runs `step(input)` for the peers that return or fill a string of their own.
template <class Step>
void runReturning(benchmark::State& state, std::string_view input, Step step) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(input.data());
        auto result = step(input);
        benchmark::DoNotOptimize(result);
    }
    countBytes(state);
}

#ifdef KT_HAVE_OPENSSL
const unsigned char* bytesOf(std::string_view text) {
    return reinterpret_cast<const unsigned char*>(text.data());
}
unsigned char* bytesOf(char* text) { return reinterpret_cast<unsigned char*>(text); }

void BM_Base64Encode_OpenSSL(benchmark::State& state) {
    runInto(state, randomBytes(state.range(0)), [](std::string_view in, char* out) {
        return EVP_EncodeBlock(bytesOf(out), bytesOf(in), int(in.size()));
    });
}
void BM_Base64Decode_OpenSSL(benchmark::State& state) {
    runInto(state, base64Of(state.range(0)), [](std::string_view in, char* out) {
        return EVP_DecodeBlock(bytesOf(out), bytesOf(in), int(in.size()));
    });
}
#endif

#ifdef KT_HAVE_ABSL
// The packaged abseil may have a string_view of its own.
absl::string_view abslView(std::string_view text) { return {text.data(), text.size()}; }

void BM_Base64Encode_Absl(benchmark::State& state) {
    std::string output;
    runReturning(state, randomBytes(state.range(0)), [&output](std::string_view in) {
        absl::Base64Escape(abslView(in), &output);
        return output.size();
    });
}
void BM_Base64Decode_Absl(benchmark::State& state) {
    std::string output;
    runReturning(state, base64Of(state.range(0)), [&output](std::string_view in) {
        return absl::Base64Unescape(abslView(in), &output);
    });
}
void BM_HexEncode_Absl(benchmark::State& state) {
    runReturning(state, randomBytes(state.range(0)),
                 [](std::string_view in) { return absl::BytesToHexString(abslView(in)); });
}
void BM_HexDecode_Absl(benchmark::State& state) {
    runReturning(state, hexOf(state.range(0)),
                 [](std::string_view in) { return absl::HexStringToBytes(abslView(in)); });
}
#endif

#ifdef KT_HAVE_BOOST
void BM_HexEncode_Boost(benchmark::State& state) {
    runInto(state, randomBytes(state.range(0)), [](std::string_view in, char* out) {
        return boost::algorithm::hex(in.begin(), in.end(), out);
    });
}
void BM_HexDecode_Boost(benchmark::State& state) {
    runInto(state, hexOf(state.range(0)), [](std::string_view in, char* out) {
        return boost::algorithm::unhex(in.begin(), in.end(), out);
    });
}
#endif

// 64 bytes to 1 MiB, by factors of 16.
void sizes(benchmark::internal::Benchmark* benchmark) {
    benchmark->RangeMultiplier(16)->Range(64, kMaxSize);
}

// BM_<work>_KtPlain and BM_<work>_KtAvx2: libkt's kernels of one set.
[[maybe_unused]] const bool kKernelRows = [] {
    using Set = const KT::simd::kernels&;
    using Bytes = const std::uint8_t*;
    std::string (*const plain)(std::int64_t) = [](std::int64_t n) {
        return std::string(randomBytes(n));
    };
    const std::tuple<const char*, KernelWork, std::string (*)(std::int64_t)> works[] = {
        {"Base64Encode",
         [](Set set, Bytes in, std::size_t n, std::uint8_t* out) {
             return set.base64_encode(in, n, out);
         },
         plain},
        {"Base64Decode",
         [](Set set, Bytes in, std::size_t n, std::uint8_t* out) {
             return set.base64_decode(in, n, out);
         },
         base64Of},
        {"HexEncode",
         [](Set set, Bytes in, std::size_t n, std::uint8_t* out) {
             set.hex_encode(in, n, out);
             return 2 * n;
         },
         plain},
        {"HexDecode",
         [](Set set, Bytes in, std::size_t n, std::uint8_t* out) {
             set.hex_decode(in, n / 2, out);
             return n / 2;
         },
         hexOf}};
    const std::pair<std::string, const char*> contenders[] = {{"scalar", "KtPlain"},
                                                              {"avx2", "KtAvx2"}};
    for (const KT::simd::kernels* set : KT::simd::supported()) {
        for (const auto& [setName, contender] : contenders) {
            if (set->name != setName) continue;
            for (const auto& [work, run, inputOf] : works) {
                std::string name = std::string("BM_") + work + "_" + contender;
                benchmark::RegisterBenchmark(name.c_str(), runKernel, set, run, inputOf)
                    ->Apply(sizes);
            }
        }
    }
    return true;
}();

}  // namespace

BENCHMARK(BM_Base64Encode_Kt)->Apply(sizes);
BENCHMARK(BM_Base64Decode_Kt)->Apply(sizes);
BENCHMARK(BM_HexEncode_Kt)->Apply(sizes);
BENCHMARK(BM_HexDecode_Kt)->Apply(sizes);
#ifdef KT_HAVE_OPENSSL
BENCHMARK(BM_Base64Encode_OpenSSL)->Apply(sizes);
BENCHMARK(BM_Base64Decode_OpenSSL)->Apply(sizes);
#endif
#ifdef KT_HAVE_ABSL
BENCHMARK(BM_Base64Encode_Absl)->Apply(sizes);
BENCHMARK(BM_Base64Decode_Absl)->Apply(sizes);
BENCHMARK(BM_HexEncode_Absl)->Apply(sizes);
BENCHMARK(BM_HexDecode_Absl)->Apply(sizes);
#endif
#ifdef KT_HAVE_BOOST
BENCHMARK(BM_HexEncode_Boost)->Apply(sizes);
BENCHMARK(BM_HexDecode_Boost)->Apply(sizes);
#endif

BENCHMARK_MAIN();
