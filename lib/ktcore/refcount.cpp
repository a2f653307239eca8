#include "ktbase/refcount.h"

namespace ktbase {

object_refcount::~object_refcount() = default;

void object_refcount::retain() const noexcept {
    count_.fetch_add(1, std::memory_order_relaxed);
}

void object_refcount::release() const noexcept {
    // acq_rel: every write made through other references happens before the
    // delete done by whoever drops the last one.
    if (count_.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
}

int object_refcount::refcount() const noexcept {
    return count_.load(std::memory_order_relaxed);
}

}  // namespace ktbase
