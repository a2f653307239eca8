// Reading URL texts: the one splitter behind the component getters, the
// key/value maps and the setters of url_set.cpp.
#include "kt/url.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "simd/kernels.h"
#include "url_delimiters.h"
#include "url_internal.h"

namespace ktbase {
namespace url_detail {

namespace {

constexpr std::size_t npos = std::string::npos;

// --- Finders: the first byte of a delimiter set at or after a position, or
// npos. The splitter asks the same questions of each; they differ only in how
// they answer.

// Searches the text itself, for texts of any length: one memchr() per byte
// of the set, each bounded by the best match so far, so a search costs the
// bytes up to its match, never the rest of the text.
class text_finder {
public:
    explicit text_finder(const std::string& text) : text_(text) {}

    template <char... Delimiters>
    std::size_t find(std::size_t from) const {
        std::size_t best = text_.size();
        for (const char delimiter : {Delimiters...}) {
            if (from >= best) break;
            const void* hit = std::memchr(text_.data() + from, delimiter, best - from);
            if (hit != nullptr) best = std::size_t(static_cast<const char*>(hit) - text_.data());
        }
        return best == text_.size() ? npos : best;
    }

private:
    const std::string& text_;
};

// Looks at the bytes one by one for a short way, then searches: for what is
// usually found in the first few bytes (the scheme's end), where setting up
// a search costs more than the look.
class prefix_finder {
public:
    explicit prefix_finder(const std::string& text) : text_(text) {}

    template <char... Delimiters>
    std::size_t find(std::size_t from) const {
        constexpr std::size_t kLookedAt = 24;
        const std::size_t stop = std::min(text_.size(), from + kLookedAt);
        for (std::size_t at = from; at < stop; ++at)
            if (((text_[at] == Delimiters) || ...)) return at;
        return stop < text_.size() ? text_finder(text_).find<Delimiters...>(stop) : npos;
    }

private:
    const std::string& text_;
};

// The delimiter masks of the last short URL text read on this thread.
// Callers read several components of one URL in a row, each through its own
// getter: they then pay for one pass of the kernel, and each later getter
// for a comparison of the text. Plain data of a fixed size, so a thread needs
// no constructor or destructor for it; zeroed, it holds the empty text, whose
// masks have no word to read.
struct last_masks {
    std::size_t length;
    char text[delimiter_masks::kMaxLength];
    delimiter_masks masks;
};
thread_local last_masks t_last_masks;

// The masks of `text`, of at most kMaxLength bytes: the last ones, or made
// by one vector pass over it.
const delimiter_masks& masks_of(const std::string& text) {
    last_masks& last = t_last_masks;
    if (last.length != text.size() || std::memcmp(last.text, text.data(), text.size()) != 0) {
        KT::simd::active().find_delimiters(text.data(), text.size(), last.masks);
        std::memcpy(last.text, text.data(), text.size());
        last.length = text.size();
    }
    return last.masks;
}

// Reads the bit masks of where the delimiters lie in a text of up to
// delimiter_masks::kMaxLength bytes: each search is a few bit operations on a
// word or two. The only user of the kernels' masks.
class mask_finder {
public:
    explicit mask_finder(const std::string& text)
        : masks_(masks_of(text)), words_((text.size() + 63) / 64) {}

    template <char... Delimiters>
    std::size_t find(std::size_t from) const {
        static_assert(((kDelimiterOf[static_cast<unsigned char>(Delimiters)] != 0) && ...),
                      "the kernels mark every delimiter the splitter asks for");
        std::size_t word = from / 64;
        if (word >= words_) return npos;
        std::uint64_t bits = bits_of<Delimiters...>(word) & (~std::uint64_t(0) << (from % 64));
        while (bits == 0) {
            if (++word == words_) return npos;
            bits = bits_of<Delimiters...>(word);
        }
        return word * 64 + std::size_t(__builtin_ctzll(bits));
    }

private:
    // The kernels' row of a delimiter: the bit that marks it.
    static constexpr int row_of(char delimiter) {
        return __builtin_ctz(kDelimiterOf[static_cast<unsigned char>(delimiter)]);
    }

    template <char... Delimiters>
    std::uint64_t bits_of(std::size_t word) const {
        return (masks_.rows[row_of(Delimiters)][word] | ...);
    }

