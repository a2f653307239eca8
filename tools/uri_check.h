// A checker of URI texts against the grammar of RFC 3986. It splits nothing
// for use elsewhere: it only finds where a text stops being a URI.
#pragma once

#include <cstddef>
#include <string_view>

namespace uricheck {

/// Returns std::string_view::npos when `text` is a URI by RFC 3986 section 3
/// (a scheme, then "//" and an authority (IP literals included) or a path,
/// then an optional query and fragment); else the offset of its first byte
/// that no URI could have there, or text.size() when it ends too early. The
/// components are bounded as by Appendix B ("http://h:8x/" is bad at the
/// "x" of its port).
///
///     firstBadByte("http://[::1]:80/a?b#c") == npos
///     firstBadByte("http://a b/") == 8
std::size_t firstBadByte(std::string_view text);

}  // namespace uricheck
