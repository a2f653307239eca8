#include "uri_check.h"

#include <array>
#include <cstdint>

namespace uricheck {

namespace {

constexpr std::size_t kGood = std::string_view::npos;

// The classes of RFC 3986 section 2 and those that grammar rules add, each
// a bit.
enum Class : std::uint8_t {
    kUnreserved = 1,  // ALPHA DIGIT - . _ ~
    kSubDelim = 2,    // ! $ & ' ( ) * + , ; =
    kColon = 4,
    kAt = 8,
    kSlash = 16,
    kQuestion = 32,
    kHexDigit = 64,
    kSchemeChar = 128,  // ALPHA DIGIT + - .
};
constexpr std::uint8_t kUserinfo = kUnreserved | kSubDelim | kColon;
constexpr std::uint8_t kRegName = kUnreserved | kSubDelim;
constexpr std::uint8_t kPath = kUnreserved | kSubDelim | kColon | kAt | kSlash;
constexpr std::uint8_t kQueryOrFragment = kPath | kQuestion;

constexpr std::array<std::uint8_t, 256> kClasses = [] {
    std::array<std::uint8_t, 256> table{};
    for (int c = 0; c < 256; ++c) {
        bool alpha = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'), digit = c >= '0' && c <= '9';
        std::uint8_t bits = 0;
        if (alpha || digit || c == '-' || c == '.' || c == '_' || c == '~') bits |= kUnreserved;
        if (std::string_view("!$&'()*+,;=").find(char(c)) != std::string_view::npos) bits |= kSubDelim;
        if (c == ':') bits |= kColon;
        if (c == '@') bits |= kAt;
        if (c == '/') bits |= kSlash;
        if (c == '?') bits |= kQuestion;
        if (digit || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F')) bits |= kHexDigit;
        if (alpha || digit || c == '+' || c == '-' || c == '.') bits |= kSchemeChar;
        table[std::size_t(c)] = bits;
    }
    return table;
}();

bool is(char c, std::uint8_t classes) { return (kClasses[static_cast<unsigned char>(c)] & classes) != 0; }
bool isDigit(char c) { return c >= '0' && c <= '9'; }

class Checker {
public:
    explicit Checker(std::string_view text) : t_(text) {}

    // Bytes [from, to) of the classes given, or escapes ("%" and two hex
    // digits).
    std::size_t chars(std::size_t from, std::size_t to, std::uint8_t classes) const {
        for (std::size_t i = from; i < to; ++i) {
            if (t_[i] != '%') {
                if (!is(t_[i], classes)) return i;
                continue;
            }
            for (std::size_t digit = i + 1; digit <= i + 2; ++digit)
                if (digit >= to || !is(t_[digit], kHexDigit)) return digit;
            i += 2;
        }
        return kGood;
    }

    // Section 3.2.2: an IPv4 address, four decimal bytes; [from, to) may
    // hold nothing after it.
    std::size_t ipv4(std::size_t from, std::size_t to) const {
        std::size_t i = from;
        for (int octet = 0; octet < 4; ++octet) {
            if (octet > 0) {
                if (i >= to || t_[i] != '.') return i;
                ++i;
            }
            if (i >= to || !isDigit(t_[i])) return i;
            int value = t_[i++] - '0';
            for (; i < to && isDigit(t_[i]); ++i) {
                value = value * 10 + (t_[i] - '0');
                if (value == t_[i] - '0' || value > 255) return i;  // a leading 0, or past 255
            }
        }
        return i < to ? i : kGood;
    }

    // An IPv6 address: eight groups of up to four hex digits, or fewer with
    // one "::" standing for the rest; the last two may be an IPv4 address.
    std::size_t ipv6(std::size_t from, std::size_t to) const {
        std::size_t i = from;
        int groups = 0;
        bool elided = false;
        if (i < to && t_[i] == ':') {
            if (i + 1 >= to || t_[i + 1] != ':') return i + 1;
            elided = true;
            i += 2;
        }
        while (i < to) {
            int room = (elided ? 7 : 8) - groups;
            std::size_t j = i;
            while (j < to && j - i < 4 && is(t_[j], kHexDigit)) ++j;
            if (j < to && t_[j] == '.') {  // the IPv4 form of the last 32 bits
                if (room < 2) return i;
                return ipv4(i, to);
            }
            if (room < 1 || j == i) return i;
            if (j < to && is(t_[j], kHexDigit)) return j;  // a fifth digit
            ++groups;
            if (j == to) break;
            if (t_[j] != ':' || room == 1) return j;
            if (j + 1 < to && t_[j + 1] == ':') {
                if (elided) return j + 1;
                elided = true;
                i = j + 2;
            } else {
                i = j + 1;
                if (i == to) return i;  // ends in one ":"
            }
        }
        return elided || groups == 8 ? kGood : to;
    }

    // Section 3.2.2: "v", hex digits, "." and at least one more byte.
    std::size_t ipvFuture(std::size_t from, std::size_t to) const {
        std::size_t i = from + 1;
        while (i < to && is(t_[i], kHexDigit)) ++i;
        if (i == from + 1 || i >= to || t_[i] != '.') return i;
        if (++i >= to) return i;
        for (; i < to; ++i)
            if (!is(t_[i], kUnreserved | kSubDelim | kColon)) return i;
        return kGood;
    }

    // Section 3.2: [userinfo "@"] host [":" port].
    std::size_t authority(std::size_t from, std::size_t to) const {
        std::size_t at = t_.substr(0, to).find('@', from);
        if (at != std::string_view::npos) {
            if (std::size_t bad = chars(from, at, kUserinfo); bad != kGood) return bad;
            from = at + 1;
        }
        std::size_t hostEnd;
        if (from < to && t_[from] == '[') {
            std::size_t close = std::min(t_.substr(0, to).find(']', from), to);
            bool future = from + 1 < close && (t_[from + 1] == 'v' || t_[from + 1] == 'V');
            std::size_t bad = future ? ipvFuture(from + 1, close) : ipv6(from + 1, close);
            if (bad != kGood) return bad;
            if (close == to) return to;
            hostEnd = close + 1;
        } else {
            hostEnd = std::min(t_.substr(0, to).find(':', from), to);
            if (std::size_t bad = chars(from, hostEnd, kRegName); bad != kGood) return bad;
        }
        if (hostEnd == to) return kGood;
        if (t_[hostEnd] != ':') return hostEnd;
        for (std::size_t i = hostEnd + 1; i < to; ++i)
            if (!isDigit(t_[i])) return i;
        return kGood;
    }

    std::size_t uri() const {
        std::size_t n = t_.size();
        if (n == 0 || !is(t_[0], kSchemeChar) || isDigit(t_[0]) || t_[0] == '+' || t_[0] == '-' || t_[0] == '.')
            return 0;
        std::size_t i = 1;
        while (i < n && is(t_[i], kSchemeChar)) ++i;
        if (i == n || t_[i] != ':') return i;
        ++i;
        std::size_t pathEnd = std::min(t_.find_first_of("?#", i), n);
        if (t_.compare(i, 2, "//") == 0) {
            std::size_t authorityEnd = std::min(t_.find_first_of("/?#", i + 2), n);
            if (std::size_t bad = authority(i + 2, authorityEnd); bad != kGood) return bad;
            i = authorityEnd;
        }
        if (std::size_t bad = chars(i, pathEnd, kPath); bad != kGood) return bad;
        i = pathEnd;
        if (i < n && t_[i] == '?') {
            std::size_t queryEnd = std::min(t_.find('#', i), n);
            if (std::size_t bad = chars(i + 1, queryEnd, kQueryOrFragment); bad != kGood) return bad;
            i = queryEnd;
        }
        return i < n ? chars(i + 1, n, kQueryOrFragment) : kGood;
    }

private:
    std::string_view t_;
};

}  // namespace

std::size_t firstBadByte(std::string_view text) { return Checker(text).uri(); }

}  // namespace uricheck
