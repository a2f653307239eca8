// Reading URL texts: the splitting steps, the component getters and the
// key/value maps.
#include "kt/url.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>

#include "url_internal.h"
#include "url_kernels.h"

namespace ktbase {
namespace url_detail {

namespace {

constexpr std::size_t npos = std::string::npos;

// std::string::find_first_of for a set of a few bytes given as a C string,
// with one memchr() per byte of the set (each bounded by the best match so
// far) instead of one per byte of the text: long texts are searched at
// memchr() speed.
std::size_t find_any(const std::string& text, std::size_t from, const char* set) {
    std::size_t best = text.size();
    for (; *set != '\0' && from < best; ++set) {
        const void* hit = std::memchr(text.data() + from, *set, best - from);
        if (hit != nullptr) best = std::size_t(static_cast<const char*>(hit) - text.data());
    }
    return best == text.size() ? npos : best;
}

// A found position counts only when it lies before the scan state's end
// (npos, "not found", never does).
inline bool found_before(std::size_t position, std::size_t end) { return position < end; }

// Cuts off the component that follows the first `delimiter` in the state:
// the state ends at the delimiter; without one the component is empty, at
// the state's end.
url_range cut_trailing(const std::string& url, url_range& state, char delimiter) {
    const std::size_t at = url.find(delimiter, state.begin);
    if (!found_before(at, state.end)) return {state.end, state.end};
    const url_range component{at + 1, state.end};
    state.end = at;
    return component;
}

}  // namespace

url_range split_fragment(const std::string& url, url_range& state) {
    return cut_trailing(url, state, '#');
}

url_range split_scheme(const std::string& url, url_range& state) {
    split_fragment(url, state);
    // A "/" before any ":" means a relative reference: its ":" belongs to the
    // path ("/a:b").
    const std::size_t at = find_any(url, state.begin, ":/");
    if (!found_before(at, state.end) || url[at] != ':') return {0, 0};
    state.begin = at + 1;
    return {0, at};
}

url_range split_authority(const std::string& url, url_range& state) {
    split_scheme(url, state);
    const std::size_t b = state.begin;
    if (state.end - b < 2 || url[b] != '/' || url[b + 1] != '/') return {b, b};
    const std::size_t a = b + 2;
    // The first "/" ends the authority, even after a ";" or "?" ("s://h?x=/y"
    // has the authority "h?x="); only when an "@" comes first do ";" and "?"
    // after it end the host. Without either, ";" or "?" ends it.
    std::size_t t = find_any(url, a, "@/");
    if (t == npos)
        t = find_any(url, a, ";?");
    else if (url[t] == '@')
        t = find_any(url, t + 1, "/;?");
    // A terminator inside the fragment leaves the authority empty and its text
    // to the path: the searches ran over the whole text on purpose.
    if (t == npos)
        t = state.end;
    else if (t >= state.end)
        t = a;
    state.begin = t;
    return {a, t};
}

url_range split_query(const std::string& url, url_range& state) {
    split_authority(url, state);
    return cut_trailing(url, state, '?');
}

url_range split_params(const std::string& url, url_range& state) {
    split_query(url, state);
    return cut_trailing(url, state, ';');
}

url_range split_path(const std::string& url, url_range& state) {
    split_params(url, state);
    return state;
}

url_range split_userinfo(const std::string& url, url_range& state) {
    const std::size_t at = url.find('@', state.begin);
    if (!found_before(at, state.end)) {
        const url_range host_and_port = state;
        state.end = state.begin;
        return host_and_port;
    }
    const url_range host_and_port{at + 1, state.end};
    state.end = at;
    return host_and_port;
}

url_range split_service(const std::string& url, url_range& state) {
    state = split_userinfo(url, state);
    return cut_trailing(url, state, ':');
}

url_range split_host(const std::string& url, url_range& state) {
    split_service(url, state);
    return state;
}

url_range split_domain(const std::string& url, url_range& state) {
    split_userinfo(url, state);
    const std::size_t at = url.find(';', state.begin);
    if (!found_before(at, state.end)) return {state.begin, state.begin};
    const url_range domain{state.begin, at};
    state.begin = at + 1;
    return domain;
}

url_range split_password(const std::string& url, url_range& state) {
    split_domain(url, state);
    return cut_trailing(url, state, ':');
}

url_range split_user(const std::string& url, url_range& state) {
    split_password(url, state);
    return state;
}

// ---------------------------------------------------------------------------
// The chain in one pass, for the getters and split_url(). The searches are
// the steps' own, in the same order and over the same bytes; they only go
// through a finder, which either searches the text (any length) or reads
// bit masks of where the delimiters lie (texts of up to
// delimiter_masks::kMaxLength bytes, made by one vector pass).

namespace {

// The bytes of a delimiter set, as a C string for find_any().
template <unsigned Set>
constexpr std::array<char, kDelimiterCount + 1> bytes_of() {
    std::array<char, kDelimiterCount + 1> bytes{};
    int count = 0;
    for (int d = 0; d < kDelimiterCount; ++d)
        if (Set & (1u << d)) bytes[count++] = kDelimiterBytes[d];
    return bytes;
}

template <unsigned Set>
constexpr std::array<char, kDelimiterCount + 1> kBytesOf = bytes_of<Set>();

// Searches the text itself: the plain path, for texts of any length.
class text_finder {
public:
    explicit text_finder(const std::string& text) : text_(text) {}

