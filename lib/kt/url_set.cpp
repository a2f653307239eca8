// Changing URL texts: replacing one component and the delimiters it needs.
//
// Every position comes from a scan of the string being changed, taken before
// the first change; each rule inserts at or after the positions it later
// uses, so no position ever lies past the end of the string.
#include "kt/url.h"

#include <utility>

#include "url_delimiters.h"
#include "url_internal.h"

namespace ktbase {

namespace {

using namespace url_detail;
using KeyValues = std::map<std::string, std::string>;
using Component = url_range url_parts::*;

bool byte_before_is(const std::string& url, std::size_t position, char c) {
    return position > 0 && url[position - 1] == c;
}

// Text that would follow a new authority directly ("s:path", "s:80") must
// become a path, or it would read as part of the authority.
void make_room_for_path(std::string& url, std::size_t position) {
    if (position >= url.size()) return;
    const char next = url[position];
    if (next != kPathSeparator && next != kParamsStart && next != kQueryStart &&
        next != kFragmentStart)
        url.insert(position, 1, kPathSeparator);
}

// The value as it is to be inserted: a copy, so that the insertions made
// before it cannot change it even when it is `url` itself.
std::string inserted_text(const std::string& value, bool encode, bool escape_all_slashes) {
    return encode ? url_encode(value, escape_all_slashes) : value;
}

std::string joined(const KeyValues& map, bool encode, char pair_separator,
                   char key_value_separator) {
    std::string text;
    kvmap_join(text, map, encode, pair_separator, key_value_separator);
    return text;
}

// Params, query and fragment: a component after its delimiter, which is
// added with a new value and removed with the component.
std::string& set_delimited(std::string& url, Component component, char delimiter,
                           const std::string& text) {
    const url_range range = split_url(url).*component;
    if (text.empty()) {
        const std::size_t from =
            byte_before_is(url, range.begin, delimiter) ? range.begin - 1 : range.begin;
        url.erase(from, range.end - from);
        return url;
    }
    url.replace(range.begin, range.end - range.begin, text);
    // A present but empty component ("s://h/p?") keeps its delimiter.
    if (range.begin == range.end && !byte_before_is(url, range.begin, delimiter))
        url.insert(range.begin, 1, delimiter);
    return url;
}

// --- Parts of the authority: one skeleton, with the rules of each part.

enum class part { host, service, domain, user, password };

// Where a part lies, and the authority around it.
struct part_place {
    url_range authority;
    url_range part;
};

part_place place_of(part which, const std::string& url) {
    // In the order of the enumeration.
    static constexpr Component kComponents[] = {&url_parts::host, &url_parts::service,
                                                 &url_parts::domain, &url_parts::user,
                                                 &url_parts::password};
    const url_parts parts = split_url(url);
    return {parts.authority, parts.*kComponents[static_cast<int>(which)]};
}

// Bytes that already end an empty userinfo part (domain, user or password),
// so it needs no "@" of its own: the ";" of a domain, the ":" or "@" after a
// user, the "@" after a password.
bool already_delimited(part which, char c) {
    if (which == part::domain) return c == kDomainEnd;
    return c == kUserinfoEnd || (which == part::user && c == kPasswordStart);
}

// Before a value goes in: the delimiters that follow the part. Inserts only
// at or after the part's end, so its place stays valid.
void prepare(part which, std::string& url, const part_place& at) {
    const bool at_authority_end = at.part.begin == at.authority.end;
    if (which == part::host || which == part::service) {
        if (at_authority_end) make_room_for_path(url, at.part.begin);
        return;
    }
    // A userinfo part that is missing gets the "@" ending the userinfo (and
    // a domain its ";"), unless what follows already ends it.
    if (at.part.begin != at.part.end) return;
    if (!at_authority_end && already_delimited(which, url[at.part.begin])) return;
    if (at_authority_end) make_room_for_path(url, at.part.begin);
    if (which == part::domain) {
        const std::size_t userinfo_end = url.find(kUserinfoEnd, at.part.end);
        if (userinfo_end == std::string::npos || userinfo_end > at.authority.end)
            url.insert(at.part.end, 1, kUserinfoEnd);
        url.insert(at.part.end, 1, kDomainEnd);
        return;
    }
    url.insert(at.part.end, 1, kUserinfoEnd);
}

// After the value went in at the part's start: the delimiters in front of
// it. At the start of the authority these include the "//" when it is
// missing.
void complete(part which, std::string& url, const part_place& at) {
    const std::size_t begin = at.part.begin;
    const bool after_colon = which == part::service || which == part::password;
    if (begin != at.authority.begin) {
        const char leading =
            which == part::host ? kUserinfoEnd : after_colon ? kServiceStart : '\0';
        if (leading != '\0' && !byte_before_is(url, begin, leading)) url.insert(begin, 1, leading);
        return;
    }
    if (after_colon) url.insert(begin, 1, kServiceStart);
    if (!byte_before_is(url, begin, kPathSeparator)) url.insert(begin, "//");
}

// What goes when a part is set to "": the part, with the delimiter that
// belongs to it, or with the "//" when nothing else is left of the authority.
url_range erased(part which, const std::string& url, const part_place& at) {
    const url_range alone = at.part;
    const bool starts_authority = at.part.begin == at.authority.begin;
    const bool ends_authority = at.part.end == at.authority.end;
    const url_range with_slashes = byte_before_is(url, alone.begin, kPathSeparator)
                                       ? url_range{alone.begin - 2, alone.end}
                                       : alone;
    const url_range with_colon = byte_before_is(url, alone.begin, kServiceStart)
                                     ? url_range{alone.begin - 1, alone.end}
                                     : alone;
    const auto followed_by = [&](char c) {
        return url[alone.end] == c ? url_range{alone.begin, alone.end + 1} : alone;
    };
    switch (which) {
        case part::host: return ends_authority ? with_slashes : alone;
        case part::service: return starts_authority ? with_slashes : with_colon;
        case part::domain: return ends_authority ? with_slashes : followed_by(kDomainEnd);
        case part::user:
            if (!starts_authority) return alone;
            return ends_authority ? with_slashes : followed_by(kUserinfoEnd);
        default: return ends_authority ? with_slashes : with_colon;  // the password
    }
}

std::string& set_part(std::string& url, part which, const std::string& text) {
    const part_place at = place_of(which, url);
    if (text.empty()) {
        if (at.part.begin == 0) return url;
        const url_range gone = erased(which, url, at);
        url.erase(gone.begin, gone.end - gone.begin);
        return url;
    }
    prepare(which, url, at);
    url.replace(at.part.begin, at.part.end - at.part.begin, text);
    complete(which, url, at);
    return url;
}

}  // namespace

std::string& url_set_scheme(std::string& url, const std::string& value, bool encode) {
    const std::string text = inserted_text(value, encode, true);
    const url_range scheme = split_url(url).scheme;
    // A ":" after the range: a scheme, possibly an empty one (":x").
    const bool has_colon = scheme.end < url.size() && url[scheme.end] == kSchemeEnd;
    if (text.empty()) {
        if (has_colon) url.erase(0, scheme.end + 1);
        return url;
    }
    if (!has_colon) url.insert(0, 1, kSchemeEnd);
    url.replace(0, scheme.end, text);
    return url;
}

std::string& url_set_authority(std::string& url, const std::string& value, bool encode) {
    const std::string text = inserted_text(value, encode, true);
    const url_range authority = split_url(url).authority;
    if (text.empty()) {
        const std::size_t from = byte_before_is(url, authority.begin, kPathSeparator)
                                     ? authority.begin - 2
                                     : authority.begin;
        url.erase(from, authority.end - from);
        return url;
    }
    const bool was_empty = authority.begin == authority.end;
    if (was_empty) make_room_for_path(url, authority.end);
    url.replace(authority.begin, authority.end - authority.begin, text);
    if (was_empty && !byte_before_is(url, authority.begin, kPathSeparator))
        url.insert(authority.begin, "//");
    return url;
}

std::string& url_set_path(std::string& url, const std::string& value, bool encode) {
    // Only repeated slashes are escaped: they would read as an authority.
    const std::string text = inserted_text(value, encode, false);
    const url_range path = split_url(url).path;
    url.replace(path.begin, path.end - path.begin, text);
    // After an authority a path needs its "/"; after a scheme's ":" or at
    // the start it may be relative.
    if (!text.empty() && path.begin > 0 && url[path.begin - 1] != kSchemeEnd &&
        text[0] != kPathSeparator)
        url.insert(path.begin, 1, kPathSeparator);
    return url;
}

// The setters of a part that a delimiter starts ("?" for the query).
#define KT_URL_SET_DELIMITED(name, start)                                                       \
    std::string& url_set_##name(std::string& url, const std::string& value, bool encode) {      \
        return set_delimited(url, &url_parts::name, start, inserted_text(value, encode, true)); \
    }
