/// \file kt/KTString.h - the NUL-terminated string of libkt.
#pragma once

#include <cstdarg>

#include "kt/KTBuffer.h"
#include "kt/KTTypes.h"
#include "ktbase/refcount.h"

namespace KT {

/// A CBuffer holding NUL-terminated 8-bit text whose `length` counts the
/// terminator: CString("abc").length is 4. A default-constructed string is in
/// the empty state (data null, length 0) and compares equal to "".
///
///     KT::CString s = KT::CString::createWithFormat("%s:%d", host, port);
///     if (s == "localhost:80") ...
///
/// Copies are deep. Codecs applied to a string add a terminator to their
/// output; pass `source.correction()` (-1 for a string) to leave a source
/// string's terminator out.
class KT_API CString : public CBuffer {
public:
    /// The empty state: no memory.
    CString() = default;
    /// Copies `text` with its terminator (strlen + 1 bytes). `text` must not
    /// be null. Throws CException "memory allocation error" if out of memory,
    /// and for a text of 2^31 - 1 characters or more (too long to count).
    CString(const char* text);
    /// Deep copy (a source in the empty state gives the empty state). Throws
    /// CException "memory allocation error" if out of memory.
    CString(const CString& other);
    /// Takes the other's memory; the other is left in the empty state.
    CString(CString&& other) noexcept = default;
    /// Deep copy, releasing the old memory if owned. Throws as the copy
    /// constructor; the string then keeps its old text.
    CString& operator=(const CString& other);
    /// Exchanges memory with the other string.
    CString& operator=(CString&& other) noexcept = default;
    /// Releases the memory if owned.
    ~CString() override;

    /// Returns a new string holding the printf-style formatting of the
    /// arguments. Throws CException "memory allocation error" or "system
    /// library call failed" (from init()).
    static CString createWithFormat(const char* format, ...) __attribute__((format(printf, 1, 2)));
    /// Replaces the content by the formatting of the arguments. Throws as
    /// init(); on a throw the string is left in the empty state.
    void set(const char* format, ...) __attribute__((format(printf, 2, 3)));
    /// The formatter under createWithFormat() and set(): formats into a
    /// 1024-byte stack area, or into a malloc'd block of exactly the size
    /// needed for longer texts (which the string then adopts). Overwrites the
    /// fields without releasing earlier memory. Throws CException "memory
    /// allocation error" or "system library call failed".
    void init(const char* format, va_list arguments);
    using CBuffer::init;
    using CBuffer::set;

    /// Returns -1: the terminator counted in `length`.
    int correction() const override;
    /// The codecs of CBuffer, followed by a terminator that the result's
    /// length counts (none after an empty result).
    void encodeHex(const CBuffer& source, int adjustment) override;
    void decodeHex(const CBuffer& source, int adjustment) override;
    void encodeBase64(const CBuffer& source, int adjustment) override;
    void decodeBase64(const CBuffer& source, int adjustment) override;

    /// The text as a C string ("" in the empty state). It ends at the first
    /// NUL in the storage: every string this library makes holds one, except
    /// a copy of a case copy whose length fills whole 512-byte blocks (a case
    /// copy's length leaves its terminator out, and a copy takes `length`).
    const char* c_str() const { return data ? reinterpret_cast<const char*>(data) : ""; }

    /// Equality of the text with `text`, as strcmp() finds it: the text is
    /// the storage up to its first NUL, whatever `length` counts (after
    /// clear(), "abcd" still equals "abcd"); storage without a NUL reads as
    /// though one followed it. Nothing past the storage is read.
    bool operator==(const char* text) const;
    /// The negation of operator==(const char*).
    bool operator!=(const char* text) const;
    using CBuffer::operator==;
    using CBuffer::operator!=;

    /// Index of the first `c` at or after `start` (the terminator included),
    /// or -1.
    int find(char c, int start) const;
    /// Index of the first occurrence of `text` at or after `start`, or -1.
    /// Both texts are read as strstr() reads them, within their storage as
    /// for operator==; an empty text matches at `start`.
    int find(const char* text, int start) const;
    /// As find(const char*, int) with the other string's text.
    int find(const CString& text, int start) const;
    /// Index of the last `c` at or before `start` (-1: from the last byte,
    /// the terminator), or -1.
    int reverseFind(char c, int start) const;
    /// Always returns -1: backward search for a text is not supported.
    int reverseFind(const char* text, int start) const;
    /// Always returns -1: backward search for a text is not supported.
    int reverseFind(const CString& text, int start) const;
    /// Returns up to `count` characters from `start` (`count` 0: to the end)
    /// as a new string. A start at or past the length gives "" borrowed from
    /// one read-only byte shared by all such results (owner 0): every write
    /// through the string's operations (append(), a codec, zero()) gives the
    /// result a block of its own first; never write to `data` directly.
    CString getSubString(int start, int count) const;
    /// Returns a copy with A-Z mapped to a-z. Unlike other strings, the copy's
    /// length does not count its terminator (which is present in memory).
    CString getLowerCaseString() const;
    /// Returns a copy with a-z mapped to A-Z; its length does not count the
    /// terminator, as for getLowerCaseString().
    CString getUpperCaseString() const;

    /// Appends a NUL and counts it in `length`, unless the text is empty or
    /// already ends in one. Throws like resize().
    void addTerminator();

private:
    /// Writes a NUL just after the counted bytes when they do not end in one
    /// and the storage has room, without counting it, so that c_str() ends.
    void keepTerminatorAfterText();
    /// The common body of the two case copies.
    CString getCaseString(bool upper) const;
};

/// A reference-counted CString.
class KT_API RString : public CString, public ktbase::object_refcount {
public:
    /// The empty state, with no reference taken yet.
    RString() = default;
    /// As CString(const char*), with no reference taken yet.
    RString(const char* text) : CString(text) {}
    /// As CString::createWithFormat().
    static RString createWithFormat(const char* format, ...) __attribute__((format(printf, 1, 2)));
    /// Releases the memory if owned; reached through either base.
    ~RString() override;
};

}  // namespace KT
