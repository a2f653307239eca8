/// \file kt/KTException.h - the exceptions that libkt throws.
#pragma once

#include "kt/KTString.h"
#include "kt/KTTypes.h"
#include "ktbase/exception.h"

namespace KT {

/// The library's exception. Every failure that libkt reports by throwing is a
/// CException or one of its two subclasses; since the base derives from
/// std::exception, a handler for std::exception catches them too.
///
/// It carries the type name as the thrower spelled it (what()), the source
/// file and line (file(), line()), the throwing function's full signature and
/// its own copy of the message (msg()).
///
///     try { buffer.resize(n); }
///     catch (const KT::CException& e) { e.print(); }
class KT_API CException : public ktbase::e::base {
public:
    /// Builds the exception. `type`, `file` and `function` must be literals
    /// (they are not copied); `message` is deep-copied.
    /// Throws CException "memory allocation error" if the copy cannot be made.
    CException(const char* type, int line, const char* file, const char* function,
               const CString& message);
    /// Deep-copies the message; the literals are shared.
    CException(const CException& other);
    /// Not assignable: the type and function texts belong to one throw.
    CException& operator=(const CException&) = delete;
    /// Releases the message.
    ~CException() override;

    /// Returns the type name as the thrower spelled it, such as "KT::CException"
    /// or "CNetworkException" (not the message: see msg()).
    const char* what() const noexcept override;
    /// Returns the message text, NUL-terminated.
    virtual const char* msg() const;

    /// Writes the report "exception of type '<type>' thrown [<file>:<line>,
    /// <function>]:\n -> <message>\n" to standard error and flushes it.
    void print() const;
    /// Returns the same report on one line:
    /// " Exception of type '<type>' thrown [<file>:<line>, <function>]: <message>".
    CString getString() const;

    /// The type name, a literal.
    const char* type;
    /// The full signature of the throwing function, a literal.
    const char* function;
    /// The exception's own copy of the message (its length counts the NUL).
    CString message;
};

/// A socket or name-resolution failure.
class KT_API CNetworkException : public CException {
public:
    /// As CException's constructor; compiled into the library, not inline,
    /// since callers outside it construct these by name.
    CNetworkException(const char* type, int line, const char* file, const char* function,
                      const CString& message);
    /// Deep-copies the message, as CException does.
    CNetworkException(const CNetworkException&) = default;
    /// Releases the message, as CException's destructor.
    ~CNetworkException() override;
};

/// A blocking call interrupted by a signal (the server socket's accept()).
class KT_API CInterruptedException : public CException {
public:
    /// As CException's constructor; compiled into the library, not inline,
    /// since callers outside it construct these by name.
    CInterruptedException(const char* type, int line, const char* file, const char* function,
                          const CString& message);
    /// Deep-copies the message, as CException does.
    CInterruptedException(const CInterruptedException&) = default;
    /// Releases the message, as CException's destructor.
    ~CInterruptedException() override;
};

/// An interface for users who route exceptions to a handler of their own.
/// The library neither implements nor calls it.
class KT_API CExceptionHandlerP {
public:
    /// Lets a handler be deleted through the interface.
    virtual ~CExceptionHandlerP() = 0;
    /// Handles one exception.
    virtual void handleException(const CException& exception) = 0;
};

}  // namespace KT
