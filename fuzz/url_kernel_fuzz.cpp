// The fast paths of the URL functions against the plain ones, on any text:
// every kernel set that this CPU runs encodes, decodes and finds delimiters
// exactly as the plain loops do, and the splitter on their delimiter masks
// gives the ranges that its plain searches give.
#include <cstdint>
#include <string>
#include <vector>

#include "fuzz_support.h"
#include "simd/kernels.h"
#include "url_delimiters.h"
#include "url_internal.h"

namespace {

using namespace ktbase::url_detail;

// `first` to `last` is the fuzzer's own input, of exactly its size, so that a
// read past it is caught.
void check_kernels(const KT::simd::kernels& kernels, const char* first, const char* last) {
    const std::string text(first, last);
    std::vector<char> expected(3 * text.size()), out(3 * text.size() + KT::simd::kMaxSlack);
    for (bool all : {false, true}) {
        const std::size_t size = url_encode_range(expected.data(), first, last, all);
        FUZZ_CHECK(kernels.url_encoded_size(first, last, all) == size);
        if (text.empty()) continue;
        FUZZ_CHECK(kernels.url_encode(out.data(), first, last, all) == size);
        FUZZ_CHECK(std::string(out.data(), size) == std::string(expected.data(), size));
    }
    if (!text.empty()) {
        const std::size_t size = url_decode_range(expected.data(), first, last);
        FUZZ_CHECK(kernels.url_decode(out.data(), first, last) == size);
        FUZZ_CHECK(std::string(out.data(), size) == std::string(expected.data(), size));
    }
    if (text.size() <= delimiter_masks::kMaxLength) {
        delimiter_masks plain, masks;
        KT::simd::scalar_kernels.find_delimiters(first, text.size(), plain);
        kernels.find_delimiters(first, text.size(), masks);
        for (int d = 0; d < kDelimiterCount; ++d)
            for (std::size_t w = 0; w < (text.size() + 63) / 64; ++w)
                FUZZ_CHECK(masks.rows[d][w] == plain.rows[d][w]);
    }
}

bool same(url_range a, url_range b) { return a.begin == b.begin && a.end == b.end; }

void check_split(const std::string& url) {
    const url_parts parts = split_url(url), searched = split_url_by_search(url);
    for (url_range url_parts::*component :
         {&url_parts::scheme, &url_parts::authority, &url_parts::path, &url_parts::params,
          &url_parts::query, &url_parts::fragment, &url_parts::domain, &url_parts::user,
          &url_parts::password, &url_parts::host, &url_parts::service})
        FUZZ_CHECK(same(parts.*component, searched.*component));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const char* first = reinterpret_cast<const char*>(data);
    const std::string text(first, size);
    for (const KT::simd::kernels* kernels : KT::simd::supported())
        check_kernels(*kernels, first, first + size);
    check_split(text);
    return 0;
}