KT_URL_SET_DELIMITED(params, kParamsStart)
KT_URL_SET_DELIMITED(query, kQueryStart)
KT_URL_SET_DELIMITED(fragment, kFragmentStart)
#undef KT_URL_SET_DELIMITED

std::string& url_set_params(std::string& url, const KeyValues& map, bool encode,
                            char pair_separator, char key_value_separator) {
    // Unlike url_new_params(), the in-place form encodes the joined text once
    // more as a whole, separators included ("a=1" becomes "a%3d1"): the two
    // differ on purpose (see kt/url.h).
    const std::string text = joined(map, encode, pair_separator, key_value_separator);
    return set_delimited(url, &url_parts::params, kParamsStart, url_encode(text, true));
}

std::string& url_set_query(std::string& url, const KeyValues& map, bool encode,
                           char pair_separator, char key_value_separator) {
    return set_delimited(url, &url_parts::query, kQueryStart,
                         joined(map, encode, pair_separator, key_value_separator));
}

std::string& url_set_fragment(std::string& url, const KeyValues& map, bool encode,
                              char pair_separator, char key_value_separator) {
    return set_delimited(url, &url_parts::fragment, kFragmentStart,
                         joined(map, encode, pair_separator, key_value_separator));
}

// The setters of a part of the authority.
#define KT_URL_SET_AUTHORITY_PART(name)                                                    \
    std::string& url_set_##name(std::string& url, const std::string& value, bool encode) { \
        return set_part(url, part::name, inserted_text(value, encode, true));              \
    }
