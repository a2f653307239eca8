// Changing URL texts: replacing one component and the delimiters it needs.
//
// Every position comes from a scan of the string being changed, taken before
// the first change; each rule inserts at or after the positions it later
// uses, so no position ever lies past the end of the string.
#include "kt/url.h"

#include <utility>

#include "url_internal.h"

namespace ktbase {

namespace {

using url_detail::url_range;
using url_detail::url_step;
using KeyValues = std::map<std::string, std::string>;

bool byte_before_is(const std::string& url, std::size_t position, char c) {
    return position > 0 && url[position - 1] == c;
}

bool is_path_delimiter(char c) { return c == '/' || c == ';' || c == '?' || c == '#'; }

// Text that would follow a new authority directly ("s:path", "s:80") must
// become a path, or it would read as part of the authority.
void make_room_for_path(std::string& url, std::size_t position) {
    if (position < url.size() && !is_path_delimiter(url[position])) url.insert(position, 1, '/');
}

// The value as it is to be inserted: a copy, so that the insertions made
// before it cannot change it even when it is `url` itself.
std::string inserted_text(const std::string& value, bool encode, bool escape_all_slashes) {
    return encode ? url_encode(value, escape_all_slashes) : value;
}

std::string joined(const KeyValues& map, bool encode, char pair_separator,
                   char key_value_separator) {
    std::string text;
    url_detail::kvmap_join(text, map, encode, pair_separator, key_value_separator);
    return text;
}

// Params, query and fragment: a component after its delimiter, which is
// added with a new value and removed with the component.
std::string& set_delimited(std::string& url, url_step step, char delimiter,
                           const std::string& text) {
    const url_range r = url_detail::locate(url, step);
    if (text.empty()) {
        const std::size_t from = byte_before_is(url, r.begin, delimiter) ? r.begin - 1 : r.begin;
        url.erase(from, r.end - from);
        return url;
    }
    url.replace(r.begin, r.end - r.begin, text);
    // A present but empty component ("s://h/p?") keeps its delimiter.
    if (r.begin == r.end && !byte_before_is(url, r.begin, delimiter))
        url.insert(r.begin, 1, delimiter);
    return url;
}

// --- Parts of the authority: one skeleton, with the rules of each part.

enum class part { host, service, domain, user, password };

// Where a part lies: a and t bound the authority, x0 and x1 the part.
struct place {
    std::size_t a, t, x0, x1;
};

url_step step_of(part which) {
    // In the order of the enumeration.
    static constexpr url_step steps[] = {url_detail::split_host, url_detail::split_service,
                                         url_detail::split_domain, url_detail::split_user,
                                         url_detail::split_password};
    return steps[static_cast<int>(which)];
}

// Bytes that already end an empty userinfo part, so it needs no "@" of its
// own: the ";" of a domain, the ":" or "@" after a user, the "@" after a
// password.
bool already_delimited(part which, char c) {
    switch (which) {
        case part::domain: return c == ';';
        case part::user: return c == ':' || c == '@';
        case part::password: return c == '@';
        default: return false;
    }
}

// Before a value goes in: the delimiters that follow the part. Inserts only
// at or after x1, so the part's place stays valid.
void prepare(part which, std::string& url, const place& at) {
    if (which == part::host || which == part::service) {
        if (at.x0 == at.t) make_room_for_path(url, at.x0);
        return;
    }
    // A userinfo part that is missing gets the "@" ending the userinfo (and
    // a domain its ";"), unless what follows already ends it.
    if (at.x0 != at.x1) return;
    if (at.x0 != at.t && already_delimited(which, url[at.x0])) return;
    if (at.x0 == at.t) make_room_for_path(url, at.x0);
    if (which == part::domain) {
        const std::size_t userinfo_end = url.find('@', at.x1);
        if (userinfo_end == std::string::npos || userinfo_end > at.t)
            url.insert(at.x1, 1, '@');
        url.insert(at.x1, 1, ';');
        return;
    }
    url.insert(at.x1, 1, '@');
}

// After the value went in at x0: the delimiters in front of it. At the
// start of the authority these include the "//" when it is missing.
void complete(part which, std::string& url, const place& at) {
    const bool after_colon = which == part::service || which == part::password;
    if (at.x0 != at.a) {
        const char leading = which == part::host ? '@' : after_colon ? ':' : '\0';
        if (leading != '\0' && !byte_before_is(url, at.x0, leading))
            url.insert(at.x0, 1, leading);
        return;
    }
    if (after_colon) url.insert(at.x0, 1, ':');
    if (!byte_before_is(url, at.x0, '/')) url.insert(at.x0, "//");
}

// What goes when a part is set to "": the part, with the delimiter that
// belongs to it, or with the "//" when nothing else is left of the authority.
url_range erased(part which, const std::string& url, const place& at) {
    const url_range alone{at.x0, at.x1};
    const url_range with_slashes =
        byte_before_is(url, at.x0, '/') ? url_range{at.x0 - 2, at.x1} : alone;
    const url_range with_colon =
        byte_before_is(url, at.x0, ':') ? url_range{at.x0 - 1, at.x1} : alone;
    const auto followed_by = [&](char c) {
        return url[at.x1] == c ? url_range{at.x0, at.x1 + 1} : alone;
    };
    if (which == part::host) return at.x1 == at.t ? with_slashes : alone;
    if (which == part::service) return at.x0 == at.a ? with_slashes : with_colon;
    if (which == part::domain) return at.x1 < at.t ? followed_by(';') : with_slashes;
    if (which == part::user) {
        if (at.x0 != at.a) return alone;
        return at.x1 < at.t ? followed_by('@') : with_slashes;
    }
    return at.x1 == at.t ? with_slashes : with_colon;  // the password
}

std::string& set_part(std::string& url, part which, const std::string& text) {
    const url_detail::authority_part found = url_detail::locate_in_authority(url, step_of(which));
    const place at{found.authority.begin, found.authority.end, found.part.begin, found.part.end};
    if (text.empty()) {
        if (at.x0 == 0) return url;
        const url_range gone = erased(which, url, at);
        url.erase(gone.begin, gone.end - gone.begin);
        return url;
    }
    prepare(which, url, at);
    url.replace(at.x0, at.x1 - at.x0, text);
    complete(which, url, at);
    return url;
}

}  // namespace

std::string& url_set_scheme(std::string& url, const std::string& value, bool encode) {
    const std::string text = inserted_text(value, encode, true);
    url_range state{0, url.size()};
    const url_range scheme = url_detail::split_scheme(url, state);
    // The step moved the state past a ":" (possibly of an empty scheme).
    const bool has_colon = state.begin > 0;
    if (text.empty()) {
        if (has_colon) url.erase(0, state.begin);
        return url;
    }
    if (!has_colon) url.insert(0, 1, ':');
    url.replace(0, scheme.end, text);
    return url;
}

std::string& url_set_authority(std::string& url, const std::string& value, bool encode) {
    const std::string text = inserted_text(value, encode, true);
    const url_range r = url_detail::locate(url, url_detail::split_authority);
    if (text.empty()) {
        const std::size_t from = byte_before_is(url, r.begin, '/') ? r.begin - 2 : r.begin;
        url.erase(from, r.end - from);
        return url;
    }
    const bool was_empty = r.begin == r.end;
    if (was_empty) make_room_for_path(url, r.end);
    url.replace(r.begin, r.end - r.begin, text);
    if (was_empty && !byte_before_is(url, r.begin, '/')) url.insert(r.begin, "//");
    return url;
}

std::string& url_set_path(std::string& url, const std::string& value, bool encode) {
    // Only repeated slashes are escaped: they would read as an authority.
    const std::string text = inserted_text(value, encode, false);
    const url_range r = url_detail::locate(url, url_detail::split_path);
    url.replace(r.begin, r.end - r.begin, text);
    // After an authority a path needs its "/"; after a scheme's ":" or at
    // the start it may be relative.
    if (!text.empty() && r.begin > 0 && url[r.begin - 1] != ':' && text[0] != '/')
        url.insert(r.begin, 1, '/');
    return url;
}

std::string& url_set_params(std::string& url, const std::string& value, bool encode) {
    return set_delimited(url, url_detail::split_params, ';', inserted_text(value, encode, true));
}

std::string& url_set_query(std::string& url, const std::string& value, bool encode) {
    return set_delimited(url, url_detail::split_query, '?', inserted_text(value, encode, true));
}

std::string& url_set_fragment(std::string& url, const std::string& value, bool encode) {
    return set_delimited(url, url_detail::split_fragment, '#', inserted_text(value, encode, true));
}

std::string& url_set_params(std::string& url, const KeyValues& map, bool encode,
                            char pair_separator, char key_value_separator) {
    // Unlike url_new_params(), the in-place form encodes the joined text once
    // more as a whole, separators included ("a=1" becomes "a%3d1"): the two
    // differ on purpose (see kt/url.h).
    const std::string text = joined(map, encode, pair_separator, key_value_separator);
    return set_delimited(url, url_detail::split_params, ';', url_encode(text, true));
}

std::string& url_set_query(std::string& url, const KeyValues& map, bool encode,
                           char pair_separator, char key_value_separator) {
    return set_delimited(url, url_detail::split_query, '?',
                         joined(map, encode, pair_separator, key_value_separator));
}

std::string& url_set_fragment(std::string& url, const KeyValues& map, bool encode,
                              char pair_separator, char key_value_separator) {
    return set_delimited(url, url_detail::split_fragment, '#',
                         joined(map, encode, pair_separator, key_value_separator));
}

std::string& url_set_host(std::string& url, const std::string& value, bool encode) {
    return set_part(url, part::host, inserted_text(value, encode, true));
}

std::string& url_set_service(std::string& url, const std::string& value, bool encode) {
    return set_part(url, part::service, inserted_text(value, encode, true));
}

std::string& url_set_domain(std::string& url, const std::string& value, bool encode) {
    return set_part(url, part::domain, inserted_text(value, encode, true));
}

std::string& url_set_user(std::string& url, const std::string& value, bool encode) {
    return set_part(url, part::user, inserted_text(value, encode, true));
}

std::string& url_set_password(std::string& url, const std::string& value, bool encode) {
    return set_part(url, part::password, inserted_text(value, encode, true));
}

std::string url_new_scheme(const std::string& url, const std::string& value, bool encode) {
    std::string copy(url);
    return std::move(url_set_scheme(copy, value, encode));
}

std::string url_new_authority(const std::string& url, const std::string& value, bool encode) {
    std::string copy(url);
    return std::move(url_set_authority(copy, value, encode));
}

std::string url_new_path(const std::string& url, const std::string& value, bool encode) {
    std::string copy(url);
    return std::move(url_set_path(copy, value, encode));
}

std::string url_new_params(const std::string& url, const std::string& value, bool encode) {
    std::string copy(url);
    return std::move(url_set_params(copy, value, encode));
}

std::string url_new_query(const std::string& url, const std::string& value, bool encode) {
    std::string copy(url);
    return std::move(url_set_query(copy, value, encode));
}

std::string url_new_fragment(const std::string& url, const std::string& value, bool encode) {
    std::string copy(url);
    return std::move(url_set_fragment(copy, value, encode));
}

std::string url_new_params(const std::string& url, const KeyValues& map, bool encode,
                           char pair_separator, char key_value_separator) {
    // Unlike url_set_params() with a map, the joined text is not encoded again.
    std::string copy(url);
    return std::move(set_delimited(copy, url_detail::split_params, ';',
                                   joined(map, encode, pair_separator, key_value_separator)));
}

std::string url_new_query(const std::string& url, const KeyValues& map, bool encode,
                          char pair_separator, char key_value_separator) {
    std::string copy(url);
    return std::move(url_set_query(copy, map, encode, pair_separator, key_value_separator));
}

std::string url_new_fragment(const std::string& url, const KeyValues& map, bool encode,
                             char pair_separator, char key_value_separator) {
    std::string copy(url);
    return std::move(url_set_fragment(copy, map, encode, pair_separator, key_value_separator));
}

std::string url_new_host(const std::string& url, const std::string& value, bool encode) {
    std::string copy(url);
    return std::move(url_set_host(copy, value, encode));
}

std::string url_new_service(const std::string& url, const std::string& value, bool encode) {
    std::string copy(url);
    return std::move(url_set_service(copy, value, encode));
}

std::string url_new_domain(const std::string& url, const std::string& value, bool encode) {
    std::string copy(url);
    return std::move(url_set_domain(copy, value, encode));
}

std::string url_new_user(const std::string& url, const std::string& value, bool encode) {
    std::string copy(url);
    return std::move(url_set_user(copy, value, encode));
}

std::string url_new_password(const std::string& url, const std::string& value, bool encode) {
    std::string copy(url);
    return std::move(url_set_password(copy, value, encode));
}

}  // namespace ktbase
