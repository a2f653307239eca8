// URL references resolved against a base, and URLs put into one normal form
// (RFC 3986 sections 5 and 6), built on the library's getters and setters.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace urlref {

/// The library's getters and copying setters, as the tool passes them around.
using Getter = std::string (*)(const std::string&, bool);
using Setter = std::string (*)(const std::string&, const std::string&, bool);

/// A URL as RFC 3986 section 5 sees it: five components, each absent or
/// present (an empty query "?" is present). The path is the library's path
/// together with its ";params".
struct UrlParts {
    std::optional<std::string> scheme, authority;
    std::string path;
    std::optional<std::string> query, fragment;

    /// Reads `url` through the library's getters.
    static UrlParts read(const std::string& url);
    /// The URL text again (RFC 3986 section 5.3).
    std::string text() const;
};

/// Returns `path` without its "." and ".." segments (RFC 3986 section 5.2.4).
///
///     removeDotSegments("/a/b/../c/./d") == "/a/c/d"
std::string removeDotSegments(std::string_view path);

/// Returns the target of `reference` resolved against `base` (RFC 3986
/// section 5.2.2, strict: a reference with a scheme is taken as it is).
///
///     resolve(UrlParts::read("http://a/b/c/d;p?q"), UrlParts::read("../g")) == "http://a/b/g"
std::string resolve(const UrlParts& base, const UrlParts& reference);

/// Returns `url` in normal form (RFC 3986 section 6.2.2): escapes of
/// unreserved bytes decoded and the others' hex digits in upper case, the
/// scheme and host in lower case, dot segments removed; and, for http, https,
/// ftp and rtsp (section 6.2.3), the default or an empty port dropped and an
/// empty path after an authority written "/".
///
///     normalize("HTTP://Ex%41mple.COM:80/a/./%7e") == "http://example.com/a/~"
std::string normalize(const std::string& url);

}  // namespace urlref
