// The bytes that percent-encoding leaves as they are.
#pragma once

namespace ktbase {
namespace url_detail {

/// Whether percent-encoding keeps `c`: letters, digits and ! ' ( ) * - . _
/// ("/" is decided by the caller, by its position in a run of slashes).
constexpr bool is_unreserved(unsigned char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '!' ||
           c == '\'' || c == '(' || c == ')' || c == '*' || c == '-' || c == '.' || c == '_';
}

}  // namespace url_detail
}  // namespace ktbase
