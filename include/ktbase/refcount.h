/// \file ktbase/refcount.h - the core library's intrusive reference count.
#pragma once

#include <atomic>
#include <cstddef>
#include <utility>

/// The core library's bases (reference count, exception) and, from libkt,
/// the URL functions.
namespace ktbase {

/// Base of the reference-counted classes. The count starts at 0; holders take
/// a reference with retain() and drop it with release(), and the last release
/// deletes the object through its virtual destructor. The count is atomic, so
/// references may be taken and dropped from several threads.
class object_refcount {
public:
    /// No reference yet: the first holder takes one.
    object_refcount() noexcept = default;
    /// A copy is a new object: it starts with no reference of its own.
    object_refcount(const object_refcount&) noexcept {}
    /// Assignment copies the object's value, never its count.
    object_refcount& operator=(const object_refcount&) noexcept { return *this; }
    /// Defined in libktcore, so that the class's virtual table, type
    /// information and destructors live there whatever the compiler.
    virtual ~object_refcount();

    /// Adds one reference.
    void retain() const noexcept;
    /// Drops one reference; deletes the object when none is left.
    void release() const noexcept;
    /// Returns the current number of references.
    int refcount() const noexcept;

private:
    mutable std::atomic<int> count_{0};
};

/// A handle holding one reference to a T derived from object_refcount, like
/// an intrusive pointer: constructing from T* retains, copying retains,
/// moving transfers, destruction and reset() release.
template <class T>
class ref {
public:
    /// An empty handle.
    ref() noexcept = default;
    /// An empty handle.
    ref(std::nullptr_t) noexcept {}
    /// Takes a new reference on `object` (null gives an empty handle).
    explicit ref(T* object) noexcept : object_(object) {
        if (object_) object_->retain();
    }
    /// Takes a reference of its own on the other's object.
    ref(const ref& other) noexcept : ref(other.object_) {}
    /// Takes over the other's reference; the other is left empty.
    ref(ref&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
    /// Holds the other's object in place of its own, whose reference it drops.
    ref& operator=(ref other) noexcept {
        std::swap(object_, other.object_);
        return *this;
    }
    /// Drops the reference held, if any.
    ~ref() { reset(); }

    /// Drops the reference held, if any; the handle becomes empty.
    void reset() noexcept {
        if (T* old = std::exchange(object_, nullptr)) old->release();
    }

    /// Returns the object, or null for an empty handle.
    T* get() const noexcept { return object_; }
    /// The object's members; the handle must not be empty.
    T* operator->() const noexcept { return object_; }
    /// The object; the handle must not be empty.
    T& operator*() const noexcept { return *object_; }
    /// True when the handle holds an object.
    explicit operator bool() const noexcept { return object_ != nullptr; }
    /// Handles compare by the object they hold (empty ones equal nullptr).
    friend bool operator==(const ref& r, std::nullptr_t) noexcept { return !r.object_; }
    /// True when the handle holds an object.
    friend bool operator!=(const ref& r, std::nullptr_t) noexcept { return r.object_ != nullptr; }
    /// True when both hold the same object, or both are empty.
    friend bool operator==(const ref& a, const ref& b) noexcept { return a.object_ == b.object_; }
    /// True when they hold different objects.
    friend bool operator!=(const ref& a, const ref& b) noexcept { return a.object_ != b.object_; }

private:
    T* object_ = nullptr;
};

}  // namespace ktbase