KT_URL_SET_AUTHORITY_PART(host)
KT_URL_SET_AUTHORITY_PART(service)
KT_URL_SET_AUTHORITY_PART(domain)
KT_URL_SET_AUTHORITY_PART(user)
KT_URL_SET_AUTHORITY_PART(password)
#undef KT_URL_SET_AUTHORITY_PART

// Each url_new_<part>() sets the part on a copy of the URL and returns it.
#define KT_URL_NEW(name)                                                                        \
    std::string url_new_##name(const std::string& url, const std::string& value, bool encode) { \
        std::string copy(url);                                                                  \
        return std::move(url_set_##name(copy, value, encode));                                  \
    }
#define KT_URL_NEW_FROM_MAP(name)                                                                 \
    std::string url_new_##name(const std::string& url, const KeyValues& map, bool encode,         \
                               char pair_separator, char key_value_separator) {                   \
        std::string copy(url);                                                                    \
        return std::move(url_set_##name(copy, map, encode, pair_separator, key_value_separator)); \
    }
KT_URL_NEW(scheme)
KT_URL_NEW(authority)
KT_URL_NEW(path)
KT_URL_NEW(params)
KT_URL_NEW(query)
KT_URL_NEW(fragment)
KT_URL_NEW(host)
KT_URL_NEW(service)
KT_URL_NEW(domain)
KT_URL_NEW(user)
KT_URL_NEW(password)
KT_URL_NEW_FROM_MAP(query)
KT_URL_NEW_FROM_MAP(fragment)
#undef KT_URL_NEW
#undef KT_URL_NEW_FROM_MAP

std::string url_new_params(const std::string& url, const KeyValues& map, bool encode,
                           char pair_separator, char key_value_separator) {
    // Unlike url_set_params() with a map, the joined text is not encoded again.
    std::string copy(url);
    return std::move(set_delimited(copy, &url_parts::params, kParamsStart,
                                   joined(map, encode, pair_separator, key_value_separator)));
}

}  // namespace ktbase