    const delimiter_masks& masks_;
    std::size_t words_;
};

// --- The splitter

// The components a caller asks for, in groups that are found together; the
// splitter finds those and what they depend on, and leaves the other ranges
// alone.
enum component_group : unsigned {
    kSchemeGroup = 1,
    kFragmentGroup = 2,
    kAuthorityGroup = 4,
    kPathGroup = 8,             // path, params, query
    kAuthorityPartsGroup = 16,  // domain, user, password, host, service
    kEveryGroup = 31,
};

// The URL model in one pass: each component is cut off in a fixed order, and
// every search runs over the rest of the whole text before its result is
// compared with where the remaining text ends (which decides the authority's
// end). Inlined into each caller, which then computes only what it asks for.
template <unsigned Groups, class Finder>
__attribute__((always_inline)) inline url_parts split_with(const std::string& url,
                                                           const Finder& finder) {
    url_parts parts;  // only the ranges asked for are written
    constexpr bool kNeedsAuthority = Groups & (kAuthorityGroup | kPathGroup | kAuthorityPartsGroup);
    // What remains to split: [begin, end).
    std::size_t begin = 0, end = url.size();
    // A trailing component: after a delimiter found before `remaining_end`,
    // which then moves back to it; without one, empty at the end.
    const auto cut_trailing = [](std::size_t found, std::size_t& remaining_end) {
        if (found >= remaining_end) return url_range{remaining_end, remaining_end};
        const url_range component{found + 1, remaining_end};
        remaining_end = found;
        return component;
    };
    if ((Groups & kFragmentGroup) || kNeedsAuthority)
        parts.fragment = cut_trailing(finder.template find<kFragmentStart>(0), end);
    if ((Groups & kSchemeGroup) || kNeedsAuthority) {
        // A "/" or "#" first means a relative reference: a ":" after it is
        // not the scheme's ("/a:b").
        const std::size_t scheme_end =
            finder.template find<kSchemeEnd, kPathSeparator, kFragmentStart>(0);
        const bool has_scheme = scheme_end != npos && url[scheme_end] == kSchemeEnd;
        parts.scheme = {0, has_scheme ? scheme_end : 0};
        if (has_scheme) begin = scheme_end + 1;
    }
    if (!kNeedsAuthority) return parts;
    if (end - begin >= 2 && url[begin] == kPathSeparator && url[begin + 1] == kPathSeparator) {
        const std::size_t authority_begin = begin + 2;
        // The first "/" ends the authority, even after a ";" or "?" ("s://h?x=/y"
        // has the authority "h?x="); only when an "@" comes first do ";" and
        // "?" after it end the host. Without either, ";" or "?" ends it.
        std::size_t authority_end =
            finder.template find<kUserinfoEnd, kPathSeparator>(authority_begin);
        if (authority_end == npos)
            authority_end = finder.template find<kParamsStart, kQueryStart>(authority_begin);
        else if (url[authority_end] == kUserinfoEnd)
            authority_end =
                finder.template find<kPathSeparator, kParamsStart, kQueryStart>(authority_end + 1);
        // An end inside the fragment leaves the authority empty and its text
        // to the path: the searches ran over the whole text on purpose.
        if (authority_end == npos)
            authority_end = end;
        else if (authority_end >= end)
            authority_end = authority_begin;
        parts.authority = {authority_begin, authority_end};
        begin = authority_end;
    } else {
        parts.authority = {begin, begin};
    }
    if (Groups & kPathGroup) {
        parts.query = cut_trailing(finder.template find<kQueryStart>(begin), end);
        parts.params = cut_trailing(finder.template find<kParamsStart>(begin), end);
        parts.path = {begin, end};
    }
    if (Groups & kAuthorityPartsGroup) {
        const url_range authority = parts.authority;
        url_range userinfo{authority.begin, authority.begin}, host_and_port = authority;
        const std::size_t userinfo_end = finder.template find<kUserinfoEnd>(authority.begin);
        if (userinfo_end < authority.end) {
            userinfo.end = userinfo_end;
            host_and_port.begin = userinfo_end + 1;
        }
        parts.service = cut_trailing(finder.template find<kServiceStart>(host_and_port.begin),
                                     host_and_port.end);
        parts.host = host_and_port;
        const std::size_t domain_end = finder.template find<kDomainEnd>(userinfo.begin);
        if (domain_end < userinfo.end) {
            parts.domain = {userinfo.begin, domain_end};
            userinfo.begin = domain_end + 1;
        } else {
            parts.domain = {userinfo.begin, userinfo.begin};
        }
        parts.password =
            cut_trailing(finder.template find<kPasswordStart>(userinfo.begin), userinfo.end);
        parts.user = userinfo;
    }
    return parts;
}

// The components in `Groups`, by the masks for a short text and by searches
// for a long one.
template <unsigned Groups>
__attribute__((always_inline)) inline url_parts split_parts(const std::string& url) {
    if (url.size() <= delimiter_masks::kMaxLength) return split_with<Groups>(url, mask_finder(url));
    return split_with<Groups>(url, text_finder(url));
}

}  // namespace

url_parts split_url(const std::string& url) { return split_parts<kEveryGroup>(url); }

url_parts split_url_by_search(const std::string& url) {
    return split_with<kEveryGroup>(url, text_finder(url));
}

std::string range_text(const std::string& text, url_range range, bool decode) {
    if (decode) return url_decode_range(text, range);
    return std::string(text, range.begin, range.end - range.begin);
}

void kvmap_split(std::map<std::string, std::string>& map, const std::string& text, bool decode,
                 char pair_separator, char key_value_separator) {
    const std::size_t length = text.size();
    // The first `separator` in [from, to), or `to`. Every search stops at the
    // end of its pair, so each byte is read a bounded number of times.
    const auto first_in = [&](char separator, std::size_t from, std::size_t to) {
        const void* hit = std::memchr(text.data() + from, separator, to - from);
        return hit ? std::size_t(static_cast<const char*>(hit) - text.data()) : to;
    };
    // A zero key/value separator never ends a key (the whole text is one),
    // and a zero pair separator never ends one either, though the value after
    // a key still ends at a zero byte.
    if (length == 0) return;
    for (std::size_t start = 0;;) {
        const std::size_t pair_end =
            pair_separator != '\0' ? first_in(pair_separator, start, length) : length;
        const std::size_t key_end =
            key_value_separator != '\0' ? first_in(key_value_separator, start, pair_end) : length;
        const std::size_t value_end =
            key_end < length ? first_in(pair_separator, key_end, length) : length;
        const url_range value = key_end + 1 < value_end ? url_range{key_end + 1, value_end}
                                                        : url_range{value_end, value_end};
        map.insert_or_assign(range_text(text, {start, key_end}, decode),
                             range_text(text, value, decode));
        if (value_end == length) return;
        start = value_end + 1;
    }
}

void kvmap_join(std::string& out, const std::map<std::string, std::string>& map, bool encode,
                char pair_separator, char key_value_separator) {
    const auto append = [&](const std::string& text) {
        if (encode)
            url_encode_append(out, text, true);
        else
            out += text;
    };
    for (const auto& [key, value] : map) {
        if (!key.empty()) {
            if (!out.empty()) out += pair_separator;
            append(key);
        }
        if (!value.empty()) {
            out += key_value_separator;
            append(value);
        }
    }
}

}  // namespace url_detail

using url_detail::range_text;
using url_detail::split_parts;
using url_detail::split_with;

std::string url_scheme(const std::string& url, bool decode) {
    return range_text(
        url, split_with<url_detail::kSchemeGroup>(url, url_detail::prefix_finder(url)).scheme,
        decode);
}

std::string url_fragment(const std::string& url, bool decode) {
    // One search for the first "#": nothing to gain from the masks.
    return range_text(
        url, split_with<url_detail::kFragmentGroup>(url, url_detail::text_finder(url)).fragment,
        decode);
}

// The getters that take one part from the masks' split: each names the
// group of delimiters its part needs.
#define KT_URL_PART_GETTER(part, group)                                           \
    std::string url_##part(const std::string& url, bool decode) {                 \
        return range_text(url, split_parts<url_detail::group>(url).part, decode); \
    }
