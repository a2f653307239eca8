// Percent-encoding and decoding of URL texts, on the kernels in use.
#include "kt/url.h"

#include "simd/kernels.h"
#include "simd/scalar.h"
#include "url_internal.h"

namespace ktbase {
namespace url_detail {

namespace {

// A result that fits in a string's own room is made on the stack and then
// copied there; a longer one is written into the heap block of its string
// (with the kernel's slack after it), so no byte is copied twice.
constexpr std::size_t kShortResult = 15;
// Texts of up to this many bytes are encoded on the stack, longer ones
// straight into their string.
constexpr std::size_t kOnePassText = 128;

}  // namespace

// ---------------------------------------------------------------- plain forms

std::size_t url_encode_range(char* out, const char* first, const char* last,
                             bool escape_all_slashes) {
    return KT::simd::scalar::url_encode(out, first, last, escape_all_slashes);
}

std::size_t url_decode_range(char* out, const char* first, const char* last) {
    return KT::simd::scalar::url_decode(out, first, last);
}

// ---------------------------------------------------------------- string forms

void url_encode_append(std::string& out, const std::string& text, bool escape_all_slashes) {
    if (text.empty()) return;
    const KT::simd::kernels& kernels = KT::simd::active();
    const char* first = text.data();
    const char* last = first + text.size();
    const std::size_t old_size = out.size();
    if (text.size() <= kOnePassText) {
        // Encoded in one pass on the stack, then copied: a short text is not
        // worth a pass that only measures it.
        char buffer[3 * kOnePassText + KT::simd::kMaxSlack];
        out.append(buffer, kernels.url_encode(buffer, first, last, escape_all_slashes));
        return;
    }
    // Sized exactly in a first pass: the result is the only allocation.
    const std::size_t size = kernels.url_encoded_size(first, last, escape_all_slashes);
    out.resize(old_size + size + kernels.url_encode_slack);
    kernels.url_encode(&out[old_size], first, last, escape_all_slashes);
    out.resize(old_size + size);
}

namespace {

// The decoding of the `size` > 0 bytes at `first`, as a new string.
std::string decoded(const char* first, std::size_t size) {
    const KT::simd::kernels& kernels = KT::simd::active();
    if (size <= kShortResult) {
        char buffer[kShortResult + KT::simd::kMaxSlack];
        return std::string(buffer, kernels.url_decode(buffer, first, first + size));
    }
    std::string result(size + kernels.url_decode_slack, '\0');
    result.resize(kernels.url_decode(&result[0], first, first + size));
    return result;
}

}  // namespace

std::string url_decode_range(const std::string& text, url_range range) {
    if (range.end <= range.begin) return std::string();
    return decoded(text.data() + range.begin, range.end - range.begin);
}

}  // namespace url_detail

std::string url_encode(const std::string& text, bool escape_all_slashes) {
    std::string result;
    url_detail::url_encode_append(result, text, escape_all_slashes);
    return result;
}

std::string url_decode(const std::string& text) {
    return text.empty() ? std::string() : url_detail::decoded(text.data(), text.size());
}

}  // namespace ktbase
