#include "ktbase/exception.h"

namespace ktbase {
namespace e {

base::base(const char* file, unsigned line, const char* extra) noexcept
    : file_(file), line_(line), extra_(extra) {}

base::base(const base& other) noexcept = default;

base::~base() = default;

const char* base::what() const noexcept { return "ktbase::e::base"; }

const char* base::file() const noexcept { return file_; }

unsigned base::line() const noexcept { return line_; }

}  // namespace e
}  // namespace ktbase