KT_URL_PART_GETTER(authority, kAuthorityGroup)
KT_URL_PART_GETTER(path, kPathGroup)
KT_URL_PART_GETTER(params, kPathGroup)
KT_URL_PART_GETTER(query, kPathGroup)
KT_URL_PART_GETTER(domain, kAuthorityPartsGroup)
KT_URL_PART_GETTER(user, kAuthorityPartsGroup)
KT_URL_PART_GETTER(password, kAuthorityPartsGroup)
KT_URL_PART_GETTER(host, kAuthorityPartsGroup)
KT_URL_PART_GETTER(service, kAuthorityPartsGroup)
#undef KT_URL_PART_GETTER

void url_query_kvmap(std::map<std::string, std::string>& map, const std::string& url, bool decode,
                     char pair_separator, char key_value_separator) {
    url_detail::kvmap_split(map, url_query(url, false), decode, pair_separator,
                            key_value_separator);
}

void url_params_kvmap(std::map<std::string, std::string>& map, const std::string& url, bool decode,
                      char pair_separator, char key_value_separator) {
    url_detail::kvmap_split(map, url_params(url, false), decode, pair_separator,
                            key_value_separator);
}

void url_fragment_kvmap(std::map<std::string, std::string>& map, const std::string& url,
                        bool decode, char pair_separator, char key_value_separator) {
    url_detail::kvmap_split(map, url_fragment(url, false), decode, pair_separator,
                            key_value_separator);
}

std::map<std::string, std::string> url_query_kvmap(const std::string& url, bool decode,
                                                   char pair_separator, char key_value_separator) {
    std::map<std::string, std::string> map;
    url_query_kvmap(map, url, decode, pair_separator, key_value_separator);
    return map;
}

std::map<std::string, std::string> url_params_kvmap(const std::string& url, bool decode,
                                                    char pair_separator, char key_value_separator) {
    std::map<std::string, std::string> map;
    url_params_kvmap(map, url, decode, pair_separator, key_value_separator);
    return map;
}

std::map<std::string, std::string> url_fragment_kvmap(const std::string& url, bool decode,
                                                      char pair_separator,
                                                      char key_value_separator) {
    std::map<std::string, std::string> map;
    url_fragment_kvmap(map, url, decode, pair_separator, key_value_separator);
    return map;
}

}  // namespace ktbase
