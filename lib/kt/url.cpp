// Reading URL texts: the splitting steps, the component getters and the
// key/value maps.
#include "kt/url.h"

#include <algorithm>
#include <cstring>

#include "url_internal.h"

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
    const std::size_t n = text.size();
    if (n == 0) return;
    // As a C string: a zero key/value separator empties the set (the whole
    // text is one key), a zero pair separator leaves only the other in it.
    const char separators[] = {key_value_separator, pair_separator, '\0'};
    std::size_t start = 0;
    for (;;) {
        std::size_t k = find_any(text, start, separators);
        std::size_t v = n;
        if (k == npos)
            k = n;
        else
            v = std::min(text.find(pair_separator, k), n);
        const url_range value = k + 1 < v ? url_range{k + 1, v} : url_range{v, v};
        map.insert_or_assign(range_text(text, {start, k}, decode),
                             range_text(text, value, decode));
        if (v >= n) return;
        start = v + 1;
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
using url_detail::locate_in_authority;
using url_detail::range_text;

std::string url_scheme(const std::string& url, bool decode) {
    return range_text(url, locate(url, url_detail::split_scheme), decode);
}

std::string url_authority(const std::string& url, bool decode) {
    return range_text(url, locate(url, url_detail::split_authority), decode);
}

std::string url_path(const std::string& url, bool decode) {
    return range_text(url, locate(url, url_detail::split_path), decode);
}

std::string url_params(const std::string& url, bool decode) {
    return range_text(url, locate(url, url_detail::split_params), decode);
}

std::string url_query(const std::string& url, bool decode) {
    return range_text(url, locate(url, url_detail::split_query), decode);
}

std::string url_fragment(const std::string& url, bool decode) {
    return range_text(url, locate(url, url_detail::split_fragment), decode);
}

std::string url_domain(const std::string& url, bool decode) {
    return range_text(url, locate_in_authority(url, url_detail::split_domain).part, decode);
}

std::string url_user(const std::string& url, bool decode) {
    return range_text(url, locate_in_authority(url, url_detail::split_user).part, decode);
}

std::string url_password(const std::string& url, bool decode) {
    return range_text(url, locate_in_authority(url, url_detail::split_password).part, decode);
}

std::string url_host(const std::string& url, bool decode) {
    return range_text(url, locate_in_authority(url, url_detail::split_host).part, decode);
}

std::string url_service(const std::string& url, bool decode) {
    return range_text(url, locate_in_authority(url, url_detail::split_service).part, decode);
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
