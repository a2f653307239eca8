#include "kt/KTBuffer.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "KTAllocation.h"
#include "KTInternal.h"
#include "simd/kernels.h"

namespace KT {

namespace {

const char kFile[] = "lib/kt/KTBuffer.cpp";

// The largest capacity the buffer can hold: INT_MAX rounded down to 512.
constexpr std::int64_t kMaxCapacity = INT_MAX / 512 * 512;

// `n` rounded up to a multiple of 512 (0 stays 0); -1 when it does not fit.
std::int64_t roundedCapacity(std::int64_t n) {
    if (n <= 0) return 0;
    std::int64_t rounded = (n + 511) / 512 * 512;
    return rounded > kMaxCapacity ? -1 : rounded;
}

[[noreturn]] void throwResizeFailure() {
    detail::raise<CException>(kFile, /*line=*/299,
                              "virtual void KT::CBuffer::resize(KT::SIntLeast32)",
                              "memory allocation error.");
}

bool pointsInto(const UInt8* p, const UInt8* block, SIntLeast32 size) {
    auto address = reinterpret_cast<std::uintptr_t>(p);
    auto start = reinterpret_cast<std::uintptr_t>(block);
    return block && address >= start && address < start + static_cast<std::uintptr_t>(size);
}

// The number of source bytes a codec processes: length + adjustment, kept
// within the source's storage so that no adjustment can read outside it.
SIntLeast32 codecCount(const CBuffer& source, int adjustment) {
    std::int64_t n = std::int64_t(source.length) + adjustment;
    return SIntLeast32(
        std::clamp<std::int64_t>(n, 0, source.data ? std::max(source.capacity, 0) : 0));
}

// What a codec reads of `source`, copied for a target that codes itself: the
// counted bytes as the length, then the byte an odd hex digit pairs with (0
// where the storage ends there).
CBuffer codedBytes(const CBuffer& source, int adjustment) {
    const SIntLeast32 n = codecCount(source, adjustment);
    const bool pairStored = n < source.capacity;
    CBuffer copy;
    copy.init(pairStored ? n + 1 : n, source.data, CopyData);
    if (!pairStored && n < copy.capacity) copy.data[n] = 0;
    copy.length = n;
    return copy;
}

}  // namespace

const UInt8 detail::sharedEmptyText[1] = {0};

// ---------------------------------------------------------------- CBuffer

CBuffer::CBuffer(SIntLeast32 size) : data(nullptr), capacity(0), length(0), owner(1) {
    std::int64_t rounded = roundedCapacity(size);
    if (rounded == 0) return;
    if (rounded > 0) data = static_cast<UInt8*>(detail::allocate(size_t(rounded)));
    if (!data)
        detail::raise<CException>(kFile, /*line=*/220, "KT::CBuffer::CBuffer(KT::SIntLeast32)",
                                  "memory allocation error");
    capacity = SIntLeast32(rounded);
}

CBuffer::CBuffer(const CBuffer& other) : CBuffer() { init(other.length, other.data, CopyData); }

CBuffer::CBuffer(CBuffer&& other) noexcept
    : data(std::exchange(other.data, nullptr)),
      capacity(std::exchange(other.capacity, 0)),
      length(std::exchange(other.length, 0)),
      owner(std::exchange(other.owner, 1)) {}

CBuffer& CBuffer::operator=(const CBuffer& other) {
    if (this != &other) set(other.length, other.data, CopyData);
    return *this;
}

CBuffer& CBuffer::operator=(CBuffer&& other) noexcept {
    std::swap(data, other.data);
    std::swap(capacity, other.capacity);
    std::swap(length, other.length);
    std::swap(owner, other.owner);
    return *this;
}

CBuffer::~CBuffer() { free(); }

int CBuffer::correction() const { return 0; }

void CBuffer::init(SIntLeast32 size, UInt8* bytes, ConstructionFlags flags) {
    if (size <= 0 || !bytes) {
        data = nullptr;
        capacity = 0;
        length = 0;
        owner = 1;
        return;
    }
    if (flags & CopyData) {
        std::int64_t rounded = roundedCapacity(size);
        void* block = rounded > 0 ? detail::allocate(size_t(rounded)) : nullptr;
        if (!block)
            detail::raise<CException>(
                kFile, /*line=*/44,
                "void KT::CBuffer::init(KT::SIntLeast32, KT::UInt8*, KT::ConstructionFlags)",
                "memory allocation error");
        std::memmove(block, bytes, size_t(size));
        if (flags & FreeSource) std::free(bytes);
        data = static_cast<UInt8*>(block);
        capacity = SIntLeast32(rounded);
        owner = 1;
    } else {
        data = bytes;
        capacity = size;
        owner = (flags & NoOwnership) ? 0 : 1;
    }
    length = size;
}

void CBuffer::set(SIntLeast32 size, UInt8* bytes, ConstructionFlags flags) {
    UInt8* old = data;
    bool release = owner == 1 && old != nullptr;
    // Bytes borrowed or adopted from inside the block about to be released
    // would not outlive it: they are copied instead. The whole block adopted
    // again is simply kept.
    bool takesOld = !(flags & CopyData) && ((flags & NoOwnership) || bytes != old);
    if (release && takesOld && pointsInto(bytes, old, capacity)) flags = CopyData;
    init(size, bytes, flags);
    // The copy is made before the old block goes, so `bytes` may lie in it;
    // a block just freed as the copy's source is not freed twice. init()
    // frees its source only when it has copied something.
    bool freedAsSource = data && (flags & CopyData) && (flags & FreeSource) && bytes == old;
    if (release && old != data && !freedAsSource) std::free(old);
}

void CBuffer::free() {
    if (data && owner == 1) std::free(data);
}

void CBuffer::zero() {
    if (!data) return;
    if (data != detail::sharedEmptyText) std::memset(data, 0, size_t(capacity));
    length = 0;
}

void CBuffer::clear() { length = 0; }

void CBuffer::resize(SIntLeast32 needed) {
    if (capacity >= needed) return;
    std::int64_t rounded = roundedCapacity(needed);
    if (rounded < 0) throwResizeFailure();
    size_t bytes = size_t(rounded);
    // Every path builds the new block first, so a failure leaves the buffer
    // as it was.
    UInt8* block;
    if (!data) {
        block = static_cast<UInt8*>(detail::allocate(bytes));
        if (!block) throwResizeFailure();
        owner = 1;  // the block is the buffer's own, whatever the flag said
    } else if (length == 0) {
        block = static_cast<UInt8*>(detail::allocate(bytes));
        if (!block) throwResizeFailure();
        if (owner == 1) std::free(data);
        owner = 1;
    } else if (owner == 1) {
        block = static_cast<UInt8*>(detail::reallocate(data, bytes));
        if (!block) throwResizeFailure();
    } else {
        block = static_cast<UInt8*>(detail::allocate(bytes));
        if (!block) throwResizeFailure();
        std::memcpy(block, data, size_t(length));
        owner = 1;
    }
    data = block;
    capacity = SIntLeast32(rounded);
}

void CBuffer::reserveMore(std::int64_t count) {
    const bool shared = data == detail::sharedEmptyText;
    if (!shared && count <= std::int64_t(capacity) - length) return;
    std::int64_t needed = std::max<std::int64_t>(std::int64_t(length) + count, 1);
    if (needed > kMaxCapacity) throwResizeFailure();
    if (!shared) return resize(SIntLeast32(needed));
    // Whatever the write, the shared empty text is copied first: with no
    // capacity left, resize() moves its content to a block of the buffer's own.
    const SIntLeast32 sharedCapacity = std::exchange(capacity, 0);
    try {
        resize(SIntLeast32(needed));
    } catch (...) {
        capacity = sharedCapacity;
        throw;
    }
}

void CBuffer::append(SIntLeast32 count, const UInt8* bytes) {
    if (count <= 0) return;
    // The bytes may lie in this buffer, whose storage resize() may move.
    bool inside = pointsInto(bytes, data, capacity);
    std::ptrdiff_t offset = inside ? bytes - data : 0;
    reserveMore(count);
    if (inside) bytes = data + offset;
    std::memmove(data + length, bytes, size_t(count));
    length += count;
}

bool CBuffer::operator==(const CBuffer& other) const {
    return length == other.length &&
           (length <= 0 || std::memcmp(data, other.data, size_t(length)) == 0);
}

bool CBuffer::operator!=(const CBuffer& other) const { return !(*this == other); }

namespace {
int comparePrefix(const CBuffer& a, const CBuffer& b) {
    SIntLeast32 n = std::min(a.length, b.length);
    return n > 0 ? std::memcmp(a.data, b.data, size_t(n)) : 0;
}
}  // namespace

bool CBuffer::operator<(const CBuffer& other) const { return comparePrefix(*this, other) < 0; }

bool CBuffer::operator>(const CBuffer& other) const { return comparePrefix(*this, other) > 0; }

// ---------------------------------------------------------------- codecs
//
// Each codec sizes the target once, then writes from the start of its
// storage. A target asked to encode itself works on a copy of its bytes.

void CBuffer::encodeHex(const CBuffer& source, int adjustment) {
    if (&source == this) return CBuffer::encodeHex(codedBytes(source, adjustment), 0);
    SIntLeast32 n = codecCount(source, adjustment);
    reserveMore(2 * std::int64_t(n));
    simd::active().hex_encode(source.data, size_t(n), data);
    length += 2 * n;
}

void CBuffer::decodeHex(const CBuffer& source, int adjustment) {
    if (&source == this) return CBuffer::decodeHex(codedBytes(source, adjustment), 0);
    SIntLeast32 n = codecCount(source, adjustment);
    reserveMore(n / 2);
    simd::active().hex_decode(source.data, size_t(n / 2), data);
    if (n % 2 != 0 && n / 2 < capacity) {
        // An odd last digit pairs with the byte after the counted text (a
        // string's terminator); beyond the source's storage that byte reads
        // as 0. The result byte lies past `length`, written only where the
        // target's storage has room.
        UInt8 pair[2] = {source.data[n - 1], n < source.capacity ? source.data[n] : UInt8(0)};
        simd::active().hex_decode(pair, 1, data + n / 2);
    }
    length += n / 2;
}

void CBuffer::encodeBase64(const CBuffer& source, int adjustment) {
    if (&source == this) return CBuffer::encodeBase64(codedBytes(source, adjustment), 0);
    SIntLeast32 n = codecCount(source, adjustment);
    reserveMore(4 * ((std::int64_t(n) + 2) / 3) + 1);
    length = SIntLeast32(simd::active().base64_encode(source.data, size_t(n), data));
}

void CBuffer::decodeBase64(const CBuffer& source, int adjustment) {
    if (&source == this) return CBuffer::decodeBase64(codedBytes(source, adjustment), 0);
    SIntLeast32 n = codecCount(source, adjustment);
    reserveMore(3 * ((std::int64_t(n) + 3) / 4) + 1);
    length = SIntLeast32(simd::active().base64_decode(source.data, size_t(n), data));
}

// ---------------------------------------------------------------- RBuffer

RBuffer::~RBuffer() = default;

// ---------------------------------------------------------------- CData

CData::CData(SIntLeast32 size) : CBuffer(size), cursor(data) {}

CData::CData(const CData& other) : CBuffer(other), cursor(data) {
    cursor = data + std::max(other.cursorOffset(), 0);
}

CData& CData::operator=(const CData& other) {
    if (this != &other) {
        CBuffer::operator=(other);
        cursor = data + std::max(other.cursorOffset(), 0);
    }
    return *this;
}

CData::~CData() = default;

void CData::reset() { cursor = data; }

void CData::clear() {
    reset();
    length = 0;
}

void CData::zero() {
    reset();
    CBuffer::zero();
}

void CData::resize(SIntLeast32 needed) {
    std::ptrdiff_t offset = cursor - data;
    CBuffer::resize(needed);
    cursor = data + offset;
}

void CData::init(SIntLeast32 size, UInt8* bytes, ConstructionFlags flags) {
    CBuffer::init(size, bytes, flags);
    reset();
}

void CData::set(SIntLeast32 size, UInt8* bytes, ConstructionFlags flags) {
    CBuffer::set(size, bytes, flags);
    reset();
}

SIntLeast32 CData::cursorOffset() const {
    auto at = reinterpret_cast<std::uintptr_t>(cursor);
    auto start = reinterpret_cast<std::uintptr_t>(data);
    if (!data || length < 0 || at < start || at > start + std::uintptr_t(length)) return -1;
    return SIntLeast32(at - start);
}

SIntLeast32 CData::readable() const {
    SIntLeast32 offset = cursorOffset();
    return offset < 0 ? 0 : length - offset;
}

void CData::put(const UInt8* bytes, int count) {
    if (count <= 0) return;
    // A cursor moved outside the data by hand writes at the end instead.
    if (cursorOffset() < 0) cursor = data + std::max(length, 0);
    bool inside = pointsInto(bytes, data, capacity);
    std::ptrdiff_t offset = inside ? bytes - data : 0;
    reserveMore(count);
    if (inside) bytes = data + offset;
    length += count;
    std::memmove(cursor, bytes, size_t(count));
    cursor += count;
}

void CData::get(UInt8* out, int count) {
    if (count < 1) return;
    SIntLeast32 available = std::min(count, readable());
    if (available > 0) std::memmove(out, cursor, size_t(available));
    // Past the written data there is nothing to read: zeros, and the cursor
    // stops at the end.
    std::memset(out + available, 0, size_t(count - available));
    cursor += available;
}

template <>
void CData::put<int>(int value) {
    if (cursorOffset() < 0) cursor = data + std::max(length, 0);
    reserveMore(sizeof value);
    length += SIntLeast32(sizeof value);
    std::memcpy(cursor, &value, sizeof value);
    cursor += sizeof value;
}

template <>
void CData::get<int>(int& value) {
    UInt8 bytes[sizeof value];
    get(bytes, sizeof value);
    std::memcpy(&value, bytes, sizeof value);
}

CData& operator<<(CData& stream, const CBuffer& buffer) {
    SIntLeast32 count = buffer.length;
    stream.put<int>(count);
    stream.put(buffer.data, count);
    return stream;
}

CData& operator>>(CData& stream, CBuffer& buffer) {
    int prefix = 0;
    stream.get<int>(prefix);
    SIntLeast32 count = std::clamp(prefix, 0, stream.readable());
    // Room for twice the length, as the stream always asked for; the old
    // content is overwritten, so it need not survive the resize.
    const SIntLeast32 oldLength = buffer.length;
    buffer.length = 0;
    if (count > buffer.capacity - count) {
        try {
            buffer.resize(SIntLeast32(std::min(2 * std::int64_t(count), kMaxCapacity)));
        } catch (...) {
            buffer.length = oldLength;  // a failed read leaves the target as it was
            throw;
        }
    }
    buffer.length = count;
    stream.get(buffer.data, count);
    return stream;
}

// ---------------------------------------------------------------- RData

RData::~RData() = default;

}  // namespace KT
