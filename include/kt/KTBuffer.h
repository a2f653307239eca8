/// \file kt/KTBuffer.h - byte buffers, their hex and Base64 forms, and the data stream.
#pragma once

#include "kt/KTTypes.h"
#include "ktbase/refcount.h"

namespace KT {

/// A growable byte array that owns, adopts or borrows its memory.
///
/// The fields are public: `data` points at `capacity` bytes of which the
/// first `length` are in use; `owner` is 1 when the buffer must free() `data`.
/// Whenever the buffer allocates for n bytes, its capacity becomes n rounded
/// up to a multiple of 512; it grows to exactly that, never by doubling.
/// Memory it allocates comes from malloc(), so memory handed over for adoption
/// must come from malloc() too.
///
/// Allocation failures throw KT::CException. Copies are deep.
///
///     KT::CBuffer buffer;                       // empty: data null, capacity 0
///     buffer.append(3, bytes);                  // capacity 512, length 3
class KT_API CBuffer {
public:
    /// Allocates `size` bytes rounded up to 512 (none for 0); length 0.
    /// Throws CException "memory allocation error" when malloc fails.
    explicit CBuffer(SIntLeast32 size = 0);
    /// Deep copy: the other buffer's `length` bytes in storage of its own.
    CBuffer(const CBuffer& other);
    /// Takes the other buffer's storage; the other is left empty.
    CBuffer(CBuffer&& other) noexcept;
    /// Deep copy; releases the old storage if owned.
    CBuffer& operator=(const CBuffer& other);
    /// Swaps storage with the other buffer.
    CBuffer& operator=(CBuffer&& other) noexcept;
    /// The adjustment that makes a codec skip a terminator: 0 here, -1 for a
    /// CString. Pass it with a source: `target.encodeHex(s, s.correction())`.
    virtual int correction() const;

    /// Writes the hex text (upper-case digits) of source's first
    /// `source.length + adjustment` bytes at the start of this buffer;
    /// `length` grows by the text's size (it is added to the old length).
    /// In all four codecs that count is kept within the source's storage:
    /// bytes there past its `length` are read, none beyond it.
    virtual void encodeHex(const CBuffer& source, int adjustment);
    /// Decodes the hex text of source's first n = `source.length + adjustment`
    /// bytes at the start of this buffer; `length` grows by n / 2. Invalid
    /// digits are not reported (an invalid digit counts as 15, an invalid
    /// second digit makes the byte 255); an odd last digit pairs with the byte
    /// after the counted text (a 0 where that byte lies past the storage).
    virtual void decodeHex(const CBuffer& source, int adjustment);
    /// Writes the padded Base64 text (RFC 4648 standard alphabet, no line
    /// breaks) of source's first `source.length + adjustment` bytes at the
    /// start of this buffer; `length` becomes the text's size.
    virtual void encodeBase64(const CBuffer& source, int adjustment);
    /// Decodes Base64 text at the start of this buffer; `length` becomes the
    /// number of bytes produced. Groups of four are decoded; a trailing
    /// partial group is ignored; the count of "=" or invalid characters in a
    /// group (2: one byte, 1: two bytes, else three) sets its output size.
    virtual void decodeBase64(const CBuffer& source, int adjustment);

    // The destructor's slot lies between the codecs and clear(): executables
    // built against the original layout call through these exact positions.
    /// Frees the storage if owned.
    virtual ~CBuffer();
    /// Sets `length` to 0, keeping storage and contents.
    virtual void clear();
    /// Fills all `capacity` bytes with zeros and sets `length` to 0; does
    /// nothing without storage.
    virtual void zero();
    /// Ensures `capacity >= needed`, growing to `needed` rounded up to 512.
    /// Owned content is kept (realloc); borrowed content is copied into a new
    /// owned block; with `length` 0 the old content is dropped. Never shrinks.
    /// Throws CException "memory allocation error." when the block cannot be
    /// had (or `needed` rounded up does not fit in SIntLeast32); the buffer is
    /// then left exactly as it was.
    virtual void resize(SIntLeast32 needed);

    /// Takes `size` bytes at `bytes` according to `flags` (see
    /// ConstructionFlags); with a size of 0 or less or null bytes the buffer
    /// becomes empty. Does not release what the buffer held before: see set().
    /// Throws CException "memory allocation error" if a copy cannot be made;
    /// the fields are then left as they were.
    void init(SIntLeast32 size, UInt8* bytes, ConstructionFlags flags);
    /// Replaces the content: init(), then the old storage is released (if
    /// owned), so `bytes` may point into this buffer; bytes to be borrowed or
    /// adopted from inside the block being released are copied instead (the
    /// whole block adopted again is kept). On a throw the buffer keeps its
    /// old content.
    void set(SIntLeast32 size, UInt8* bytes, ConstructionFlags flags);
    /// Releases the storage if owned. The fields keep their values, so it
    /// must be followed by init() or destruction.
    void free();
    /// Appends `count` bytes (which may lie inside this buffer), growing to
    /// `length + count` if needed; nothing for count <= 0. Throws like resize().
    void append(SIntLeast32 count, const UInt8* bytes);

