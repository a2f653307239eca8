// Runs one kernel of one set on about 1 MiB of input, a given number of
// times, for counting the instructions it executes under an emulator (see
// neon_insns.sh): the count of one run less the count of none is that of the
// kernel, without the start-up and the making of the input. The input is a
// piece of 64 KiB over and over, which keeps the making cheap to emulate.
//
// Usage: kernel_run SET KERNEL RUNS. Prints the input's size in bytes.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "kt/url.h"
#include "simd/kernels.h"
#include "url_corpus.h"
#include "url_delimiters.h"

namespace {

using KT::simd::kernels;
using ktbase::url_detail::delimiter_masks;

constexpr std::size_t kMiB = std::size_t(1) << 20;
constexpr std::size_t kPiece = std::size_t(1) << 16;

// `piece` repeated to `size` bytes.
template <class Bytes>
Bytes repeated(const Bytes& piece, std::size_t size) {
    Bytes all;
    while (all.size() < size) all.insert(all.end(), piece.begin(), piece.end());
    all.resize(size);
    return all;
}

std::vector<std::uint8_t> randomBytes(std::size_t size) {
    std::vector<std::uint8_t> bytes(kPiece);
    std::mt19937 random(4648);
    for (std::uint8_t& b : bytes) b = std::uint8_t(random());
    return repeated(bytes, size);
}

const std::uint8_t* bytesOf(const std::string& text) {
    return reinterpret_cast<const std::uint8_t*>(text.data());
}

// What the scalar set's `encode` makes of `bytes`, as the decoder's input.
std::string encoded(std::size_t (*encode)(const std::uint8_t*, std::size_t, std::uint8_t*),
                    const std::vector<std::uint8_t>& bytes) {
    std::string text(2 * bytes.size() + 4, '\0');
    text.resize(encode(bytes.data(), bytes.size(), reinterpret_cast<std::uint8_t*>(&text[0])));
    return text;
}

std::size_t hexEncode(const std::uint8_t* in, std::size_t n, std::uint8_t* out) {
    KT::simd::scalar_kernels.hex_encode(in, n, out);
    return 2 * n;
}

// The URLs of the benchmark corpus, one after the other, to `size` bytes.
std::string joinedUrls(std::size_t size) {
    std::string text;
    for (const std::string& url : corpus()) text += url;
    return repeated(text, size);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        std::fprintf(stderr, "usage: kernel_run SET KERNEL RUNS\n");
        return 2;
    }
    const kernels* set = nullptr;
    for (const kernels* s : KT::simd::supported())
        if (std::strcmp(s->name, argv[1]) == 0) set = s;
    if (set == nullptr) {
        std::fprintf(stderr, "kernel_run: no set \"%s\" here\n", argv[1]);
        return 2;
    }
    const std::string kernel = argv[2];
    const int runs = std::atoi(argv[3]);

    std::string text;
    std::vector<std::uint8_t> bytes;
    if (kernel == "hex_encode" || kernel == "base64_encode")
        bytes = randomBytes(kMiB);
    else if (kernel == "hex_decode")
        text = encoded(hexEncode, randomBytes(kMiB / 2));
    else if (kernel == "base64_decode")
        text = encoded(KT::simd::scalar_kernels.base64_encode, randomBytes(kMiB / 4 * 3));
    else if (kernel == "url_encoded_size" || kernel == "url_encode")
        text = repeated(mixedText(kPiece), kMiB);
    else if (kernel == "url_decode")
        text = repeated(ktbase::url_encode(mixedText(kPiece), false), kMiB);
    else if (kernel == "find_delimiters")
        text = joinedUrls(kMiB);
    else {
        std::fprintf(stderr, "kernel_run: no kernel \"%s\"\n", kernel.c_str());
        return 2;
    }
    const std::size_t size = bytes.empty() ? text.size() : bytes.size();
    std::vector<std::uint8_t> out(3 * size + KT::simd::kMaxSlack);
    char* o = reinterpret_cast<char*>(out.data());
    const char *first = text.data(), *last = first + text.size();
    delimiter_masks masks;
    for (int run = 0; run < runs; ++run) {
        if (kernel == "hex_encode")
            set->hex_encode(bytes.data(), size, out.data());
        else if (kernel == "base64_encode")
            set->base64_encode(bytes.data(), size, out.data());
        else if (kernel == "hex_decode")
            set->hex_decode(bytesOf(text), size / 2, out.data());
        else if (kernel == "base64_decode")
            set->base64_decode(bytesOf(text), size, out.data());
        else if (kernel == "url_encoded_size")
            set->url_encoded_size(first, last, false);
        else if (kernel == "url_encode")
            set->url_encode(o, first, last, false);
        else if (kernel == "url_decode")
            set->url_decode(o, first, last);
        else
            for (std::size_t at = 0; at < size; at += delimiter_masks::kMaxLength)
                set->find_delimiters(first + at, delimiter_masks::kMaxLength, masks);
    }
    std::printf("%zu\n", size);
    return 0;
}
