#include "kt/KTString.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string_view>
#include <utility>

#include "KTAllocation.h"
#include "KTInternal.h"

namespace KT {

namespace {

const char kFile[] = "lib/kt/KTString.cpp";
const char kInitSignature[] = "void KT::CString::init(const char*, char*)";
// The lines these failures have always reported.
constexpr int kAllocationLine = 43;
constexpr int kFormatLine = 47;
constexpr int kScratchSize = 1024;

// A variable argument list, ended on every way out of the function that
// started it (with va_start) or copied it (the constructor).
struct ArgumentList {
    ArgumentList() = default;
    explicit ArgumentList(va_list arguments) { va_copy(list, arguments); }
    ArgumentList(const ArgumentList&) = delete;
    ArgumentList& operator=(const ArgumentList&) = delete;
    ~ArgumentList() { va_end(list); }
    va_list list;
};

// A string of type S holding `format` filled in from `arguments`.
template <class S>
S formatted(const char* format, va_list arguments) {
    S result;
    result.init(format, arguments);
    return result;
}

[[noreturn]] void throwFormatFailure(int line, const char* message) {
    detail::raise<CException>(kFile, line, kInitSignature, message);
}

// Formats the conversions that the library's own messages and most callers
// use (%s of a text, %d and %%) into the `room` bytes at `out`, as
// vsnprintf() would but without its set-up, which costs more than the
// formatting of a short message. Returns the count of characters written
// before the NUL, or -1 for any other conversion, a null text or a result
// that does not fit: vsnprintf() then formats it all.
int formatCommon(char* out, std::size_t room, const char* format, va_list arguments) {
    std::size_t used = 0;
    auto put = [&](const char* text, std::size_t size) {
        if (size >= room - used) return false;  // the NUL needs a byte too
        std::memcpy(out + used, text, size);
        used += size;
        return true;
    };
    for (const char* at = format;;) {
        const char* percent = std::strchr(at, '%');
        if (!put(at, percent ? std::size_t(percent - at) : std::strlen(at))) return -1;
        if (!percent) break;
        at = percent + 2;
        if (percent[1] == '%') {
            if (!put("%", 1)) return -1;
        } else if (percent[1] == 's') {
            const char* text = va_arg(arguments, const char*);
            if (!text || !put(text, std::strlen(text))) return -1;
        } else if (percent[1] == 'd') {
            int value = va_arg(arguments, int);
            unsigned magnitude = value < 0 ? 0u - unsigned(value) : unsigned(value);
            char digits[16];
            char* first = std::end(digits);
            do *--first = char('0' + magnitude % 10);
            while ((magnitude /= 10) != 0);
            if (value < 0) *--first = '-';
            if (!put(first, std::size_t(std::end(digits) - first))) return -1;
        } else {
            return -1;
        }
    }
    out[used] = '\0';
    return int(used);
}

// The text at `start`, as a C string reads it: up to the first NUL of the
// storage, whatever the length counts (a case copy's terminator lies just
// after it, a cleared string keeps its text), but never past the storage.
std::string_view textAt(const CString& string, int start) {
    if (!string.data || start < 0 || string.capacity <= start) return {};
    const char* text = reinterpret_cast<const char*>(string.data) + start;
    const void* end = std::memchr(text, 0, size_t(string.capacity - start));
    return {text,
            end ? size_t(static_cast<const char*>(end) - text) : size_t(string.capacity - start)};
}

// Index of the first `needle` in the text at `start`, or -1.
int findText(const CString& string, std::string_view needle, int start) {
    if (start < 0 || string.length <= start) return -1;
    std::size_t at = textAt(string, start).find(needle);
    return at == std::string_view::npos ? -1 : start + int(at);
}

}  // namespace

CString::CString(const char* text) {
    // A text too long to count in SIntLeast32 is asked for at the largest
    // count, which no buffer can hold: the copy fails as out of memory.
    CBuffer::set(SIntLeast32(std::min(std::strlen(text) + 1, std::size_t(INT_MAX))),
                 reinterpret_cast<UInt8*>(const_cast<char*>(text)), CopyData);
    addTerminator();
}

CString::CString(const CString& other) : CBuffer() {
    CBuffer::init(other.length, other.data, CopyData);
    keepTerminatorAfterText();
}

CString& CString::operator=(const CString& other) {
    if (this != &other) {
        CBuffer::set(other.length, other.data, CopyData);
        keepTerminatorAfterText();
    }
    return *this;
}

void CString::keepTerminatorAfterText() {
    // A case copy's length leaves its terminator out; copying only `length`
    // bytes would leave c_str() without one. The NUL goes after the counted
    // bytes, where the storage has room, and is not counted.
    if (length > 0 && data[length - 1] != 0 && length < capacity) data[length] = 0;
}

CString::~CString() = default;

int CString::correction() const { return -1; }

void CString::init(const char* format, va_list arguments) {
    // Each pass walks a copy: a va_list can be walked only once.
    char scratch[kScratchSize];
    int written = formatCommon(scratch, sizeof scratch, format, ArgumentList(arguments).list);
    if (written < 0)
        written = std::vsnprintf(scratch, sizeof scratch, format, ArgumentList(arguments).list);
    if (written < 0) throwFormatFailure(kFormatLine, "system library call failed");
    std::int64_t size = std::int64_t(written) + 1;
    if (size <= kScratchSize) {
        CBuffer::init(SIntLeast32(size), reinterpret_cast<UInt8*>(scratch), CopyData);
        return;
    }
    char* block = size <= INT32_MAX ? static_cast<char*>(detail::allocate(size_t(size))) : nullptr;
    if (!block) throwFormatFailure(kAllocationLine, "memory allocation error");
    if (std::vsnprintf(block, size_t(size), format, ArgumentList(arguments).list) < 1) {
        std::free(block);
        throwFormatFailure(kFormatLine, "system library call failed");
    }
    // The block has exactly the size needed; the string adopts it as it is.
    CBuffer::init(SIntLeast32(size), reinterpret_cast<UInt8*>(block), ConstructionFlags(0));
}

CString CString::createWithFormat(const char* format, ...) {
    ArgumentList arguments;
    va_start(arguments.list, format);
    return formatted<CString>(format, arguments.list);
}

void CString::set(const char* format, ...) {
    // The old text lives on until the new one is made, since the arguments
    // may refer to it; a failure leaves this string in the empty state.
    const CString old(std::move(*this));
    ArgumentList arguments;
    va_start(arguments.list, format);
    init(format, arguments.list);
}

void CString::addTerminator() {
    if (length <= 0 || data[length - 1] == 0) return;
    reserveMore(1);
    data[length++] = 0;
}

// Each codec writes as the buffer's does, then ends the text with a NUL.
#define KT_TERMINATED_CODEC(codec)                               \
    void CString::codec(const CBuffer& source, int adjustment) { \
        CBuffer::codec(source, adjustment);                      \
        addTerminator();                                         \
    }
KT_TERMINATED_CODEC(encodeHex)
KT_TERMINATED_CODEC(decodeHex)
KT_TERMINATED_CODEC(encodeBase64)
KT_TERMINATED_CODEC(decodeBase64)
#undef KT_TERMINATED_CODEC

bool CString::operator==(const char* text) const {
    return textAt(*this, 0) == std::string_view(text ? text : "");
}

bool CString::operator!=(const char* text) const { return !(*this == text); }

// ---------------------------------------------------------------- search

int CString::find(char c, int start) const {
    if (start < 0 || length <= start) return -1;
    const void* match = std::memchr(data + start, c, size_t(length - start));
    return match ? int(static_cast<const UInt8*>(match) - data) : -1;
}

int CString::find(const char* text, int start) const {
    return findText(*this, text ? text : "", start);
}

int CString::find(const CString& text, int start) const {
    return findText(*this, textAt(text, 0), start);
}

int CString::reverseFind(char c, int start) const {
    if (length <= start) return -1;
    int i = start == -1 ? length - 1 : start;
    for (; i >= 0; --i)
        if (char(data[i]) == c) return i;
    return -1;
}

int CString::reverseFind(const char*, int) const { return -1; }

int CString::reverseFind(const CString&, int) const { return -1; }

// ---------------------------------------------------------------- copies

CString CString::getSubString(int start, int count) const {
    CString result;
    if (start < 0 || count < 0 || length <= start) {
        result.CBuffer::init(1, const_cast<UInt8*>(detail::sharedEmptyText), NoOwnership);
        return result;
    }
    bool toEnd = count == 0 || std::int64_t(start) + count >= length;
    SIntLeast32 n = toEnd ? length - start - 1 : count;
    if (n == 0) return CString("");
    // n characters and a terminator, unless the range itself ends in NUL.
    SIntLeast32 size = data[start + n - 1] == 0 ? n : n + 1;
    result.resize(size);
    std::memcpy(result.data, data + start, size_t(n));
    if (n < result.capacity) result.data[n] = 0;
    result.length = size;
    return result;
}

CString CString::getCaseString(bool upper) const {
    CString result;
    SIntLeast32 n = length - 1;
    if (n < 0) return result;
    // Room for the n bytes of text and the byte at index n (the terminator);
    // the length then counts only the n bytes.
    result.resize(n + 1);
    for (SIntLeast32 i = n; i >= 0; --i) {
        UInt8 c = data[i];
        if (upper && c >= 'a' && c <= 'z') c = UInt8(c - 32);
        if (!upper && c >= 'A' && c <= 'Z') c = UInt8(c + 32);
        result.data[i] = c;
    }
    result.length = n;
    // A source whose length did not count its terminator (a case copy) gives
    // a copy whose n + 1 bytes hold none; keep one in memory after them.
    if (result.data[n] != 0 && n + 1 < result.capacity) result.data[n + 1] = 0;
    return result;
}

CString CString::getLowerCaseString() const { return getCaseString(false); }

CString CString::getUpperCaseString() const { return getCaseString(true); }

// ---------------------------------------------------------------- RString

RString RString::createWithFormat(const char* format, ...) {
    ArgumentList arguments;
    va_start(arguments.list, format);
    return formatted<RString>(format, arguments.list);
}

RString::~RString() = default;

}  // namespace KT
