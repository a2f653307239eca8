#include "url_reference.h"

#include <cstddef>

#include "KTURISchemes.h"
#include "hex_digits.h"
#include "kt/url.h"

namespace urlref {

namespace {

// A component with text is present; an empty one is present when clearing
// it takes a delimiter away ("s://h?" has an empty query, "s://h" none).
std::optional<std::string> present(const std::string& url, Getter get, Setter set) {
    std::string value = get(url, false);
    if (!value.empty() || set(url, "", false) != url) return value;
    return std::nullopt;
}

bool startsWith(std::string_view text, std::string_view prefix) {
    return text.substr(0, prefix.size()) == prefix;
}

// Drops the last segment of `out` and the "/" before it.
void dropLastSegment(std::string& out) {
    std::size_t slash = out.rfind('/');
    out.erase(slash == std::string::npos ? 0 : slash);
}

// Section 5.2.3: the reference's path after the base's up to its last "/".
std::string merge(const UrlParts& base, const std::string& path) {
    if (base.authority && base.path.empty()) return "/" + path;
    std::size_t slash = base.path.rfind('/');
    return slash == std::string::npos ? path : base.path.substr(0, slash + 1) + path;
}

bool isUnreserved(unsigned char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
           c == '.' || c == '_' || c == '~';
}

// Section 6.2.2.2 over the whole text: an escape of an unreserved byte
// becomes the byte, the others get upper-case hex digits. Decoding never
// makes a delimiter, so no component changes its bounds.
std::string normalizeEscapes(const std::string& url) {
    std::string out;
    out.reserve(url.size());
    for (std::size_t i = 0; i < url.size(); ++i) {
        int high = 0, low = 0;
        if (url[i] != '%' || i + 2 >= url.size() ||
            (high = KT::kHexDigitValues[static_cast<unsigned char>(url[i + 1])]) == KT::kNotHexDigit ||
            (low = KT::kHexDigitValues[static_cast<unsigned char>(url[i + 2])]) == KT::kNotHexDigit) {
            out += url[i];
            continue;
        }
        unsigned char byte = static_cast<unsigned char>(high * 16 + low);
        if (isUnreserved(byte)) {
            out += char(byte);
        } else {
            out += '%';
            out += KT::kUpperHexDigits[high];
            out += KT::kUpperHexDigits[low];
        }
        i += 2;
    }
    return out;
}

// ASCII letters in lower case, but not the hex digits of escapes, which
// normal form writes in upper case.
std::string lowerCase(std::string text) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%') i += 2;
        else if (text[i] >= 'A' && text[i] <= 'Z') text[i] = char(text[i] - 'A' + 'a');
    }
    return text;
}

// The port a scheme means when a URL names none; 0 for a scheme whose form
// has no default. https is not one of the URI descriptor's schemes.
unsigned defaultPort(const std::string& scheme) {
    if (scheme == "https") return 443;
    for (const KT::URIScheme& known : KT::kURISchemes)
        if (scheme == known.lowerCase) return known.defaultPort;
    return 0;
}

}  // namespace

UrlParts UrlParts::read(const std::string& url) {
    UrlParts parts;
    parts.scheme = present(url, ktbase::url_scheme, ktbase::url_new_scheme);
    parts.authority = present(url, ktbase::url_authority, ktbase::url_new_authority);
    parts.path = ktbase::url_path(url, false);
    if (auto params = present(url, ktbase::url_params, ktbase::url_new_params)) parts.path += ";" + *params;
    parts.query = present(url, ktbase::url_query, ktbase::url_new_query);
    parts.fragment = present(url, ktbase::url_fragment, ktbase::url_new_fragment);
    return parts;
}

std::string UrlParts::text() const {
    std::string out;
    if (scheme) out += *scheme + ":";
    if (authority) out += "//" + *authority;
    out += path;
    if (query) out += "?" + *query;
    if (fragment) out += "#" + *fragment;
    return out;
}

std::string removeDotSegments(std::string_view in) {
    std::string out;
    while (!in.empty()) {
        if (startsWith(in, "../")) {
            in.remove_prefix(3);
        } else if (startsWith(in, "./") || startsWith(in, "/./")) {
            in.remove_prefix(2);  // "./" goes, "/./" becomes "/"
        } else if (in == "/.") {
            in = "/";
        } else if (startsWith(in, "/../") || in == "/..") {
            in = in.size() == 3 ? std::string_view("/") : in.substr(3);
            dropLastSegment(out);
        } else if (in == "." || in == "..") {
            in = {};
        } else {
            std::size_t end = std::min(in.find('/', 1), in.size());
            out.append(in.substr(0, end));
            in.remove_prefix(end);
        }
    }
    return out;
}

std::string resolve(const UrlParts& base, const UrlParts& reference) {
    UrlParts target = reference;
    if (!reference.scheme) {
        target.scheme = base.scheme;
        if (!reference.authority) {
            target.authority = base.authority;
            if (reference.path.empty()) {
                target.path = base.path;
                if (!reference.query) target.query = base.query;
            } else if (reference.path[0] != '/') {
                target.path = merge(base, reference.path);
            }
        }
    }
    target.path = removeDotSegments(target.path);
    return target.text();
}

std::string normalize(const std::string& url) {
    std::string out = normalizeEscapes(url);
    std::string scheme = lowerCase(ktbase::url_scheme(out, false));
    if (scheme != ktbase::url_scheme(out, false)) out = ktbase::url_new_scheme(out, scheme, false);

    // The library cuts an IP literal at its first ":", so the rest of
    // "[v6]:port" heads the service: the port is what follows its "]".
    std::string host = ktbase::url_host(out, false);
    std::optional<std::string> field = present(out, ktbase::url_service, ktbase::url_new_service);
    std::optional<std::string> port = field;
    std::string literalTail;
    if (startsWith(host, "[") && host.find(']') == std::string::npos && field) {
        std::size_t close = field->find(']');
        std::size_t cut = close == std::string::npos ? field->size() : close + 1;
        literalTail = lowerCase(field->substr(0, cut));
        port.reset();
        if (field->compare(cut, 1, ":") == 0) port = field->substr(cut + 1);
    }
    if (lowerCase(host) != host) out = ktbase::url_new_host(out, lowerCase(host), false);
    unsigned schemePort = defaultPort(scheme);
    if (port && schemePort && (port->empty() || *port == std::to_string(schemePort))) port.reset();
    std::optional<std::string> newField = port;
    if (!literalTail.empty()) newField = literalTail + (port ? ":" + *port : "");
    if (newField != field) out = ktbase::url_new_service(out, newField.value_or(""), false);

    UrlParts parts = UrlParts::read(out);
    if (parts.scheme || startsWith(parts.path, "/")) parts.path = removeDotSegments(parts.path);
    if (schemePort && parts.authority && parts.path.empty()) parts.path = "/";
    return parts.text();
}

}  // namespace urlref
