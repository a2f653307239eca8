/// \file ktbase/exception.h - the core library's exception base.
#pragma once

#include <exception>

namespace ktbase {
/// The exception base, apart from the rest of the core library.
namespace e {

/// Base of every exception the libraries throw: a std::exception that also
/// remembers the source file and line of the throw site.
///
/// The file text is not copied: callers pass string literals.
class base : public std::exception {
public:
    /// Records `file` and `line`; `extra` is an optional note, kept as given
    /// (callers in libkt always pass a null pointer).
    base(const char* file, unsigned line, const char* extra) noexcept;
    /// Shares the other's file and note texts (literals, never copied).
    base(const base& other) noexcept;
    /// Not assignable: an exception records one throw site.
    base& operator=(const base&) = delete;
    /// Nothing to release: the texts are the thrower's literals.
    ~base() override;

    /// Returns a short description; the base returns "ktbase::e::base".
    const char* what() const noexcept override;
    /// Returns the source file of the throw site, as given to the constructor.
    virtual const char* file() const noexcept;
    /// Returns the source line of the throw site.
    virtual unsigned line() const noexcept;
    /// Returns the optional note given to the constructor, or null.
    const char* extra() const noexcept { return extra_; }

private:
    const char* file_;
    unsigned line_;
    const char* extra_;
};

}  // namespace e
}  // namespace ktbase