    /// The first position at or after `from` that holds a byte of `Set`, or
    /// npos.
    template <unsigned Set>
    std::size_t find(std::size_t from) const {
        return find_any(text_, from, kBytesOf<Set>.data());
    }

private:
    const std::string& text_;
};

// Reads the delimiter masks of a short text: each search is a few bit
// operations on a word or two.
class mask_finder {
public:
    mask_finder(const delimiter_masks& masks, std::size_t length)
        : masks_(masks), words_((length + 63) / 64) {}

    template <unsigned Set>
    std::size_t find(std::size_t from) const {
        std::size_t w = from / 64;
        if (w >= words_) return npos;
        std::uint64_t bits = word<Set>(w) & (~std::uint64_t(0) << (from % 64));
        while (bits == 0) {
            if (++w == words_) return npos;
            bits = word<Set>(w);
        }
        return w * 64 + std::size_t(__builtin_ctzll(bits));
    }

private:
    template <unsigned Set>
    std::uint64_t word(std::size_t w) const {
        std::uint64_t bits = 0;
        for (int d = 0; d < kDelimiterCount; ++d)
            if (Set & (1u << d)) bits |= masks_.rows[d][w];
        return bits;
    }

    const delimiter_masks& masks_;
    std::size_t words_;
};

// Which parts of the chain to run after the top-level steps up to the
// authority, which always run.
enum chain_part : unsigned {
    kPathPart = 1,       // query, params, path
    kAuthorityPart = 2,  // userinfo, service, host, domain, password, user
    kWholeChain = kPathPart | kAuthorityPart,
};

// The steps of url_internal.h, one after the other on one scan state; the
// ranges of the parts not asked for are left alone. Inlined into each getter,
// which then computes and stores only what it returns.
template <unsigned Parts, class Finder>
__attribute__((always_inline)) inline void split_with(const std::string& url, const Finder& finder,
                                                       url_parts& parts) {
    const char* s = url.data();
    const std::size_t n = url.size();
    // split_fragment
    std::size_t end = finder.template find<kHash>(0);
    if (end == npos) {
        end = n;
        parts.fragment = {n, n};
    } else {
        parts.fragment = {end + 1, n};
    }
    // split_scheme
    std::size_t begin = 0;
    const std::size_t colon = finder.template find<kColon | kSlash>(0);
    if (colon < end && s[colon] == ':') {
        parts.scheme = {0, colon};
        begin = colon + 1;
    } else {
        parts.scheme = {0, 0};
    }
    // split_authority
    if (end - begin >= 2 && s[begin] == '/' && s[begin + 1] == '/') {
        const std::size_t a = begin + 2;
        std::size_t t = finder.template find<kAt | kSlash>(a);
        if (t == npos)
            t = finder.template find<kSemicolon | kQuestion>(a);
        else if (s[t] == '@')
            t = finder.template find<kSlash | kSemicolon | kQuestion>(t + 1);
        if (t == npos)
            t = end;
        else if (t >= end)
            t = a;
        parts.authority = {a, t};
        begin = t;
    } else {
        parts.authority = {begin, begin};
    }
    if (Parts & kPathPart) {
        // split_query, split_params, split_path
        const std::size_t question = finder.template find<kQuestion>(begin);
        if (question < end) {
            parts.query = {question + 1, end};
            end = question;
        } else {
            parts.query = {end, end};
        }
        const std::size_t semicolon = finder.template find<kSemicolon>(begin);
        if (semicolon < end) {
            parts.params = {semicolon + 1, end};
            end = semicolon;
        } else {
            parts.params = {end, end};
        }
        parts.path = {begin, end};
    }
    if (Parts & kAuthorityPart) {
        // split_userinfo, then split_service and split_host on the host and
        // port, split_domain, split_password and split_user on the userinfo.
        const url_range authority = parts.authority;
        url_range userinfo{authority.begin, authority.begin}, host_and_port = authority;
        const std::size_t at = finder.template find<kAt>(authority.begin);
        if (at < authority.end) {
            userinfo.end = at;
            host_and_port.begin = at + 1;
        }
        const std::size_t port = finder.template find<kColon>(host_and_port.begin);
        if (port < host_and_port.end) {
            parts.host = {host_and_port.begin, port};
            parts.service = {port + 1, host_and_port.end};
        } else {
            parts.host = host_and_port;
            parts.service = {host_and_port.end, host_and_port.end};
        }
        std::size_t user = userinfo.begin;
        const std::size_t semicolon = finder.template find<kSemicolon>(user);
        if (semicolon < userinfo.end) {
            parts.domain = {user, semicolon};
            user = semicolon + 1;
        } else {
            parts.domain = {user, user};
        }
        const std::size_t password = finder.template find<kColon>(user);
        if (password < userinfo.end) {
            parts.user = {user, password};
            parts.password = {password + 1, userinfo.end};
        } else {
            parts.user = {user, userinfo.end};
            parts.password = {userinfo.end, userinfo.end};
        }
    }
}

// The parts of `url` that `Parts` asks for, by the masks for a short text.
template <unsigned Parts>
__attribute__((always_inline)) inline url_parts split_parts(const std::string& url) {
    url_parts parts;
    if (url.size() <= delimiter_masks::kMaxLength) {
        delimiter_masks masks;
        active_kernels().find_delimiters(url.data(), url.size(), masks);
        split_with<Parts>(url, mask_finder(masks, url.size()), parts);
    } else {
        split_with<Parts>(url, text_finder(url), parts);
    }
    return parts;
}

// The scheme alone: the first ":", "/" or "#" decides. A ":" before any "/"
// and "#" is the one split_scheme finds before the fragment; a "/" or "#"
// first, or none, leaves no scheme. A scheme is short: the first bytes are
// looked at one by one, and only a text without any of the three there is
// searched further.
url_range scheme_range(const std::string& url) {
    constexpr unsigned kEnds = kColon | kSlash | kHash;
    constexpr std::size_t kLookedAt = 24;
    const std::size_t n = url.size();
    const std::size_t first = std::min(n, kLookedAt);
    std::size_t at = 0;
    while (at < first && (kDelimiterOf[static_cast<unsigned char>(url[at])] & kEnds) == 0) ++at;
    if (at == first) at = n > first ? text_finder(url).find<kEnds>(first) : npos;
    if (at == npos || url[at] != ':') return {0, 0};
    return {0, at};
}

}  // namespace

url_parts split_url(const std::string& url) { return split_parts<kWholeChain>(url); }

url_range locate(const std::string& url, url_step step) {
    url_range state{0, url.size()};
    return step(url, state);
}

authority_part locate_in_authority(const std::string& url, url_step step) {
    const url_range authority = locate(url, split_authority);
    url_range state = authority;
    return {authority, step(url, state)};
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
        const std::size_t pair_end = pair_separator != '\0' ? first_in(pair_separator, start, length)
                                                            : length;
        const std::size_t key_end = key_value_separator != '\0'
                                        ? first_in(key_value_separator, start, pair_end)
                                        : length;
        const std::size_t value_end = key_end < length ? first_in(pair_separator, key_end, length)
                                                       : length;
        const url_range value =
            key_end + 1 < value_end ? url_range{key_end + 1, value_end} : url_range{value_end, value_end};
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

using url_detail::locate;
using url_detail::range_text;

std::string url_scheme(const std::string& url, bool decode) {
    return range_text(url, url_detail::scheme_range(url), decode);
}

std::string url_authority(const std::string& url, bool decode) {
    return range_text(url, url_detail::split_parts<0>(url).authority, decode);
}

std::string url_path(const std::string& url, bool decode) {
    return range_text(url, url_detail::split_parts<url_detail::kPathPart>(url).path, decode);
}

std::string url_params(const std::string& url, bool decode) {
    return range_text(url, url_detail::split_parts<url_detail::kPathPart>(url).params, decode);
}

std::string url_query(const std::string& url, bool decode) {
    return range_text(url, url_detail::split_parts<url_detail::kPathPart>(url).query, decode);
}

std::string url_fragment(const std::string& url, bool decode) {
    // One search for the first "#": nothing to gain from the masks.
    return range_text(url, locate(url, url_detail::split_fragment), decode);
}

std::string url_domain(const std::string& url, bool decode) {
    return range_text(url, url_detail::split_parts<url_detail::kAuthorityPart>(url).domain,
                      decode);
}

std::string url_user(const std::string& url, bool decode) {
    return range_text(url, url_detail::split_parts<url_detail::kAuthorityPart>(url).user, decode);
}

std::string url_password(const std::string& url, bool decode) {
    return range_text(url, url_detail::split_parts<url_detail::kAuthorityPart>(url).password,
                      decode);
}

std::string url_host(const std::string& url, bool decode) {
    return range_text(url, url_detail::split_parts<url_detail::kAuthorityPart>(url).host, decode);
}

std::string url_service(const std::string& url, bool decode) {
    return range_text(url, url_detail::split_parts<url_detail::kAuthorityPart>(url).service,
                      decode);
}

void url_query_kvmap(std::map<std::string, std::string>& map, const std::string& url,
                     bool decode, char pair_separator, char key_value_separator) {
    url_detail::kvmap_split(map, url_query(url, false), decode, pair_separator,
                            key_value_separator);
}

void url_params_kvmap(std::map<std::string, std::string>& map, const std::string& url,
                      bool decode, char pair_separator, char key_value_separator) {
    url_detail::kvmap_split(map, url_params(url, false), decode, pair_separator,
                            key_value_separator);
}

void url_fragment_kvmap(std::map<std::string, std::string>& map, const std::string& url,
                        bool decode, char pair_separator, char key_value_separator) {
    url_detail::kvmap_split(map, url_fragment(url, false), decode, pair_separator,
                            key_value_separator);
}

std::map<std::string, std::string> url_query_kvmap(const std::string& url, bool decode,
                                                   char pair_separator,
                                                   char key_value_separator) {
    std::map<std::string, std::string> map;
    url_query_kvmap(map, url, decode, pair_separator, key_value_separator);
    return map;
}

std::map<std::string, std::string> url_params_kvmap(const std::string& url, bool decode,
                                                    char pair_separator,
                                                    char key_value_separator) {
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
