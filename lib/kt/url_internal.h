// Private: the pieces the URL functions of kt/url.h are built from, shared by
// the reading and the writing side (and open to white-box tests).
#pragma once

#include <cstddef>
#include <map>
#include <string>

namespace ktbase {
namespace url_detail {

/// The bytes [begin, end) of a URL text. An absent component is an empty
/// range, at the place where it would go. Positions are std::size_t, so a
/// text of any length splits like a short one, and "not found" is
/// std::string::npos.
struct url_range {
    std::size_t begin;
    std::size_t end;
};

/// All eleven components of a URL text. An absent one is an empty range
/// where the splitter puts it.
struct url_parts {
    url_range scheme, authority, path, params, query, fragment;
    url_range domain, user, password, host, service;
};

/// Splits `url` into all eleven ranges. The getters of kt/url.h run the same
/// splitter for the components they return, so their results are these
/// ranges' bytes by construction; the setters change the text at them.
url_parts split_url(const std::string& url);
/// The same split by plain searches of the text, never by the kernels'
/// delimiter masks that split_url() reads for short texts: the reference for
/// those masks.
url_parts split_url_by_search(const std::string& url);

/// Returns the bytes of `range`, decoded when `decode` is true.
std::string range_text(const std::string& text, url_range range, bool decode);

// The plain encoding and decoding loops, byte by byte: the rules themselves,
// which the kernels of simd/kernels.h match. The string forms below run the
// fastest kernel.

/// Writes the percent-encoding of [first, last) to `out` (room for three
/// bytes per source byte is enough) and returns the number of bytes written;
/// 0 for an empty or reversed range.
std::size_t url_encode_range(char* out, const char* first, const char* last,
                             bool escape_all_slashes);
/// Appends the percent-encoding of `text` to `out`, growing it once; `text`
/// must not be `out`.
void url_encode_append(std::string& out, const std::string& text, bool escape_all_slashes);

/// Writes the decoding of [first, last) to `out` (at most one byte per source
/// byte) and returns the number of bytes written; 0 for a reversed range.
std::size_t url_decode_range(char* out, const char* first, const char* last);
/// Returns the decoding of the bytes of `range`.
std::string url_decode_range(const std::string& text, url_range range);

/// Adds the pairs of `text` to `map` (see url_query_kvmap() in kt/url.h).
void kvmap_split(std::map<std::string, std::string>& map, const std::string& text, bool decode,
                 char pair_separator, char key_value_separator);
/// Appends the pairs of `map`, in key order, to `out`: a non-empty key (after
/// a pair separator when `out` is not empty), then, for a non-empty value,
/// the key/value separator and the value. With `encode` true keys and values
/// are encoded with every "/" escaped.
void kvmap_join(std::string& out, const std::map<std::string, std::string>& map, bool encode,
                char pair_separator, char key_value_separator);

}  // namespace url_detail
}  // namespace ktbase
