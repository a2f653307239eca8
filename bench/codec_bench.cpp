// Throughput of the hex and Base64 codecs and of the data stream.
//
// Rates count the input each operation consumes: the bytes encoded, the
// characters decoded, the bytes written to or read from the stream.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <random>

#include "kt/KTBuffer.h"

namespace {

constexpr int kMiB = 1 << 20;

using Codec = void (KT::CBuffer::*)(const KT::CBuffer&, int);

KT::CBuffer randomBytes(std::int64_t size) {
    std::mt19937 generator(4648);
    KT::CBuffer bytes{KT::SIntLeast32(size)};
    for (int i = 0; i < size; ++i) bytes.data[i] = KT::UInt8(generator());
    bytes.length = int(size);
    return bytes;
}

// The text that `encode` makes of `size` random bytes.
KT::CBuffer encodedBytes(Codec encode, std::int64_t size) {
    KT::CBuffer text;
    (text.*encode)(randomBytes(size), 0);
    return text;
}

// Runs `codec` over `input` into a target that keeps its storage between runs.
void runCodec(benchmark::State& state, Codec codec, const KT::CBuffer& input) {
    KT::CBuffer output;
    for (auto _ : state) {
        output.clear();
        benchmark::DoNotOptimize(input.data);
        (output.*codec)(input, 0);
        benchmark::DoNotOptimize(output.data);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * input.length);
}

void BM_HexEncode(benchmark::State& state) {
    runCodec(state, &KT::CBuffer::encodeHex, randomBytes(state.range(0)));
}

void BM_HexDecode(benchmark::State& state) {
    runCodec(state, &KT::CBuffer::decodeHex, encodedBytes(&KT::CBuffer::encodeHex, state.range(0)));
}

void BM_Base64Encode(benchmark::State& state) {
    runCodec(state, &KT::CBuffer::encodeBase64, randomBytes(state.range(0)));
}

void BM_Base64Decode(benchmark::State& state) {
    runCodec(state, &KT::CBuffer::decodeBase64,
             encodedBytes(&KT::CBuffer::encodeBase64, state.range(0)));
}

// Text that is not Base64 at all: every character counts as a pad.
void BM_Base64DecodeInvalid(benchmark::State& state) {
    KT::CBuffer text = randomBytes(state.range(0));
    for (int i = 0; i < text.length; ++i) text.data[i] = KT::UInt8("!*-.:@\\^"[text.data[i] & 7]);
    runCodec(state, &KT::CBuffer::decodeBase64, text);
}

BENCHMARK(BM_HexEncode)->RangeMultiplier(16)->Range(64, kMiB);
BENCHMARK(BM_HexDecode)->RangeMultiplier(16)->Range(64, kMiB);
BENCHMARK(BM_Base64Encode)->RangeMultiplier(16)->Range(64, kMiB);
BENCHMARK(BM_Base64Decode)->RangeMultiplier(16)->Range(64, kMiB);
BENCHMARK(BM_Base64DecodeInvalid)->Arg(kMiB);

// Writes 1 MiB in pieces of state.range(0) bytes with `write`, into a stream
// that keeps its storage between runs.
template <class Write>
void runStreamWrite(benchmark::State& state, Write write) {
    const int piece = int(state.range(0));
    const KT::CBuffer bytes = randomBytes(piece);
    KT::CData stream;
    for (auto _ : state) {
        stream.clear();
        for (int written = 0; written < kMiB; written += piece) write(stream, bytes);
        benchmark::DoNotOptimize(stream.data);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * kMiB);
}

void BM_DataPut(benchmark::State& state) {
    runStreamWrite(state, [](KT::CData& stream, const KT::CBuffer& bytes) {
        stream.put(bytes.data, bytes.length);
    });
}

// The same pieces as length-prefixed buffers.
void BM_DataStreamOut(benchmark::State& state) {
    runStreamWrite(state, [](KT::CData& stream, const KT::CBuffer& bytes) { stream << bytes; });
}

// Reads back what BM_DataStreamOut writes.
void BM_DataStreamIn(benchmark::State& state) {
    const int piece = int(state.range(0));
    const KT::CBuffer bytes = randomBytes(piece);
    KT::CData stream;
    for (int written = 0; written < kMiB; written += piece) stream << bytes;
    KT::CBuffer read(piece);
    for (auto _ : state) {
        stream.reset();
        for (int done = 0; done < kMiB; done += piece) stream >> read;
        benchmark::DoNotOptimize(read.data);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * kMiB);
}

BENCHMARK(BM_DataPut)->RangeMultiplier(8)->Range(8, 512);
BENCHMARK(BM_DataStreamOut)->RangeMultiplier(8)->Range(8, 512);
BENCHMARK(BM_DataStreamIn)->RangeMultiplier(8)->Range(8, 512);

}  // namespace

BENCHMARK_MAIN();