    /// True for the same length and bytes.
    bool operator==(const CBuffer& other) const;
    /// The negation of operator==.
    bool operator!=(const CBuffer& other) const;
    /// True when the common prefix compares lower (memcmp). Only that prefix
    /// counts: a proper prefix of another buffer is neither less nor greater
    /// than it (nor equal).
    bool operator<(const CBuffer& other) const;
    /// True when the common prefix compares higher, as for operator<.
    bool operator>(const CBuffer& other) const;

    /// The storage, or null.
    UInt8* data;
    /// Bytes available at `data`.
    SIntLeast32 capacity;
    /// Bytes in use, counted from `data`.
    SIntLeast32 length;
    /// 1 when `data` must be released with free(); 0 for borrowed memory.
    std::int32_t owner;

protected:
    /// Makes room for `count` more bytes after `length` with one resize() at
    /// most; a total beyond SIntLeast32 throws as resize() does.
    void reserveMore(std::int64_t count);
};

/// A reference-counted CBuffer, to be created with new and shared through
/// ktbase::ref.
class KT_API RBuffer : public CBuffer, public ktbase::object_refcount {
public:
    /// As CBuffer(SIntLeast32), with no reference taken yet.
    explicit RBuffer(SIntLeast32 size = 0) : CBuffer(size) {}
    /// Frees the storage if owned; reached through either base.
    ~RBuffer() override;
};

/// A byte buffer with a cursor, to serialise values and read them back in the
/// same order. Values are stored in the host's byte order.
///
///     KT::CData out;
///     out.put(42);                 // 4 bytes
///     out << KT::CString("hi");    // 4-byte length, then "hi\0"
///     out.reset();                 // back to the start to read
///     int n; out.get(n);
///
/// Reads never go beyond the written data: bytes asked for past `length` read
/// as zeros and the cursor stops at the end.
class KT_API CData : public CBuffer {
public:
    /// An empty stream with room for `size` bytes (rounded up to 512).
    explicit CData(SIntLeast32 size = 0);
    /// Deep copy of the written data, with the cursor at the same offset.
    CData(const CData& other);
    /// Deep copy as above, releasing the old storage if owned.
    CData& operator=(const CData& other);
    /// Frees the storage if owned.
    ~CData() override;

    /// Also moves the cursor to the start.
    void clear() override;
    /// Also moves the cursor to the start.
    void zero() override;
    /// Keeps the cursor at the same offset when the storage moves.
    void resize(SIntLeast32 needed) override;
    /// Moves the cursor to the start of the data.
    virtual void reset();

    /// Writes `count` bytes at the cursor and advances it; `length` grows by
    /// `count`. Nothing happens for count <= 0. Throws like resize().
    void put(const UInt8* bytes, int count);
    /// Reads `count` bytes at the cursor into `out` and advances it.
    /// Nothing happens for count < 1.
    void get(UInt8* out, int count);
    /// Writes a value as it lies in memory (4 bytes for int).
    template <class T>
    void put(T value);
    /// Reads a value written by put<T>.
    template <class T>
    void get(T& value);

    /// CBuffer::init(), then the cursor moves to the start.
    void init(SIntLeast32 size, UInt8* bytes, ConstructionFlags flags);
    /// CBuffer::set(), then the cursor moves to the start.
    void set(SIntLeast32 size, UInt8* bytes, ConstructionFlags flags);

    /// Bytes between the cursor and the end of the written data (0 when the
    /// cursor lies outside it).
    SIntLeast32 readable() const;
    /// The cursor's offset from `data`, or -1 when it lies outside the
    /// written data.
    SIntLeast32 cursorOffset() const;

    /// Where the next get() reads and the next put() writes.
    UInt8* cursor;
};

/// The int form of CData::put(), the only one the library defines.
template <>
void CData::put<int>(int value);
/// The int form of CData::get(), the only one the library defines.
template <>
void CData::get<int>(int& value);

/// Writes `buffer` to the stream: its length as a 4-byte int, then its bytes.
KT_API CData& operator<<(CData& stream, const CBuffer& buffer);
/// Reads a buffer written by operator<<, overwriting `buffer` from its start.
/// A length prefix that is negative or larger than what the stream still
/// holds is cut to the bytes that remain.
KT_API CData& operator>>(CData& stream, CBuffer& buffer);

/// A reference-counted CData.
class KT_API RData : public CData, public ktbase::object_refcount {
public:
    /// As CData(SIntLeast32), with no reference taken yet.
    explicit RData(SIntLeast32 size = 0) : CData(size) {}
    /// Frees the storage if owned; reached through either base.
    ~RData() override;
};

}  // namespace KT
